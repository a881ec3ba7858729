#include "jsonerror.h"

#include "jsoncursor.h"
#include "words.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <vector>

namespace Keldict {

namespace {

bool isWordPart(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == '+' || c == '.';
}

/// The parser stops within a word; people look for its beginning.
std::size_t beginOfWord(std::string_view text, std::size_t offset)
{
    while (offset > 0 && isWordPart(text[offset - 1]))
        --offset;
    return offset;
}

std::string_view wordAt(std::string_view text, std::size_t offset)
{
    std::size_t end = offset;
    while (end < text.size() && isWordPart(text[end]))
        ++end;
    return text.substr(offset, end - offset);
}

char lastBefore(std::string_view text, std::size_t offset)
{
    const std::size_t last = text.substr(0, offset).find_last_not_of(" \t\r\n");
    return last == std::string_view::npos ? '\0' : text[last];
}

/// What a text has opened in front of an offset up to which it is well-formed.
struct Opened
{
    std::vector<std::size_t> brackets; ///< that are not closed
    std::size_t text = 0;              ///< the last text
    std::size_t textEnd = 0;           ///< behind its closing quote
};

Opened openedBefore(std::string_view text, std::size_t offset)
{
    Opened opened;
    std::size_t at = 0;
    while ((at = text.find_first_of("\"{}[]", at)) < offset) {
        const char c = text[at];
        if (c == '"') {
            JsonCursor cursor(text, at);
            cursor.skipValue();
            opened.text = at;
            opened.textEnd = at = cursor.offset();
            continue;
        }
        if (c == '{' || c == '[')
            opened.brackets.push_back(at);
        else if (!opened.brackets.empty())
            opened.brackets.pop_back();
        ++at;
    }
    return opened;
}

bool isLineBreak(char c)
{
    return c == '\n' || c == '\r';
}

bool isNoEnd(rapidjson::ParseErrorCode code)
{
    return code == rapidjson::kParseErrorObjectMissCommaOrCurlyBracket ||
           code == rapidjson::kParseErrorArrayMissCommaOrSquareBracket;
}

/// Whether a closing quote is missing, so that the next text's opening quote has closed it.
bool isShiftedQuote(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset)
{
    return offset > 0 && offset < text.size() && text[offset - 1] == '"' && isWordPart(text[offset]) &&
           (isNoEnd(code) || code == rapidjson::kParseErrorObjectMissColon);
}

/// Whether another bracket stands where the innermost one has to be closed first.
bool isWrongBracket(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset)
{
    if (!isNoEnd(code) || offset >= text.size())
        return false;
    const bool isItemInItem = code == rapidjson::kParseErrorObjectMissCommaOrCurlyBracket && text[offset] == '{';
    return isItemInItem || text[offset] == '}' || text[offset] == ']';
}

std::optional<std::size_t> openedAt(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset)
{
    const bool breaksLine = code == rapidjson::kParseErrorStringEscapeInvalid && isLineBreak(text[offset]);
    if (breaksLine || code == rapidjson::kParseErrorStringMissQuotationMark || isShiftedQuote(text, code, offset))
        return openedBefore(text, offset).text;
    if (offset < text.size() && !isWrongBracket(text, code, offset))
        return std::nullopt;
    const auto brackets = openedBefore(text, offset).brackets;
    return brackets.empty() ? std::nullopt : std::optional(brackets.back());
}

/// A character that texts do not have, or a backslash in front of a character that is no escape.
std::string invalidInText(std::string_view text, std::size_t offset)
{
    const auto c = static_cast<unsigned char>(text[offset]);
    if (isLineBreak(text[offset]))
        return "a line break in a text";
    if (c == '\t')
        return "a tab in a text";
    if (c != '\\') {
        std::array<char, 8> code{};
        static_cast<void>(std::snprintf(code.data(), code.size(), "U+%04X", static_cast<unsigned>(c)));
        return std::string("the control character ") + code.data() + " in a text";
    }
    const char escaped = offset + 1 < text.size() ? text[offset + 1] : '\0';
    const bool isShown = escaped > ' ' && escaped < 0x7F;
    return isShown ? std::string("an unknown escape \\") + escaped + " in a text" : "an unknown escape in a text";
}

std::string meantInText(char c)
{
    if (isLineBreak(c))
        return R"(a closing quote in front of it, or \n for a line break)";
    if (c == '\t')
        return R"(\t for a tab)";
    return c == '\\' ? R"(\\ for a backslash)" : "take it out";
}

std::string whatOf(rapidjson::ParseErrorCode code)
{
    switch (code) {
    case rapidjson::kParseErrorDocumentRootNotSingular:
        return "text behind the end of the outermost value";
    case rapidjson::kParseErrorObjectMissName:
        return "a key in double quotes is missing here";
    case rapidjson::kParseErrorObjectMissColon:
        return "a colon is missing here";
    case rapidjson::kParseErrorObjectMissCommaOrCurlyBracket:
        return "a comma or \"}\" is missing here";
    case rapidjson::kParseErrorArrayMissCommaOrSquareBracket:
        return "a comma or \"]\" is missing here";
    case rapidjson::kParseErrorStringUnicodeEscapeInvalidHex:
    case rapidjson::kParseErrorStringUnicodeSurrogateInvalid:
        return R"(an escape "\u" of no character)";
    case rapidjson::kParseErrorStringMissQuotationMark:
        return "a text without its closing quote";
    case rapidjson::kParseErrorNumberTooBig:
        return "a number beyond what 64 bits of floating point hold";
    case rapidjson::kParseErrorNumberMissFraction:
        return "a number without digits behind its point";
    case rapidjson::kParseErrorNumberMissExponent:
        return "a number without digits in its exponent";
    default:
        return "no JSON value";
    }
}

/// What people write where JSON wants a value.
std::string meantByWord(std::string_view word)
{
    const std::string plain = folded(word);
    if (plain == "nan" || plain == "inf" || plain == "infinity" || plain == "-inf" || plain == "-infinity")
        return "JSON has no NaN and no infinity; give a number";
    for (const std::string_view literal : {"true", "false", "null"}) {
        if (plain == literal)
            return "did you mean " + std::string(literal) + ", in small letters?";
    }
    if (plain == "none" || plain == "nil" || plain == "undefined")
        return "did you mean null?";
    if (!word.empty() && word[0] == '+')
        return "numbers have no plus sign";
    if (!word.empty() && word[0] == '.')
        return "numbers begin with a digit: 0" + std::string(word.substr(0, 20));
    return word.empty() ? std::string() : "a text stands in double quotes";
}

std::string meantByCharacter(std::string_view text, std::size_t offset)
{
    const char c = text[offset];
    const char before = lastBefore(text, offset);
    if (c == '/' || c == '#')
        return "JSON has no comments; take it out";
    if ((c == '}' || c == ']') && before == ',')
        return "take out the comma in front";
    if (c == '\'')
        return "use double quotes";
    if (c == ',' && before == ',')
        return "take out one of the commas";
    if (c == ';')
        return "did you mean a comma?";
    if (c == '=')
        return "did you mean a colon?";
    if (static_cast<unsigned char>(c) >= 0x80)
        return "look for quotes that a word processor has changed";
    return {};
}

/// A number like 007 or 0x1F ends, for the parser, behind its first digit.
bool isBehindZero(std::string_view text, std::size_t offset)
{
    const std::size_t begin = beginOfWord(text, offset);
    const std::string_view word = wordAt(text, begin);
    return begin < offset && word.size() > 1 && word[word[0] == '-' ? 1 : 0] == '0';
}

std::string meantByBracket(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset)
{
    const auto brackets = openedBefore(text, offset).brackets;
    const char opening = text[offset] == ']' ? '[' : '{';
    const auto opens = [text, opening](std::size_t at) { return text[at] == opening; };
    if (std::none_of(brackets.begin(), brackets.end(), opens))
        return "no bracket is open that this one closes";
    return code == rapidjson::kParseErrorArrayMissCommaOrSquareBracket ? "close the array first, with \"]\""
                                                                       : "close the object first, with \"}\"";
}

std::string meantAt(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset)
{
    if (offset >= text.size())
        return "the text ends too early: was the file cut off?";
    if (code == rapidjson::kParseErrorStringEscapeInvalid)
        return meantInText(text[offset]);
    if (isShiftedQuote(text, code, offset))
        return "close the text in front of this with a quote";
    if (isNoEnd(code)) {
        if (isBehindZero(text, offset))
            return "numbers are decimal and have no leading zeros";
        if (isWrongBracket(text, code, offset))
            return meantByBracket(text, code, offset);
        if (text[offset] == '"' || text[offset] == '{')
            return "put a comma in front of this";
    }
    if (std::string meant = meantByCharacter(text, offset); !meant.empty())
        return meant;
    if (code == rapidjson::kParseErrorValueInvalid)
        return meantByWord(wordAt(text, offset));
    if (code == rapidjson::kParseErrorObjectMissName && isWordPart(text[offset]))
        return "keys stand in double quotes";
    return {};
}

bool isNumber(const std::string& text)
{
    rapidjson::Document document;
    return !document.Parse(text.c_str()).HasParseError() && document.IsNumber();
}

/// A number with a comma in it, such as 1,5. The parser takes the comma for the end of the member.
std::optional<JsonError> decimalComma(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset)
{
    constexpr std::size_t longest = 40;
    const auto isDigit = [text](std::size_t at) { return at < text.size() && text[at] >= '0' && text[at] <= '9'; };
    if (code != rapidjson::kParseErrorObjectMissName || offset < 2 || !isDigit(offset) || text[offset - 1] != ',' ||
        !isDigit(offset - 2))
        return std::nullopt;
    const std::size_t begin = beginOfWord(text, offset - 1);
    const std::string_view fraction = wordAt(text, offset);
    const std::string number = std::string(wordAt(text, begin)) + "." + std::string(fraction);
    const std::size_t end = offset + fraction.size();
    const bool goesOn = end < text.size() && text[end] == ',' && isDigit(end + 1);
    return JsonError{begin, "a comma in a number",
                     number.size() <= longest && !goesOn && isNumber(number)
                         ? "did you mean " + number + ", with a point?"
                         : "numbers have a point, and nothing between thousands",
                     std::nullopt};
}

} // namespace

JsonError explain(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset)
{
    offset = std::min(offset, text.size());
    if (auto error = decimalComma(text, code, offset))
        return *error;
    if (code == rapidjson::kParseErrorValueInvalid)
        offset = beginOfWord(text, offset);
    const bool isInText = code == rapidjson::kParseErrorStringEscapeInvalid;
    return {offset, isInText ? invalidInText(text, offset) : whatOf(code), meantAt(text, code, offset),
            openedAt(text, code, offset)};
}

} // namespace Keldict
