#pragma once

#include <cstddef>
#include <string_view>

namespace Keldict {

/// Walks over the tokens of JSON text that a parser has accepted, to find where its values stand.
class JsonCursor
{
public:
    explicit JsonCursor(std::string_view text, std::size_t offset = 0) : m_text(text), m_offset(offset) {}

    /// Where the next token begins; past the separators in front of it.
    std::size_t next();

    /// Where it stands: behind the value that was skipped last.
    std::size_t offset() const { return m_offset; }

    /// Into the object or array that begins here.
    void enter() { m_offset = next() + 1; }

    /// Over the next value (or key), with everything in it.
    void skipValue();

private:
    void skipString();
    void skipNested();

    const std::string_view m_text;
    std::size_t m_offset;
};

} // namespace Keldict
