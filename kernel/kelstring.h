#pragma once

#include "kernel/kelglobal.h"

#include <cstddef>
#include <string>

namespace Ombrin {

/// A sequence of bytes. The data is always followed by a NUL that does not count. Not synchronised.
/// @ingroup kernel
class KEL_EXPORT CkelByteArray
{
public:
    /// Empty.
    CkelByteArray() = default;
    /// All of `bytes`, NULs included.
    explicit CkelByteArray(std::string bytes);
    /// A copy of `size` bytes from `data` on, NULs included.
    CkelByteArray(const char* data, std::size_t size);

    /// Never null. Valid until the array is changed or destroyed.
    const char* data() const { return m_bytes.data(); }
    /// The same, to be written in place: size() bytes.
    char* data() { return m_bytes.data(); }
    /// In bytes, the closing NUL not counted.
    std::size_t size() const { return m_bytes.size(); }
    /// True when there is no byte.
    bool isEmpty() const { return m_bytes.empty(); }
    /// All bytes. Valid until the array is changed or destroyed.
    const std::string& toStdString() const { return m_bytes; }

private:
    std::string m_bytes;
};

/// A text, held as UTF-8.
///
/// Bytes are taken as they come: nothing validates or changes them on the way in or out, so a file name in any
/// encoding survives. Not synchronised.
/// @ingroup kernel
class KEL_EXPORT CkelString
{
public:
    /// How texts are compared.
    enum CaseSensitivity
    {
        CaseInsensitive = 0, ///< letters A to Z equal a to z; other characters as they are
        CaseSensitive = 1    ///< byte by byte
    };

    /// Empty.
    CkelString() = default;
    /// The bytes up to the NUL; a null pointer gives an empty text.
    CkelString(const char* utf8); // NOLINT(google-explicit-constructor): a text literal is a text
    /// All bytes, NULs included.
    CkelString(const std::string& utf8); // NOLINT(google-explicit-constructor)

    /// The first `length` bytes of `text`, or all up to its NUL when `length` is negative. A null pointer gives an
    /// empty text.
    static CkelString fromAscii(const char* text, int length = -1);

    /// The same: no encoding is converted.
    static CkelString fromUtf8(const char* text, int length = -1);

    /// @name Numbers as texts
    /// number() returns the digits of a number in `base` (2 to 36, small letters; any other base counts as 10).
    /// @{

    static CkelString number(int number, int base = 10);                ///< of an int
    static CkelString number(unsigned int number, int base = 10);       ///< of an unsigned int
    static CkelString number(long number, int base = 10);               ///< of a long
    static CkelString number(unsigned long number, int base = 10);      ///< of an unsigned long
    static CkelString number(long long number, int base = 10);          ///< of a long long
    static CkelString number(unsigned long long number, int base = 10); ///< of an unsigned long long

    /// The shortest text that reads back to the same number, whatever the locale.
    static CkelString number(double number);

    /// @}

    /// Adds `text` at the end, and returns this text.
    CkelString& append(const CkelString& text);
    /// True also for an empty `ending`.
    bool endsWith(const CkelString& ending, CaseSensitivity sensitivity = CaseSensitive) const;

    /// The bytes, unchanged.
    CkelByteArray toAscii() const { return CkelByteArray(m_utf8); }
    /// The bytes, unchanged. Valid until the text is changed or destroyed.
    const std::string& toStdString() const { return m_utf8; }
    std::size_t size() const { return m_utf8.size(); } ///< in bytes
    /// True when there is no byte.
    bool isEmpty() const { return m_utf8.empty(); }

    /// Byte by byte.
    friend bool operator==(const CkelString& a, const CkelString& b) { return a.m_utf8 == b.m_utf8; }
    /// Byte by byte.
    friend bool operator!=(const CkelString& a, const CkelString& b) { return a.m_utf8 != b.m_utf8; }

private:
    std::string m_utf8;
};

} // namespace Ombrin
