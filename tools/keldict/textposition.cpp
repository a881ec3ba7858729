#include "textposition.h"

#include <algorithm>

namespace Keldict {

namespace {

constexpr std::size_t stretch = 4096;

/// Characters of UTF-8 text; a stray byte counts as what it looks like.
std::size_t charactersIn(std::string_view text)
{
    const auto begins = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; };
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins));
}

} // namespace

void TextLines::measure() const
{
    m_starts.push_back(0);
    for (std::size_t end = m_text.find('\n'); end != std::string_view::npos; end = m_text.find('\n', end + 1))
        m_starts.push_back(end + 1);
    m_characters.push_back(0);
    for (std::size_t offset = 0; offset < m_text.size(); offset += stretch)
        m_characters.push_back(m_characters.back() + charactersIn(m_text.substr(offset, stretch)));
}

std::size_t TextLines::charactersBefore(std::size_t offset) const
{
    const std::size_t begin = offset / stretch * stretch;
    return m_characters[offset / stretch] + charactersIn(m_text.substr(begin, offset - begin));
}

TextPosition TextLines::at(std::size_t offset) const
{
    if (m_starts.empty())
        measure();
    offset = std::min(offset, m_text.size());
    const auto next = std::upper_bound(m_starts.begin(), m_starts.end(), offset);
    const auto line = static_cast<std::size_t>(next - m_starts.begin());
    return {line, charactersBefore(offset) - charactersBefore(m_starts[line - 1]) + 1};
}

} // namespace Keldict
