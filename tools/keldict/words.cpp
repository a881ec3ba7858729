#include "words.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
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

bool isContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

std::size_t sizeFrom(unsigned char lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead < 0xE0)
        return 2;
    if (lead >= 0xE0 && lead < 0xF0)
        return 3;
    return lead >= 0xF0 && lead < 0xF5 ? 4 : 0;
}

bool isCode(char32_t code, std::size_t size)
{
    constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
    return code >= smallest[size] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
}

/// The first character of a text that is not empty; `invalid` of one byte where there is none.
Character firstOf(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text[0]);
    const std::size_t size = sizeFrom(lead);
    if (size == 1)
        return {lead, 1};
    if (size == 0 || text.size() < size)
        return {invalid, 1};
    char32_t code = lead & (0xFFU >> (size + 1));
    for (const char byte : text.substr(1, size - 1)) {
        if (!isContinuation(byte))
            return {invalid, 1};
        code = (code << 6U) | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    return isCode(code, size) ? Character{code, size} : Character{invalid, 1};
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

bool isBlank(char32_t code)
{
    return code <= ' ' || code == 0xA0 || (code >= 0x2000 && code <= 0x200D) || code == 0x202F || code == 0x205F ||
           code == 0x2060 || code == 0x3000 || code == 0xFEFF;
}

/// Small letters of the alphabets that machines are labelled in: Latin, Greek, Cyrillic.
char32_t lowered(char32_t code)
{
    const auto within = [code](char32_t first, char32_t last) { return code >= first && code <= last; };
    if (within('A', 'Z') || (within(0xC0, 0xDE) && code != 0xD7) || within(0x391, 0x3AB) || within(0x410, 0x42F))
        return code + 0x20;
    if (within(0x400, 0x40F))
        return code + 0x50;
    const bool capitalIsOdd = within(0x139, 0x148) || within(0x179, 0x17E);
    if (within(0x100, 0x17E) && code != 0x130 && code != 0x138 && code != 0x149 && code != 0x178)
        return code % 2 == (capitalIsOdd ? 1U : 0U) ? code + 1 : code;
    return code;
}

void appendUtf8(std::string& text, char32_t code)
{
    const auto tail = [&](unsigned shift) { text += static_cast<char>(0x80U | ((code >> shift) & 0x3FU)); };
    if (code < 0x80) {
        text += static_cast<char>(code);
    } else if (code < 0x800) {
        text += static_cast<char>(0xC0U | (code >> 6U));
        tail(0);
    } else if (code < 0x10000) {
        text += static_cast<char>(0xE0U | (code >> 12U));
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0U | (code >> 18U));
        tail(12);
        tail(6);
        tail(0);
    }
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

bool isControl(char32_t code)
{
    // Among them those that would change the direction of the text around them.
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0x200B && code <= 0x200F) ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2060 && code <= 0x2069) || code == 0xFEFF;
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

std::size_t widthOf(char32_t code)
{
    const auto within = [code](char32_t first, char32_t last) { return code >= first && code <= last; };
    if (within(0x300, 0x36F) || within(0x200B, 0x200F) || within(0xFE00, 0xFE0F))
        return 0;
    const bool wide = within(0x1100, 0x115F) || within(0x2E80, 0xA4CF) || within(0xAC00, 0xD7A3) ||
                      within(0xF900, 0xFAFF) || within(0xFE30, 0xFE6F) || within(0xFF00, 0xFF60) ||
                      within(0xFFE0, 0xFFE6) || within(0x1F300, 0x1FAFF) || within(0x20000, 0x3FFFD);
    return wide ? 2 : 1;
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
    std::string result;
    result.reserve(utf8.size());
    while (!utf8.empty() && static_cast<unsigned char>(utf8[0]) < 0x80) { // most names are nothing else
        if (utf8[0] > ' ')
            result += utf8[0] >= 'A' && utf8[0] <= 'Z' ? static_cast<char>(utf8[0] + 0x20) : utf8[0];
        utf8.remove_prefix(1);
    }
    forEachCharacter(utf8, [&](char32_t code, std::string_view bytes) {
        if (code == invalid)
            result += bytes;
        else if (!isBlank(code))
            appendUtf8(result, lowered(code));
    });
    return result;
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
    forEachCharacter(utf8, [&](char32_t code, std::string_view) { width += widthOf(code); });
    return width;
}

} // namespace Keldict
