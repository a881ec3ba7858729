#include "database/kelsqlitevariantvector.h"

#include "database/kelsqlitedb.h"
#include "kernel/kelstring.h"
#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>

using Ombrin::CkelSqliteDB;
using Ombrin::CkelSqliteVariantVector;

namespace {

class RowAccessor : public KelTest::FolderTest
{
protected:
    RowAccessor() { EXPECT_TRUE(database.open("test.db")); }

    /// The only row that `text` returns.
    CkelSqliteVariantVector row(const std::string& text)
    {
        const auto rows = database.query(text);
        EXPECT_EQ(rows->count(), 1) << text;
        return rows->value(0);
    }

    template <typename T>
    T read(const std::string& expression)
    {
        return row("SELECT " + expression).toValue<T>(0);
    }

    /// What reading the only column of `expression` as a T writes to standard output.
    template <typename T>
    std::string printed(const std::string& expression)
    {
        const CkelSqliteVariantVector columns = row("SELECT " + expression);
        testing::internal::CaptureStdout();
        columns.toValue<T>(0);
        return testing::internal::GetCapturedStdout();
    }

    /// Holds for a column that no type can read.
    void expectNothingIn(const std::string& expression)
    {
        const CkelSqliteVariantVector columns = row("SELECT " + expression);
        EXPECT_EQ(columns.toValue<unsigned int>(0), 0U);
        EXPECT_EQ(columns.toValue<long long>(0), 0);
        EXPECT_EQ(columns.toValue<unsigned long long>(0), 0U);
        EXPECT_EQ(columns.toValue<double>(0), 0);
        EXPECT_EQ(columns.toValue<std::string>(0), "");
    }

    CkelSqliteDB database;
};

using RowAccessorDeathTest = RowAccessor;

constexpr unsigned int uintMax = UINT_MAX;

// Counting and positions

TEST_F(RowAccessor, CountsNoColumnsBeforeARowIsRead)
{
    EXPECT_EQ(CkelSqliteVariantVector().count(), 0);
}

TEST_F(RowAccessor, CountsColumnsOfEveryClass)
{
    EXPECT_EQ(row("SELECT NULL, 1, 2.5, 'a', x'00'").count(), 5);
}

TEST_F(RowAccessor, ReadsColumnsByPositionFromZero)
{
    const CkelSqliteVariantVector columns = row("SELECT 10, 'b', 30");
    EXPECT_EQ(columns.toValue<long long>(0), 10);
    EXPECT_EQ(columns.toValue<std::string>(1), "b");
    EXPECT_EQ(columns.toValue<long long>(2), 30);
}

TEST_F(RowAccessor, KeepsItsValuesWhenTheDatabaseIsClosed)
{
    const auto rows = database.query("SELECT 'first' UNION ALL SELECT 'second'");
    database.close();
    ASSERT_EQ(rows->count(), 2);
    EXPECT_EQ(rows->value(0).toValue<std::string>(0), "first");
    EXPECT_EQ(rows->value(1).toValue<std::string>(0), "second");
}

TEST_F(RowAccessor, ReadingANewRowForgetsTheBlobsOfTheLastOne)
{
    const auto rows = database.query("SELECT x'01', 1 UNION ALL SELECT 2, x'02'");
    ASSERT_EQ(rows->count(), 2);
    const CkelSqliteVariantVector second = rows->value(1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(second.toValue<long long>(0), 2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    testing::internal::CaptureStdout();
    EXPECT_EQ(second.toValue<long long>(1), 0);
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
}

TEST_F(RowAccessorDeathTest, IndexBelowZeroEndsTheProcess)
{
    const CkelSqliteVariantVector columns = row("SELECT 1, 2");
    EXPECT_DEATH(columns.toValue<long long>(-1), "kelsqlitevariantvector.*index>=0\\|\\|index<count\\(\\)");
}

TEST_F(RowAccessorDeathTest, IndexOfCountEndsTheProcess)
{
    const CkelSqliteVariantVector columns = row("SELECT 1, 2");
    EXPECT_DEATH(columns.toValue<long long>(2), "kelsqlitevariantvector.*index>=0\\|\\|index<count\\(\\)");
}

TEST_F(RowAccessorDeathTest, EveryTypeChecksTheIndex)
{
    const CkelSqliteVariantVector columns = row("SELECT 1");
    EXPECT_DEATH(columns.toValue<unsigned int>(1), "index>=0\\|\\|index<count\\(\\)");
    EXPECT_DEATH(columns.toValue<unsigned long long>(1), "index>=0\\|\\|index<count\\(\\)");
    EXPECT_DEATH(columns.toValue<double>(INT_MAX), "index>=0\\|\\|index<count\\(\\)");
    EXPECT_DEATH(columns.toValue<std::string>(INT_MIN), "index>=0\\|\\|index<count\\(\\)");
}

TEST_F(RowAccessorDeathTest, EmptyRowHasNoFirstColumn)
{
    EXPECT_DEATH(CkelSqliteVariantVector().toValue<long long>(0), "index>=0\\|\\|index<count\\(\\)");
}

TEST_F(RowAccessor, FirstAndLastIndexAreInRange)
{
    const CkelSqliteVariantVector columns = row("SELECT 1, 2, 3");
    EXPECT_EQ(columns.toValue<long long>(0), 1);
    EXPECT_EQ(columns.toValue<long long>(columns.count() - 1), 3);
}

// NULL

TEST_F(RowAccessor, NullReadsAsNothing)
{
    expectNothingIn("NULL");
}

TEST_F(RowAccessor, NullPrintsNothing)
{
    EXPECT_EQ(printed<long long>("NULL"), "");
    EXPECT_EQ(printed<std::string>("NULL"), "");
}

// Integers

TEST_F(RowAccessor, IntegerReadsAsEveryType)
{
    EXPECT_EQ(read<unsigned int>("42"), 42U);
    EXPECT_EQ(read<long long>("42"), 42);
    EXPECT_EQ(read<unsigned long long>("42"), 42U);
    EXPECT_EQ(read<double>("42"), 42.0);
    EXPECT_EQ(read<std::string>("42"), "42");
    EXPECT_EQ(printed<double>("42"), "");
}

TEST_F(RowAccessor, NegativeIntegerReadAsUnsignedIntKeepsItsLowBits)
{
    EXPECT_EQ(read<unsigned int>("-1"), uintMax);
    EXPECT_EQ(read<unsigned int>("-2147483648"), 2147483648U);
    EXPECT_EQ(read<unsigned int>("-1294967296"), 3000000000U);
    EXPECT_EQ(read<unsigned int>("-9223372036854775808"), 0U);
}

TEST_F(RowAccessor, WideIntegerReadAsUnsignedIntKeepsItsLowBits)
{
    EXPECT_EQ(read<unsigned int>("4294967295"), uintMax);
    EXPECT_EQ(read<unsigned int>("4294967296"), 0U);
    EXPECT_EQ(read<unsigned int>("4294967301"), 5U);
    EXPECT_EQ(read<unsigned int>("9223372036854775807"), uintMax);
}

TEST_F(RowAccessor, IntegerKeepsEveryBitAtTheLimits)
{
    EXPECT_EQ(read<long long>("9223372036854775807"), LLONG_MAX);
    EXPECT_EQ(read<long long>("-9223372036854775808"), LLONG_MIN);
    EXPECT_EQ(read<std::string>("9223372036854775807"), "9223372036854775807");
    EXPECT_EQ(read<std::string>("-9223372036854775808"), "-9223372036854775808");
}

TEST_F(RowAccessor, NegativeIntegerReadAsUnsigned64KeepsItsBits)
{
    EXPECT_EQ(read<unsigned long long>("-1"), ULLONG_MAX);
    EXPECT_EQ(read<unsigned long long>("-9223372036854775808"), 1ULL << 63U);
    EXPECT_EQ(read<unsigned long long>("9223372036854775807"), (1ULL << 63U) - 1);
}

TEST_F(RowAccessor, IntegerReadAsDoubleRoundsToTheNearest)
{
    EXPECT_EQ(read<double>("9007199254740992"), 9007199254740992.0);
    EXPECT_EQ(read<double>("9223372036854775807"), 9223372036854775808.0);
    EXPECT_EQ(read<double>("-9223372036854775808"), -9223372036854775808.0);
}

// Real numbers. Products of a power of two, because SQLite may round a long decimal in its last bit.

TEST_F(RowAccessor, RealReadsAsEveryType)
{
    EXPECT_EQ(read<unsigned int>("2.5"), 2U);
    EXPECT_EQ(read<long long>("2.5"), 2);
    EXPECT_EQ(read<unsigned long long>("2.5"), 2U);
    EXPECT_EQ(read<double>("2.5"), 2.5);
    EXPECT_EQ(read<std::string>("2.5"), "2.5");
    EXPECT_EQ(printed<long long>("2.5"), "");
}

TEST_F(RowAccessor, RealReadAsIntegerIsCutNotRounded)
{
    EXPECT_EQ(read<long long>("2.999999"), 2);
    EXPECT_EQ(read<long long>("-2.999999"), -2);
    EXPECT_EQ(read<long long>("0.9"), 0);
    EXPECT_EQ(read<long long>("-0.9"), 0);
    EXPECT_EQ(read<unsigned int>("4294967295.9"), uintMax);
    EXPECT_EQ(read<unsigned long long>("0.9"), 0U);
}

TEST_F(RowAccessor, RealOutOfRangeReadsAsTheNearestLimit)
{
    EXPECT_EQ(read<long long>("1e300"), LLONG_MAX);
    EXPECT_EQ(read<long long>("-1e300"), LLONG_MIN);
    EXPECT_EQ(read<long long>("4503599627370496 * 2048.0"), LLONG_MAX);
    EXPECT_EQ(read<long long>("-4503599627370496 * 2048.0"), LLONG_MIN);
    EXPECT_EQ(read<unsigned long long>("4503599627370496 * 4096.0"), ULLONG_MAX);
    EXPECT_EQ(read<unsigned long long>("1e300"), ULLONG_MAX);
    EXPECT_EQ(read<unsigned int>("4294967296.0"), uintMax);
    EXPECT_EQ(read<unsigned int>("1e300"), uintMax);
}

TEST_F(RowAccessor, RealJustInRangeKeepsItsValue)
{
    EXPECT_EQ(read<long long>("9007199254740991 * 1024.0"), 9223372036854774784LL);
    EXPECT_EQ(read<long long>("-9007199254740991 * 1024.0"), -9223372036854774784LL);
    EXPECT_EQ(read<unsigned long long>("4503599627370496 * 2048.0"), 1ULL << 63U);
    EXPECT_EQ(read<unsigned long long>("9007199254740991 * 2048.0"), 18446744073709549568ULL);
}

TEST_F(RowAccessor, NegativeRealReadAsUnsignedIsZero)
{
    EXPECT_EQ(read<unsigned int>("-0.5"), 0U);
    EXPECT_EQ(read<unsigned int>("-7.0"), 0U);
    EXPECT_EQ(read<unsigned long long>("-1e300"), 0U);
}

TEST_F(RowAccessor, InfinitiesReadAsTheLimits)
{
    EXPECT_EQ(read<double>("9e999"), std::numeric_limits<double>::infinity());
    EXPECT_EQ(read<double>("-9e999"), -std::numeric_limits<double>::infinity());
    EXPECT_EQ(read<long long>("9e999"), LLONG_MAX);
    EXPECT_EQ(read<long long>("-9e999"), LLONG_MIN);
    EXPECT_EQ(read<unsigned int>("9e999"), uintMax);
    EXPECT_EQ(read<unsigned long long>("-9e999"), 0U);
    EXPECT_EQ(read<std::string>("9e999"), "inf");
}

// Texts

TEST_F(RowAccessor, TextReadsAsText)
{
    EXPECT_EQ(read<std::string>("'Temperatur \u00b0C'"), "Temperatur \u00b0C");
    EXPECT_EQ(read<std::string>("''"), "");
}

TEST_F(RowAccessor, TextReadAsNumberIsZeroEvenWhenItReadsAsOne)
{
    EXPECT_EQ(read<unsigned int>("'12'"), 0U);
    EXPECT_EQ(read<long long>("'12'"), 0);
    EXPECT_EQ(read<unsigned long long>("'12'"), 0U);
    EXPECT_EQ(read<double>("'12.5'"), 0);
}

TEST_F(RowAccessor, TextReadAsNumberPrintsNothing)
{
    EXPECT_EQ(printed<long long>("'12'"), "");
}

TEST_F(RowAccessor, TextKeepsTheBytesBehindANul)
{
    EXPECT_EQ(read<std::string>("CAST(x'61006200' AS TEXT)"), std::string("a\0b\0", 4));
}

TEST_F(RowAccessor, TextKeepsBytesThatAreNoUtf8)
{
    EXPECT_EQ(read<std::string>("CAST(x'ff61c3fe' AS TEXT)"),
              "\xff"
              "a\xc3\xfe");
}

// Blobs

TEST_F(RowAccessor, BlobReadsAsNothing)
{
    testing::internal::CaptureStdout();
    expectNothingIn("x'3132'");
    testing::internal::GetCapturedStdout();
}

TEST_F(RowAccessor, BlobIsReportedAtEveryRead)
{
    const std::string line = "current type is 4 is not defined. \n";
    EXPECT_EQ(printed<unsigned int>("x'31'"), line);
    EXPECT_EQ(printed<long long>("x'31'"), line);
    EXPECT_EQ(printed<unsigned long long>("x'31'"), line);
    EXPECT_EQ(printed<double>("x'31'"), line);
    EXPECT_EQ(printed<std::string>("x'31'"), line);
}

TEST_F(RowAccessor, EmptyBlobIsReportedToo)
{
    EXPECT_EQ(printed<std::string>("x''"), "current type is 4 is not defined. \n");
}

TEST_F(RowAccessor, BlobThatNobodyReadsIsNotReported)
{
    testing::internal::CaptureStdout();
    const CkelSqliteVariantVector columns = row("SELECT x'31', 7");
    EXPECT_EQ(columns.toValue<long long>(1), 7);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

} // namespace
