#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Keldict {

/// "1 item", "2 items".
std::string counted(std::size_t count, const std::string& what);

/// The candidate that `word` was probably meant to be: the same but for letter case, or a few letters off.
std::optional<std::string_view> nearest(std::string_view word, const std::vector<std::string_view>& candidates);

/// The word without what is easily overlooked: letter case, blanks of any kind, and whether letters are composed.
std::string folded(std::string_view utf8);

/// Whether the texts are one when their letters are composed, so that they look the same.
bool isSameComposed(std::string_view a, std::string_view b);

/// Whether the bytes are well-formed UTF-8.
bool isUtf8(std::string_view bytes);

/// The text in double quotes, on one line and fit for a terminal: what is not printable is escaped, what is too long is
/// cut.
std::string inQuotes(std::string_view utf8);

/// At most `longest` bytes from the beginning of the text, and "..." when it is longer. No character is cut.
std::string shortened(std::string_view utf8, std::size_t longest);

/// The text as well-formed UTF-8; stray bytes become the replacement character.
std::string repaired(std::string_view bytes);

/// How many columns the text takes on a terminal.
std::size_t widthOf(std::string_view utf8);

} // namespace Keldict
