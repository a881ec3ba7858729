#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace Keldict {

/// Line and column as editors count them, from 1; 0 where there is none.
struct TextPosition
{
    std::size_t line = 0;
    std::size_t column = 0; ///< in characters, not bytes
};

/// Finds lines and columns in a text, however long its lines are.
class TextLines
{
public:
    /// `text` must outlive this object.
    explicit TextLines(std::string_view text) : m_text(text) {}

    TextPosition at(std::size_t offset) const;

private:
    void measure() const;
    std::size_t charactersBefore(std::size_t offset) const;

    const std::string_view m_text;
    // Made at the first question: most files raise none.
    mutable std::vector<std::size_t> m_starts;     // offsets of the lines
    mutable std::vector<std::size_t> m_characters; // in front of each stretch
};

} // namespace Keldict
