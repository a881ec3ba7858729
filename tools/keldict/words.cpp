#include "words.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>

namespace Keldict {

namespace {

constexpr char32_t invalid = 0xFFFFFFFF;
constexpr std::string_view replacement = "\xEF\xBF\xBD";

struct Character
{
    char32_t code;
    std::size_t size; // bytes
};

/// How many bytes at the beginning are plain ASCII, in steps of eight: most files are nothing else.
std::size_t plainPrefix(std::string_view bytes)
{
    constexpr std::uint64_t highBits = 0x8080808080808080;
    std::size_t size = 0;
    for (std::uint64_t eight = 0; size + sizeof eight <= bytes.size(); size += sizeof eight) {
        std::memcpy(&eight, bytes.data() + size, sizeof eight);
        if ((eight & highBits) != 0)
            break;
    }
    return size;
}

const utf8proc_uint8_t* bytesOf(std::string_view text)
{
    return reinterpret_cast<const utf8proc_uint8_t*>(text.data());
}

/// The first character of a text that is not empty; `invalid` of one byte where there is none.
Character firstOf(std::string_view text)
{
    utf8proc_int32_t code = 0;
    const auto size = utf8proc_iterate(bytesOf(text), static_cast<utf8proc_ssize_t>(text.size()), &code);
    return size > 0 ? Character{static_cast<char32_t>(code), static_cast<std::size_t>(size)} : Character{invalid, 1};
}

template <typename Visit>
void forEachCharacter(std::string_view text, Visit visit)
{
    while (!text.empty()) {
        const Character character = firstOf(text);
        visit(character.code, text.substr(0, character.size));
        text.remove_prefix(character.size);
    }
}

utf8proc_category_t categoryOf(char32_t code)
{
    return utf8proc_category(static_cast<utf8proc_int32_t>(code));
}

bool isBlank(char32_t code)
{
    const auto category = categoryOf(code);
    return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL || category == UTF8PROC_CATEGORY_ZP ||
           category == UTF8PROC_CATEGORY_CC;
}

/// The text with letters composed, and what else utf8proc's options say; nothing for text that is not UTF-8.
std::optional<std::string> composed(std::string_view text, int options = 0)
{
    struct Free
    {
        void operator()(utf8proc_uint8_t* bytes) const { std::free(bytes); }
    };
    utf8proc_uint8_t* bytes = nullptr;
    const auto all = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | options);
    const auto size = utf8proc_map(bytesOf(text), static_cast<utf8proc_ssize_t>(text.size()), &bytes, all);
    const std::unique_ptr<utf8proc_uint8_t, Free> owner(bytes);
    if (size < 0)
        return std::nullopt;
    return std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
}

bool isPlain(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// What folding does to ASCII, which most names are; other bytes stay.
std::string foldedPlain(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        if (static_cast<unsigned char>(c) > ' ')
            result += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 0x20) : c;
    }
    return result;
}

/// Letters to change, leave out, add or exchange with their neighbour to get from one word to the other.
std::size_t distance(std::string_view from, std::string_view to)
{
    std::vector<std::size_t> before(to.size() + 1), above(to.size() + 1), row(to.size() + 1);
    std::iota(above.begin(), above.end(), 0U);
    for (std::size_t i = 1; i <= from.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const bool same = from[i - 1] == to[j - 1];
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before.swap(above);
        above.swap(row);
    }
    return above[to.size()];
}

/// Whether one word is the beginning of the other.
bool isBeginning(std::string_view a, std::string_view b)
{
    constexpr std::size_t shortest = 3;
    const std::size_t common = std::min(a.size(), b.size());
    return common >= shortest && a.substr(0, common) == b.substr(0, common);
}

/// Among them those that would change the direction of the text around them.
bool isControl(char32_t code)
{
    const auto category = categoryOf(code);
    return category == UTF8PROC_CATEGORY_CC || category == UTF8PROC_CATEGORY_CF || category == UTF8PROC_CATEGORY_ZL ||
           category == UTF8PROC_CATEGORY_ZP;
}

std::string escaped(char32_t code, std::string_view bytes)
{
    if (code == '"' || code == '\\')
        return {'\\', static_cast<char>(code)};
    if (code != invalid && !isControl(code))
        return std::string(bytes);
    std::array<char, 16> text{};
    if (code == invalid)
        static_cast<void>(std::snprintf(text.data(), text.size(), "\\x%02X",
                                        static_cast<unsigned>(static_cast<unsigned char>(bytes[0]))));
    else
        static_cast<void>(std::snprintf(text.data(), text.size(), "\\u%04X", static_cast<unsigned>(code)));
    return text.data();
}

} // namespace

std::string counted(std::size_t count, const std::string& what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::optional<std::string_view> nearest(std::string_view word, const std::vector<std::string_view>& candidates)
{
    constexpr std::size_t longestWord = 64;
    if (word.size() > longestWord)
        return std::nullopt;
    const std::string plain = folded(word);
    std::optional<std::string_view> best;
    std::size_t smallest = std::max<std::size_t>(1, plain.size() / 3) + 1; // beyond that it is another word
    for (const std::string_view candidate : candidates) {
        const std::string known = folded(candidate);
        const std::size_t off = isBeginning(plain, known) ? 1 : distance(plain, known);
        if (off < smallest && off < candidate.size()) {
            smallest = off;
            best = candidate;
        }
    }
    return best;
}

std::string folded(std::string_view utf8)
{
    const auto alike = isPlain(utf8) ? std::nullopt : composed(utf8, UTF8PROC_CASEFOLD | UTF8PROC_IGNORE);
    if (!alike)
        return foldedPlain(utf8);
    std::string result;
    forEachCharacter(*alike, [&](char32_t code, std::string_view bytes) {
        if (!isBlank(code))
            result += bytes;
    });
    return result;
}

bool isSameComposed(std::string_view a, std::string_view b)
{
    const auto first = composed(a);
    return first && first == composed(b);
}

bool isUtf8(std::string_view bytes)
{
    for (bytes.remove_prefix(plainPrefix(bytes)); !bytes.empty(); bytes.remove_prefix(plainPrefix(bytes))) {
        const Character character = firstOf(bytes);
        if (character.code == invalid)
            return false;
        bytes.remove_prefix(character.size);
    }
    return true;
}

std::string inQuotes(std::string_view utf8)
{
    constexpr std::size_t longest = 80; // characters
    std::string result = "\"";
    std::size_t count = 0;
    while (!utf8.empty() && count++ < longest) {
        const Character character = firstOf(utf8);
        result += escaped(character.code, utf8.substr(0, character.size));
        utf8.remove_prefix(character.size);
    }
    if (!utf8.empty())
        result += "...";
    return result + "\"";
}

std::string shortened(std::string_view utf8, std::size_t longest)
{
    if (utf8.size() <= longest)
        return std::string(utf8);
    const auto continues = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; };
    std::size_t end = longest;
    while (end > 0 && continues(utf8[end]))
        --end;
    return std::string(utf8.substr(0, end)) + "...";
}

std::string repaired(std::string_view bytes)
{
    std::string result;
    result.reserve(bytes.size());
    forEachCharacter(
        bytes, [&](char32_t code, std::string_view character) { result += code == invalid ? replacement : character; });
    return result;
}

std::size_t widthOf(std::string_view utf8)
{
    std::size_t width = 0;
    forEachCharacter(utf8, [&](char32_t code, std::string_view) {
        width += code == invalid ? 1U : static_cast<unsigned>(utf8proc_charwidth(static_cast<utf8proc_int32_t>(code)));
    });
    return width;
}

} // namespace Keldict
