#include "kernel/kelstring.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using Ombrin::CkelByteArray;
using Ombrin::CkelString;

namespace {

/// All 256 bytes, so neither valid UTF-8 nor free of NUL.
std::string everyByte()
{
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    return bytes;
}

} // namespace

TEST(ByteArray, IsEmptyByDefault)
{
    const CkelByteArray bytes;
    EXPECT_TRUE(bytes.isEmpty());
    EXPECT_EQ(bytes.size(), 0U);
    EXPECT_STREQ(bytes.data(), "");
}

TEST(ByteArray, KeepsEveryByte)
{
    const std::string all = everyByte();
    const CkelByteArray fromText(all);
    const CkelByteArray fromData(all.data(), all.size());
    for (const CkelByteArray& bytes : {fromText, fromData}) {
        EXPECT_FALSE(bytes.isEmpty());
        EXPECT_EQ(bytes.size(), 256U);
        EXPECT_EQ(bytes.toStdString(), all);
        EXPECT_EQ(std::memcmp(bytes.data(), all.data(), all.size()), 0);
    }
}

TEST(ByteArray, TakesNoMoreThanTheGivenSize)
{
    const CkelByteArray bytes("abcdef", 3);
    EXPECT_EQ(bytes.toStdString(), "abc");
    EXPECT_EQ(CkelByteArray("abc", 0).size(), 0U);
    EXPECT_TRUE(CkelByteArray(nullptr, 0).isEmpty());
}

TEST(ByteArray, DataIsFollowedByANulThatDoesNotCount)
{
    const CkelByteArray bytes("abcdef", 3);
    EXPECT_EQ(bytes.data()[3], '\0');
    const std::string large(100000, 'x');
    EXPECT_EQ(CkelByteArray(large).data()[large.size()], '\0');
}

TEST(ByteArray, DataMayBeChangedInPlace)
{
    CkelByteArray bytes("abc", 3);
    const CkelByteArray copy(bytes);
    bytes.data()[1] = 'X';
    EXPECT_EQ(bytes.toStdString(), "aXc");
    EXPECT_EQ(copy.toStdString(), "abc");
}

TEST(ByteArray, TextDoesNotTurnIntoBytesUnasked)
{
    EXPECT_FALSE((std::is_convertible_v<std::string, CkelByteArray>));
}

TEST(String, IsEmptyByDefault)
{
    const CkelString text;
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(text.size(), 0U);
    EXPECT_EQ(text.toStdString(), "");
}

TEST(String, NullPointerIsAnEmptyText)
{
    EXPECT_TRUE(CkelString(static_cast<const char*>(nullptr)).isEmpty());
    EXPECT_TRUE(CkelString::fromAscii(nullptr).isEmpty());
    EXPECT_TRUE(CkelString::fromUtf8(nullptr).isEmpty());
    EXPECT_TRUE(CkelString::fromAscii(nullptr, 5).isEmpty());
    EXPECT_TRUE(CkelString::fromUtf8(nullptr, 0).isEmpty());
}

TEST(String, BytesAreTakenAsTheyCome)
{
    const std::string all = everyByte();
    EXPECT_EQ(CkelString(all).toStdString(), all);
    EXPECT_EQ(CkelString::fromUtf8(all.data(), 256).toStdString(), all);
    EXPECT_EQ(CkelString::fromAscii(all.data(), 256).toStdString(), all);
    EXPECT_EQ(CkelString(all).toAscii().toStdString(), all);
}

TEST(String, SizeIsInBytes)
{
    EXPECT_EQ(CkelString("\xC3\xA9t\xC3\xA9").size(), 5U);
    EXPECT_EQ(CkelString(std::string("a\0b", 3)).size(), 3U);
    EXPECT_FALSE(CkelString(std::string("\0", 1)).isEmpty());
}

TEST(String, FromTextTakesTheGivenLength)
{
    for (const auto from : {&CkelString::fromAscii, &CkelString::fromUtf8}) {
        EXPECT_EQ(from("abcdef", 3).toStdString(), "abc");
        EXPECT_EQ(from("abcdef", 6).toStdString(), "abcdef");
        EXPECT_EQ(from("abcdef", 0).toStdString(), "");
        EXPECT_EQ(from("abc\0def", 7).toStdString(), std::string("abc\0def", 7));
    }
}

TEST(String, FromTextWithNegativeLengthEndsAtTheNul)
{
    for (const auto from : {&CkelString::fromAscii, &CkelString::fromUtf8}) {
        EXPECT_EQ(from("abc\0def", -1).toStdString(), "abc");
        EXPECT_EQ(from("abc\0def", INT_MIN).toStdString(), "abc");
        EXPECT_EQ(from("", -1).toStdString(), "");
    }
    EXPECT_EQ(CkelString::fromAscii("abc").toStdString(), "abc");
    EXPECT_EQ(CkelString::fromUtf8("\xC3\xA9").toStdString(), "\xC3\xA9");
}

TEST(String, NumbersAreDecimalByDefault)
{
    EXPECT_EQ(CkelString::number(0).toStdString(), "0");
    EXPECT_EQ(CkelString::number(-1).toStdString(), "-1");
    EXPECT_EQ(CkelString::number(INT_MAX).toStdString(), "2147483647");
    EXPECT_EQ(CkelString::number(INT_MIN).toStdString(), "-2147483648");
    EXPECT_EQ(CkelString::number(UINT_MAX).toStdString(), "4294967295");
    EXPECT_EQ(CkelString::number(LONG_MIN).toStdString(), std::to_string(LONG_MIN));
    EXPECT_EQ(CkelString::number(LONG_MAX).toStdString(), std::to_string(LONG_MAX));
    EXPECT_EQ(CkelString::number(ULONG_MAX).toStdString(), std::to_string(ULONG_MAX));
    EXPECT_EQ(CkelString::number(LLONG_MIN).toStdString(), "-9223372036854775808");
    EXPECT_EQ(CkelString::number(LLONG_MAX).toStdString(), "9223372036854775807");
    EXPECT_EQ(CkelString::number(ULLONG_MAX).toStdString(), "18446744073709551615");
}

TEST(String, NumbersAreWrittenInTheGivenBase)
{
    EXPECT_EQ(CkelString::number(255, 16).toStdString(), "ff");
    EXPECT_EQ(CkelString::number(-255, 16).toStdString(), "-ff");
    EXPECT_EQ(CkelString::number(8U, 8).toStdString(), "10");
    EXPECT_EQ(CkelString::number(35L, 36).toStdString(), "z");
    EXPECT_EQ(CkelString::number(36UL, 36).toStdString(), "10");
    EXPECT_EQ(CkelString::number(5LL, 2).toStdString(), "101");
    EXPECT_EQ(CkelString::number(10, 11).toStdString(), "a");
    EXPECT_EQ(CkelString::number(ULLONG_MAX, 16).toStdString(), "ffffffffffffffff");
}

TEST(String, LongestNumbersAreWrittenInFull)
{
    EXPECT_EQ(CkelString::number(LLONG_MIN, 2).toStdString(), "-1" + std::string(63, '0'));
    EXPECT_EQ(CkelString::number(ULLONG_MAX, 2).toStdString(), std::string(64, '1'));
}

TEST(String, EveryBaseReadsBack)
{
    for (int base = 2; base <= 36; ++base) {
        for (const long long number : {0LL, 1LL, -1LL, 123456789LL, LLONG_MAX, LLONG_MIN}) {
            const std::string text = CkelString::number(number, base).toStdString();
            EXPECT_EQ(std::strtoll(text.c_str(), nullptr, base), number) << text << " in base " << base;
        }
    }
}

TEST(String, UnknownBaseCountsAsTen)
{
    for (const int base : {INT_MIN, -10, -1, 0, 1, 37, INT_MAX}) {
        EXPECT_EQ(CkelString::number(-255, base).toStdString(), "-255") << base;
        EXPECT_EQ(CkelString::number(255U, base).toStdString(), "255") << base;
        EXPECT_EQ(CkelString::number(255LL, base).toStdString(), "255") << base;
        EXPECT_EQ(CkelString::number(255ULL, base).toStdString(), "255") << base;
        EXPECT_EQ(CkelString::number(255L, base).toStdString(), "255") << base;
        EXPECT_EQ(CkelString::number(255UL, base).toStdString(), "255") << base;
    }
}

TEST(String, DoublesAreWrittenAsShortAsTheyReadBack)
{
    const std::vector<std::pair<double, std::string>> rows = {
        {0.0, "0"},
        {-0.0, "-0"},
        {0.1, "0.1"},
        {-35.5, "-35.5"},
        {1.0 / 3, "0.3333333333333333"},
        {1e300, "1e+300"},
        {DBL_MAX, "1.7976931348623157e+308"},
        {-DBL_MIN, "-2.2250738585072014e-308"},
        {-std::numeric_limits<double>::denorm_min(), "-5e-324"},
        {9007199254740993.0, "9007199254740992"},
    };
    for (const auto& [number, text] : rows) {
        EXPECT_EQ(CkelString::number(number).toStdString(), text);
        EXPECT_EQ(std::strtod(text.c_str(), nullptr), number);
    }
    EXPECT_EQ(CkelString::number(1.5F).toStdString(), "1.5");
}

TEST(String, DoublesThatAreNoNumbersHaveAName)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(CkelString::number(nan).toStdString(), "nan");
    EXPECT_EQ(CkelString::number(std::copysign(nan, -1.0)).toStdString(), "nan");
    EXPECT_EQ(CkelString::number(infinity).toStdString(), "inf");
    EXPECT_EQ(CkelString::number(-infinity).toStdString(), "-inf");
}

TEST(String, AppendAddsAtTheEndAndGivesTheTextItself)
{
    CkelString text("a");
    EXPECT_EQ(&text.append("b"), &text);
    text.append("").append(std::string("c\0", 2)).append(CkelString("d"));
    EXPECT_EQ(text.toStdString(), std::string("abc\0d", 5));
}

TEST(String, MayBeAppendedToItself)
{
    CkelString text(std::string(100, 'x'));
    text.append(text);
    EXPECT_EQ(text.toStdString(), std::string(200, 'x'));
}

TEST(String, EndsWithComparesTheEnd)
{
    const CkelString text("settings.json");
    EXPECT_TRUE(text.endsWith(".json"));
    EXPECT_TRUE(text.endsWith("settings.json"));
    EXPECT_TRUE(text.endsWith(text));
    EXPECT_FALSE(text.endsWith(".db"));
    EXPECT_FALSE(text.endsWith("settings"));
    EXPECT_FALSE(text.endsWith("/settings.json"));
    EXPECT_FALSE(CkelString().endsWith("n"));
}

TEST(String, EveryTextEndsWithNothing)
{
    EXPECT_TRUE(CkelString("a").endsWith(""));
    EXPECT_TRUE(CkelString().endsWith(""));
    EXPECT_TRUE(CkelString().endsWith("", CkelString::CaseInsensitive));
}

TEST(String, EndsWithTellsCaseUnlessAskedNotTo)
{
    const CkelString text("settings.Json");
    EXPECT_FALSE(text.endsWith(".JSON"));
    EXPECT_FALSE(text.endsWith(".JSON", CkelString::CaseSensitive));
    EXPECT_TRUE(text.endsWith(".Json", CkelString::CaseSensitive));
    EXPECT_TRUE(text.endsWith(".JSON", CkelString::CaseInsensitive));
    EXPECT_TRUE(text.endsWith("SETTINGS.json", CkelString::CaseInsensitive));
    EXPECT_FALSE(text.endsWith(".db", CkelString::CaseInsensitive));
    EXPECT_FALSE(text.endsWith("xsettings.json", CkelString::CaseInsensitive));
}

TEST(String, OnlyTheLettersOfAsciiHaveCase)
{
    EXPECT_TRUE(
        CkelString("abcdefghijklmnopqrstuvwxyz").endsWith("ABCDEFGHIJKLMNOPQRSTUVWXYZ", CkelString::CaseInsensitive));
    // neighbours of the letters in the table, which differ by the same bit
    EXPECT_FALSE(CkelString("@").endsWith("`", CkelString::CaseInsensitive));
    EXPECT_FALSE(CkelString("[").endsWith("{", CkelString::CaseInsensitive));
    // the small and the capital letter e with acute accent
    EXPECT_FALSE(CkelString("\xC3\xA9").endsWith("\xC3\x89", CkelString::CaseInsensitive));
    EXPECT_TRUE(CkelString("X\xC3\xA9").endsWith("x\xC3\xA9", CkelString::CaseInsensitive));
}

TEST(String, CaseCodesAreFixed)
{
    EXPECT_EQ(CkelString::CaseInsensitive, 0);
    EXPECT_EQ(CkelString::CaseSensitive, 1);
}

TEST(String, EqualityIsByteByByte)
{
    EXPECT_TRUE(CkelString("a") == CkelString("a"));
    EXPECT_FALSE(CkelString("a") != CkelString("a"));
    EXPECT_TRUE(CkelString("a") != CkelString("A"));
    EXPECT_TRUE(CkelString("a") == "a");
    EXPECT_TRUE("a" == CkelString("a"));
    EXPECT_TRUE(CkelString() == CkelString(""));
    EXPECT_TRUE(CkelString(std::string("a\0b", 3)) != CkelString(std::string("a\0c", 3)));
    EXPECT_TRUE(CkelString(std::string("a\0", 2)) != CkelString("a"));
}

TEST(String, CopiesAreIndependent)
{
    CkelString text("a");
    const CkelString copy(text);
    text.append("b");
    EXPECT_EQ(copy.toStdString(), "a");
}
