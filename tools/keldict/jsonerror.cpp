#include "jsonerror.h"

#include "words.h"

#include <array>
#include <cctype>
#include <optional>
#include <utility>

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
    case rapidjson::kParseErrorStringEscapeInvalid:
        return "an unknown escape, or a control character, in a text";
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

std::string meantAt(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset)
{
    if (offset >= text.size())
        return "the text ends too early: was the file cut off?";
    if (code == rapidjson::kParseErrorObjectMissCommaOrCurlyBracket ||
        code == rapidjson::kParseErrorArrayMissCommaOrSquareBracket) {
        if (isBehindZero(text, offset))
            return "numbers are decimal and have no leading zeros";
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

} // namespace

JsonError explain(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset)
{
    offset = std::min(offset, text.size());
    if (code == rapidjson::kParseErrorValueInvalid)
        offset = beginOfWord(text, offset);
    return {offset, whatOf(code), meantAt(text, code, offset)};
}

} // namespace Keldict
