#pragma once

#include "kernel/kelglobal.h"

#include <cstddef>
#include <string>

namespace Ombrin {

/// A sequence of bytes. The data is always followed by a NUL that does not count.
class KEL_EXPORT CkelByteArray
{
public:
    CkelByteArray() = default;
    explicit CkelByteArray(std::string bytes);
    CkelByteArray(const char* data, std::size_t size);

    const char* data() const { return m_bytes.data(); }
    char* data() { return m_bytes.data(); }
    std::size_t size() const { return m_bytes.size(); }
    bool isEmpty() const { return m_bytes.empty(); }
    const std::string& toStdString() const { return m_bytes; }

private:
    std::string m_bytes;
};

/// A text, held as UTF-8.
///
/// Bytes are taken as they come: nothing validates or changes them on the way in or out, so a file name in any
/// encoding survives.
class KEL_EXPORT CkelString
{
public:
    enum CaseSensitivity
    {
        CaseInsensitive = 0, ///< letters A to Z equal a to z; other characters as they are
        CaseSensitive = 1
    };

    CkelString() = default;
    CkelString(const char* utf8);        // NOLINT(google-explicit-constructor): a text literal is a text
    CkelString(const std::string& utf8); // NOLINT(google-explicit-constructor)

    /// The first `length` bytes of `text`, or all up to its NUL when `length` is negative. A null pointer gives an
    /// empty text.
    static CkelString fromAscii(const char* text, int length = -1);
    static CkelString fromUtf8(const char* text, int length = -1);

    /// `number` in digits of `base` (2 to 36, small letters; any other base counts as 10).
    static CkelString number(int number, int base = 10);
    static CkelString number(unsigned int number, int base = 10);
    static CkelString number(long number, int base = 10);
    static CkelString number(unsigned long number, int base = 10);
    static CkelString number(long long number, int base = 10);
    static CkelString number(unsigned long long number, int base = 10);

    /// The shortest text that reads back to the same number, whatever the locale.
    static CkelString number(double number);

    CkelString& append(const CkelString& text);
    bool endsWith(const CkelString& ending, CaseSensitivity sensitivity = CaseSensitive) const;

    CkelByteArray toAscii() const { return CkelByteArray(m_utf8); }
    const std::string& toStdString() const { return m_utf8; }
    std::size_t size() const { return m_utf8.size(); } ///< in bytes
    bool isEmpty() const { return m_utf8.empty(); }

    friend bool operator==(const CkelString& a, const CkelString& b) { return a.m_utf8 == b.m_utf8; }
    friend bool operator!=(const CkelString& a, const CkelString& b) { return a.m_utf8 != b.m_utf8; }

private:
    std::string m_utf8;
};

} // namespace Ombrin
