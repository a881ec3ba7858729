#pragma once
// Private to datastorage/: not installed.

#include <rapidjson/reader.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Ombrin {

/// Memory for RapidJSON's stacks, which write to what they get without looking: that there is none has to be an
/// exception.
class JsonAllocator
{
public:
    static const bool kNeedFree = true; // RapidJSON's names

    void* Malloc(std::size_t size) { return Realloc(nullptr, 0, size); }

    void* Realloc(void* memory, std::size_t /*oldSize*/, std::size_t size)
    {
        if (size == 0) {
            Free(memory);
            return nullptr;
        }
        void* const resized = std::realloc(memory, size);
        return resized ? resized : throw std::bad_alloc();
    }

    static void Free(void* memory) { std::free(memory); }
};

/// Tells a text's events without making a document of it.
using JsonReader = rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, JsonAllocator>;

/// Replaces the exponents in JSON text that overflow inside RapidJSON's reader.
///
/// The reader subtracts the length of a number's fraction from the exponent as `int`, which overflows for
/// 0.00000000001e-2147483639. This class replaces every negative exponent of ten digits or more by one of nine. No
/// value changes: a number with such an exponent is 0. A positive exponent of that size needs no replacement: the
/// reader refuses the number, and overflows only behind a fraction of more than 200,000,000 digits.
class JsonExponents
{
public:
    /// Works on the text up to its NUL. The text keeps its length, and its strings keep their contents.
    static void bound(char* text)
    {
        Strings strings(text);
        for (char* at = text; (at = std::strchr(at, '-')) != nullptr;) {
            const char mark = at == text ? '\0' : at[-1];
            char* const digits = ++at;
            if (mark != 'e' && mark != 'E')
                continue;
            at += std::strspn(digits, "0123456789");
            if (at - digits > longest && !strings.contain(digits))
                replace(digits, at);
        }
    }

private:
    /// Tells the inside of strings from the rest of the text.
    class Strings
    {
    public:
        explicit Strings(const char* text) : m_at(text) {}

        /// Positions must ascend from call to call.
        bool contain(const char* position)
        {
            for (; m_at < position; ++m_at) {
                if (*m_at == '"')
                    m_isInside = !m_isInside;
                else if (*m_at == '\\')
                    ++m_at;
            }
            return m_isInside;
        }

    private:
        const char* m_at;
        bool m_isInside = false;
    };

    static constexpr std::ptrdiff_t longest = 9; // digits

    static void replace(char* digits, char* end)
    {
        digits = std::find_if(digits, end, [](char c) { return c != '0'; });
        if (end - digits <= longest)
            return;
        std::fill(digits, end - longest, '0');
        std::fill(end - longest, end, '9');
    }
};

} // namespace Ombrin
