#include "jsoncursor.h"

#include <algorithm>
#include <array>

namespace Keldict {

namespace {

bool isSeparator(char c)
{
    return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == ',' || c == ':';
}

/// Whether a byte matters to those who look for the end of a nested value.
constexpr std::array<bool, 256> makeMarks()
{
    std::array<bool, 256> marks{};
    for (const char mark : {'"', '{', '}', '[', ']'})
        marks[static_cast<unsigned char>(mark)] = true;
    return marks;
}

std::size_t nextMark(std::string_view text, std::size_t offset)
{
    constexpr std::array<bool, 256> marks = makeMarks();
    while (offset < text.size() && !marks[static_cast<unsigned char>(text[offset])])
        ++offset;
    return offset;
}

/// Behind the string whose opening quote stands at `offset`.
std::size_t endOfString(std::string_view text, std::size_t offset)
{
    for (++offset; offset < text.size() && text[offset] != '"'; ++offset) {
        if (text[offset] == '\\')
            ++offset;
    }
    return std::min(offset + 1, text.size());
}

} // namespace

std::size_t JsonCursor::next()
{
    while (m_offset < m_text.size() && isSeparator(m_text[m_offset]))
        ++m_offset;
    return m_offset;
}

void JsonCursor::skipString()
{
    m_offset = endOfString(m_text, m_offset);
}

void JsonCursor::skipNested()
{
    std::size_t depth = 0;
    do {
        m_offset = nextMark(m_text, m_offset);
        const char c = m_offset < m_text.size() ? m_text[m_offset] : '"';
        if (c == '"') {
            skipString();
            continue;
        }
        if (c == '{' || c == '[')
            ++depth;
        else
            --depth;
        ++m_offset;
    } while (depth > 0 && m_offset < m_text.size());
}

void JsonCursor::skipValue()
{
    if (next() >= m_text.size())
        return;
    const char c = m_text[m_offset];
    if (c == '"')
        skipString();
    else if (c == '{' || c == '[')
        skipNested();
    else
        m_offset = std::min(m_text.find_first_of(" \n\r\t,:]}", m_offset), m_text.size());
}

} // namespace Keldict
