#include "kernel/kelstring.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <utility>

namespace Ombrin {

namespace {

char toLower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

template <typename Integer>
CkelString digitsOf(Integer number, int base)
{
    std::array<char, 66> text{}; // a sign and 64 binary digits
    const auto end =
        std::to_chars(text.data(), text.data() + text.size(), number, base >= 2 && base <= 36 ? base : 10).ptr;
    return CkelString::fromAscii(text.data(), static_cast<int>(end - text.data()));
}

} // namespace

CkelByteArray::CkelByteArray(std::string bytes) : m_bytes(std::move(bytes)) {}

CkelByteArray::CkelByteArray(const char* data, std::size_t size) : m_bytes(data, size) {}

CkelString::CkelString(const char* utf8) : m_utf8(utf8 ? utf8 : "") {}

CkelString::CkelString(const std::string& utf8) : m_utf8(utf8) {}

CkelString CkelString::fromAscii(const char* text, int length)
{
    return fromUtf8(text, length);
}

CkelString CkelString::fromUtf8(const char* text, int length)
{
    if (!text)
        return {};
    return std::string(text, length < 0 ? std::strlen(text) : static_cast<std::size_t>(length));
}

CkelString CkelString::number(int number, int base)
{
    return digitsOf(number, base);
}

CkelString CkelString::number(unsigned int number, int base)
{
    return digitsOf(number, base);
}

CkelString CkelString::number(long number, int base)
{
    return digitsOf(number, base);
}

CkelString CkelString::number(unsigned long number, int base)
{
    return digitsOf(number, base);
}

CkelString CkelString::number(long long number, int base)
{
    return digitsOf(number, base);
}

CkelString CkelString::number(unsigned long long number, int base)
{
    return digitsOf(number, base);
}

CkelString CkelString::number(double number)
{
    if (std::isnan(number)) // its sign bit says nothing
        return "nan";
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return fromAscii(text.data(), static_cast<int>(end - text.data()));
}

CkelString& CkelString::append(const CkelString& text)
{
    m_utf8 += text.m_utf8;
    return *this;
}

bool CkelString::endsWith(const CkelString& ending, CaseSensitivity sensitivity) const
{
    if (ending.size() > size())
        return false;
    const auto start = m_utf8.end() - static_cast<std::ptrdiff_t>(ending.size());
    if (sensitivity == CaseSensitive)
        return std::equal(start, m_utf8.end(), ending.m_utf8.begin());
    return std::equal(start, m_utf8.end(), ending.m_utf8.begin(),
                      [](char a, char b) { return toLower(a) == toLower(b); });
}

} // namespace Ombrin
