#include "kernel/kelvariant.h"

#include "kernel/kelstring.h"
#include "tests/support/testfolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using Ombrin::CkelString;
using Ombrin::CkelVariant;

namespace {

// What the calling thread asked of the heap, so that other threads of the program do not disturb the count.

unsigned long& allocations()
{
    thread_local unsigned long count = 0;
    return count;
}

unsigned long& releases()
{
    thread_local unsigned long count = 0;
    return count;
}

void* countedAllocation(std::size_t size) noexcept
{
    ++allocations();
    return std::malloc(size == 0 ? 1 : size);
}

void* countedAllocationOrThrow(std::size_t size)
{
    if (void* const memory = countedAllocation(size))
        return memory;
    throw std::bad_alloc();
}

void countedRelease(void* memory) noexcept
{
    if (memory)
        ++releases();
    std::free(memory);
}

} // namespace

// All forms without an alignment: an address sanitizer has forms of its own, which must not meet these halfway.

void* operator new(std::size_t size)
{
    return countedAllocationOrThrow(size);
}

void* operator new[](std::size_t size)
{
    return countedAllocationOrThrow(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return countedAllocation(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return countedAllocation(size);
}

void operator delete(void* memory) noexcept
{
    countedRelease(memory);
}

void operator delete[](void* memory) noexcept
{
    countedRelease(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    countedRelease(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept
{
    countedRelease(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept
{
    countedRelease(memory);
}

void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept
{
    countedRelease(memory);
}

namespace {

constexpr double twoTo53 = 9007199254740992.0;
constexpr double twoTo63 = 9223372036854775808.0;
constexpr double twoTo64 = 18446744073709551616.0;
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr bool fails = false; // what `ok` becomes

constexpr unsigned long long firstSeed = 20240607;

/// Too long for a std::string to keep inside itself.
const char* const longText = "a text that is too long for the small buffer of a string";

std::uint64_t bitsOf(double value)
{
    std::uint64_t bits = 0;
    static_assert(sizeof bits == sizeof value);
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

/// Tells -0.0 from 0.0, and takes every NaN as the same.
bool same(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || bitsOf(a) == bitsOf(b);
}

template <typename T>
bool same(T a, T b)
{
    return a == b;
}

std::string describe(const CkelVariant& value)
{
    return "type " + std::to_string(value.type()) + " \"" + value.toStdString() + '"';
}

/// One variant of each type, in the order of the type codes.
std::vector<CkelVariant> oneOfEachType()
{
    return {CkelVariant(), true, -7, 7U, -7LL, 7ULL, 7.5, longText};
}

void expectSameContent(const CkelVariant& actual, const CkelVariant& expected)
{
    SCOPED_TRACE(describe(expected));
    EXPECT_EQ(actual.type(), expected.type());
    EXPECT_TRUE(actual.cmp(expected));
    EXPECT_EQ(actual.toStdString(), expected.toStdString());
}

// --- tables of conversions ---

template <typename T>
struct Outcome
{
    Outcome(T expected, bool expectedOk = true) : value(expected), ok(expectedOk) {}

    T value;
    bool ok;
};

struct Conversions
{
    CkelVariant from;
    Outcome<bool> toBool;
    Outcome<int> toInt;
    Outcome<unsigned int> toUInt;
    Outcome<long long> toLongLong;
    Outcome<unsigned long long> toULongLong;
    Outcome<double> toDouble;
    std::string text;
};

template <typename T>
void expectOutcome(const char* name, T (CkelVariant::*convert)(bool*) const, const CkelVariant& from,
                   const Outcome<T>& expected)
{
    SCOPED_TRACE(name);
    bool ok = !expected.ok;
    const T value = (from.*convert)(&ok);
    EXPECT_TRUE(same(value, expected.value)) << value << " instead of " << expected.value;
    EXPECT_EQ(ok, expected.ok);
    EXPECT_TRUE(same((from.*convert)(nullptr), expected.value));
}

void expectText(const CkelVariant& from, const std::string& expected, bool expectedOk)
{
    bool ok = !expectedOk;
    EXPECT_EQ(from.toStdString(&ok), expected);
    EXPECT_EQ(ok, expectedOk);
    ok = !expectedOk;
    EXPECT_EQ(from.toString(&ok).toStdString(), expected);
    EXPECT_EQ(ok, expectedOk);
    EXPECT_EQ(from.toStdString(), expected);
    EXPECT_EQ(from.toString().toStdString(), expected);
}

void expectNumbers(const Conversions& row)
{
    expectOutcome("to bool", &CkelVariant::toBool, row.from, row.toBool);
    expectOutcome("to int", &CkelVariant::toInt, row.from, row.toInt);
    expectOutcome("to unsigned int", &CkelVariant::toUInt, row.from, row.toUInt);
    expectOutcome("to long long", &CkelVariant::toLongLong, row.from, row.toLongLong);
    expectOutcome("to unsigned long long", &CkelVariant::toULongLong, row.from, row.toULongLong);
    expectOutcome("to double", &CkelVariant::toDouble, row.from, row.toDouble);

    SCOPED_TRACE("without ok");
    EXPECT_TRUE(same(row.from.toBool(), row.toBool.value));
    EXPECT_TRUE(same(row.from.toInt(), row.toInt.value));
    EXPECT_TRUE(same(row.from.toUInt(), row.toUInt.value));
    EXPECT_TRUE(same(row.from.toLongLong(), row.toLongLong.value));
    EXPECT_TRUE(same(row.from.toULongLong(), row.toULongLong.value));
    EXPECT_TRUE(same(row.from.toDouble(), row.toDouble.value));
}

void expectConversions(const std::vector<Conversions>& rows)
{
    for (const Conversions& row : rows) {
        SCOPED_TRACE("from " + describe(row.from));
        expectNumbers(row);
        expectText(row.from, row.text, true);
    }
}

/// A text that reads as a number, or almost.
Conversions text(const std::string& from, Outcome<bool> toBool, Outcome<int> toInt, Outcome<unsigned int> toUInt,
                 Outcome<long long> toLongLong, Outcome<unsigned long long> toULongLong, Outcome<double> toDouble)
{
    return {from, toBool, toInt, toUInt, toLongLong, toULongLong, toDouble, from};
}

/// A text that reads as no number of any type.
Conversions noNumber(const std::string& from)
{
    return text(from, {false, fails}, {0, fails}, {0, fails}, {0, fails}, {0, fails}, {0, fails});
}

/// A text that reads as 12 in every type.
Conversions twelve(const std::string& from)
{
    return text(from, true, 12, 12, 12, 12, 12);
}

std::vector<std::string> textsThatAreNoNumber()
{
    std::vector<std::string> texts = {"", " ", "\t\n\v\f\r ", "+ 5", "- 5", "5 5", "1 000", "true true"};
    // a digit after a no-break space, a full-width digit, an Arabic digit, a digit after a typographic minus
    texts.insert(texts.end(), {"\xC2\xA0\x35", "\xEF\xBC\x95", "\xD9\xA5", "\xE2\x88\x92\x35"});
    std::istringstream words(
        "+ - . +. -. e e5 .e5 +-5 -+5 ++5 --5 5x x5 5e 5e+ 5e- 5e5.5 1.2.3 1,5 1'000 1_000 "
        "0x10 0X1F 0x #10 0x1p3 5f 5u 5L 1d5 infin infx inff nanx nan(1) nan() -nan(x) "
        "True TRUE FALSE yes on t true1 truex tru +true");
    texts.insert(texts.end(), std::istream_iterator<std::string>(words), {});
    return texts;
}

/// Fails where the text is taken as a C string.
std::vector<std::string> textsWithNulInside()
{
    return {std::string("5\0", 2),   std::string("5\0x", 3),   std::string("\0", 1),     std::string("\0\x35", 2),
            std::string("1.5\0", 4), std::string("true\0", 5), std::string("1e400\0", 6)};
}

} // namespace

// --- making one ---

TEST(Variant, HoldsNothingByDefault)
{
    const CkelVariant value;
    EXPECT_EQ(value.type(), CkelVariant::Invalid);
    EXPECT_TRUE(value.isNull());
}

TEST(Variant, OnlyAnInvalidOneIsNull)
{
    const auto values = oneOfEachType();
    for (std::size_t i = 1; i < values.size(); ++i)
        EXPECT_FALSE(values[i].isNull()) << describe(values[i]);
    EXPECT_FALSE(CkelVariant("").isNull());
    EXPECT_FALSE(CkelVariant(notANumber).isNull());
    EXPECT_FALSE(CkelVariant(0).isNull());
}

TEST(Variant, TypeCodesAreFixed)
{
    EXPECT_EQ(CkelVariant::Invalid, 0);
    EXPECT_EQ(CkelVariant::Bool, 1);
    EXPECT_EQ(CkelVariant::Int, 2);
    EXPECT_EQ(CkelVariant::UInt, 3);
    EXPECT_EQ(CkelVariant::LongLong, 4);
    EXPECT_EQ(CkelVariant::ULongLong, 5);
    EXPECT_EQ(CkelVariant::Double, 6);
    EXPECT_EQ(CkelVariant::Char, 7);
    EXPECT_EQ(CkelVariant::String, 8);
    EXPECT_EQ(CkelVariant::List, 9);
    EXPECT_EQ(CkelVariant::Map, 10);
    EXPECT_EQ(CkelVariant::ByteArray, 11);
}

TEST(Variant, TakesSixteenBytes)
{
    EXPECT_EQ(sizeof(CkelVariant), 16U);
}

TEST(Variant, EachScalarGivesItsType)
{
    EXPECT_EQ(CkelVariant(true).type(), CkelVariant::Bool);
    EXPECT_EQ(CkelVariant(0).type(), CkelVariant::Int);
    EXPECT_EQ(CkelVariant(0U).type(), CkelVariant::UInt);
    EXPECT_EQ(CkelVariant(0LL).type(), CkelVariant::LongLong);
    EXPECT_EQ(CkelVariant(0ULL).type(), CkelVariant::ULongLong);
    EXPECT_EQ(CkelVariant(0.0).type(), CkelVariant::Double);
}

TEST(Variant, SmallerScalarsGiveTheTypeTheyPromoteTo)
{
    EXPECT_EQ(CkelVariant(static_cast<short>(-3)).type(), CkelVariant::Int);
    EXPECT_EQ(CkelVariant(static_cast<unsigned short>(3)).type(), CkelVariant::Int);
    EXPECT_EQ(CkelVariant(static_cast<std::int8_t>(-3)).toInt(), -3);
    EXPECT_EQ(CkelVariant(static_cast<std::uint8_t>(255)).toInt(), 255);
    EXPECT_EQ(CkelVariant('A').type(), CkelVariant::Int);
    EXPECT_EQ(CkelVariant(1.5F).type(), CkelVariant::Double);
    EXPECT_EQ(CkelVariant(1.5F).toDouble(), 1.5);
}

TEST(Variant, LongGivesTheTypeOfItsWidth)
{
    const bool isWide = sizeof(long) == sizeof(long long);
    EXPECT_EQ(CkelVariant(0L).type(), isWide ? CkelVariant::LongLong : CkelVariant::Int);
    EXPECT_EQ(CkelVariant(0UL).type(), isWide ? CkelVariant::ULongLong : CkelVariant::UInt);
    EXPECT_EQ(CkelVariant(LONG_MIN).toLongLong(), LONG_MIN);
    EXPECT_EQ(CkelVariant(LONG_MAX).toLongLong(), LONG_MAX);
    EXPECT_EQ(CkelVariant(ULONG_MAX).toULongLong(), ULONG_MAX);
}

TEST(Variant, FixedWidthIntegersKeepTypeAndValue)
{
    EXPECT_EQ(CkelVariant(std::int32_t{INT32_MIN}).type(), CkelVariant::Int);
    EXPECT_EQ(CkelVariant(std::uint32_t{UINT32_MAX}).type(), CkelVariant::UInt);
    EXPECT_EQ(CkelVariant(std::int64_t{INT64_MIN}).type(), CkelVariant::LongLong);
    EXPECT_EQ(CkelVariant(std::uint64_t{UINT64_MAX}).type(), CkelVariant::ULongLong);
    EXPECT_EQ(CkelVariant(std::int64_t{INT64_MIN}).toLongLong(), LLONG_MIN);
    EXPECT_EQ(CkelVariant(std::uint64_t{UINT64_MAX}).toULongLong(), ULLONG_MAX);
}

TEST(Variant, EveryFormOfTextGivesAString)
{
    char array[] = "text";
    char* const pointer = array;
    const std::string lvalue = "text";
    for (const CkelVariant& value :
         {CkelVariant("text"), CkelVariant(array), CkelVariant(pointer), CkelVariant(lvalue),
          CkelVariant(std::string("text")), CkelVariant(CkelString("text")), CkelVariant(std::string(lvalue))}) {
        EXPECT_EQ(value.type(), CkelVariant::String);
        EXPECT_EQ(value.toStdString(), "text");
    }
}

TEST(Variant, TextIsACopyOfWhatWasGiven)
{
    char source[] = "text";
    const CkelVariant value(source);
    source[0] = 'n';
    EXPECT_EQ(value.toStdString(), "text");
}

TEST(Variant, NullPointerToTextIsInvalid)
{
    const char* const constant = nullptr;
    char* const writable = nullptr;
    EXPECT_TRUE(CkelVariant(constant).isNull());
    EXPECT_TRUE(CkelVariant(writable).isNull());
    EXPECT_TRUE(CkelVariant(nullptr).isNull());
}

TEST(Variant, PointerToAnythingButTextIsNoValue)
{
    EXPECT_FALSE((std::is_constructible_v<CkelVariant, int*>));
    EXPECT_FALSE((std::is_constructible_v<CkelVariant, const void*>));
    EXPECT_FALSE((std::is_constructible_v<CkelVariant, unsigned char*>));
    EXPECT_FALSE((std::is_constructible_v<CkelVariant, const wchar_t*>));
    EXPECT_FALSE((std::is_constructible_v<CkelVariant, CkelVariant*>));
    EXPECT_FALSE((std::is_constructible_v<CkelVariant, void (*)()>));
    EXPECT_FALSE((std::is_constructible_v<CkelVariant, const char* const*>));
    EXPECT_FALSE((std::is_constructible_v<CkelVariant, int(&)[3]>));
}

TEST(Variant, PointerToVolatileTextIsNoBool)
{
    EXPECT_FALSE((std::is_constructible_v<CkelVariant, volatile char*>));
    EXPECT_FALSE((std::is_constructible_v<CkelVariant, const volatile char*>));
}

TEST(Variant, ScalarsAndTextsConvertImplicitly)
{
    EXPECT_TRUE((std::is_convertible_v<bool, CkelVariant>));
    EXPECT_TRUE((std::is_convertible_v<std::int64_t, CkelVariant>));
    EXPECT_TRUE((std::is_convertible_v<std::uint64_t, CkelVariant>));
    EXPECT_TRUE((std::is_convertible_v<double, CkelVariant>));
    EXPECT_TRUE((std::is_convertible_v<const char*, CkelVariant>));
    EXPECT_TRUE((std::is_convertible_v<std::string, CkelVariant>));
    EXPECT_TRUE((std::is_convertible_v<CkelString, CkelVariant>));
}

TEST(Variant, TextKeepsEveryByte)
{
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    EXPECT_EQ(CkelVariant(bytes).toStdString(), bytes);
    EXPECT_EQ(CkelVariant(std::string(bytes)).toStdString(), bytes);
    EXPECT_EQ(CkelVariant(CkelString(bytes)).toString().toStdString(), bytes);
}

// --- copying and moving ---

TEST(Variant, CopyHasTheSameContent)
{
    for (const CkelVariant& value : oneOfEachType()) {
        const CkelVariant copy(value); // NOLINT(performance-unnecessary-copy-initialization)
        expectSameContent(copy, value);
    }
}

TEST(Variant, CopyOutlivesItsSource)
{
    auto source = std::make_unique<CkelVariant>(longText);
    const CkelVariant copy(*source);
    source.reset();
    EXPECT_EQ(copy.toStdString(), longText);
}

TEST(Variant, ChangeOfOneCopyLeavesTheOthers)
{
    CkelVariant first(longText);
    const CkelVariant second(first);
    CkelVariant third;
    third = first;
    first = "other";
    EXPECT_EQ(first.toStdString(), "other");
    EXPECT_EQ(second.toStdString(), longText);
    EXPECT_EQ(third.toStdString(), longText);
    third = 5;
    EXPECT_EQ(second.toStdString(), longText);
}

TEST(Variant, AssignmentReplacesEveryTypeByEveryType)
{
    for (const CkelVariant& before : oneOfEachType()) {
        for (const CkelVariant& after : oneOfEachType()) {
            SCOPED_TRACE("over " + describe(before));
            CkelVariant copied(before);
            copied = after;
            expectSameContent(copied, after);

            CkelVariant moved(before);
            CkelVariant source(after);
            moved = std::move(source);
            expectSameContent(moved, after);
        }
    }
}

TEST(Variant, SelfAssignmentKeepsTheContent)
{
    for (const CkelVariant& value : oneOfEachType()) {
        CkelVariant target(value);
        const CkelVariant& alias = target;
        target = alias;
        expectSameContent(target, value);
    }
}

TEST(Variant, SelfMoveKeepsTheContent)
{
    for (const CkelVariant& value : oneOfEachType()) {
        CkelVariant target(value);
        CkelVariant& alias = target;
        target = std::move(alias);
        expectSameContent(target, value);
    }
}

TEST(Variant, AssigningACopyOfItselfKeepsTheContent)
{
    CkelVariant target(longText);
    const CkelVariant copy(target);
    target = copy;
    EXPECT_EQ(target.toStdString(), longText);
    EXPECT_EQ(copy.toStdString(), longText);
}

TEST(Variant, MovedFromIsInvalid)
{
    for (const CkelVariant& value : oneOfEachType()) {
        CkelVariant first(value);
        CkelVariant second(std::move(first));
        expectSameContent(second, value);
        EXPECT_TRUE(first.isNull()); // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(first.type(), CkelVariant::Invalid);

        CkelVariant third("other");
        third = std::move(second);
        expectSameContent(third, value);
        EXPECT_TRUE(second.isNull()); // NOLINT(bugprone-use-after-move)
    }
}

TEST(Variant, MovedFromCanBeUsedAgain)
{
    CkelVariant first(longText);
    const CkelVariant second(std::move(first));
    first = 5; // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(first.toInt(), 5);
    EXPECT_EQ(second.toStdString(), longText);
}

TEST(Variant, SwapExchangesContents)
{
    for (const CkelVariant& a : oneOfEachType()) {
        for (const CkelVariant& b : oneOfEachType()) {
            CkelVariant first(a);
            CkelVariant second(b);
            first.swap(second);
            expectSameContent(first, b);
            expectSameContent(second, a);
        }
    }
}

TEST(Variant, SwapWithItselfKeepsTheContent)
{
    CkelVariant value(longText);
    value.swap(value);
    EXPECT_EQ(value.toStdString(), longText);
}

TEST(Variant, CopyingAndMovingNeverThrow)
{
    EXPECT_TRUE(std::is_nothrow_default_constructible_v<CkelVariant>);
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<CkelVariant>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<CkelVariant>);
    EXPECT_TRUE(std::is_nothrow_copy_assignable_v<CkelVariant>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<CkelVariant>);
    EXPECT_TRUE((std::is_nothrow_constructible_v<CkelVariant, double>));
}

// --- memory ---

TEST(Variant, ScalarsAllocateNothing)
{
    const auto before = allocations();
    for (const CkelVariant& value : {CkelVariant(), CkelVariant(true), CkelVariant(-7), CkelVariant(7U),
                                     CkelVariant(-7LL), CkelVariant(7ULL), CkelVariant(7.5)}) {
        CkelVariant copy(value);
        CkelVariant assigned;
        assigned = copy;
        CkelVariant moved(std::move(copy));
        assigned = std::move(moved);
    }
    EXPECT_EQ(allocations(), before);
}

TEST(Variant, NumbersConvertWithoutAllocating)
{
    const CkelVariant real(7.5);
    const CkelVariant text(" 7.5e2 ");
    const auto before = allocations();
    EXPECT_EQ(real.toInt(), 8);
    EXPECT_TRUE(real.canConvert(CkelVariant::Int));
    EXPECT_TRUE(text.canConvert(CkelVariant::Int));
    EXPECT_EQ(text.toInt(), 750);
    EXPECT_EQ(text.toDouble(), 750.0);
    EXPECT_TRUE(real.cmp(CkelVariant(7.5)));
    EXPECT_EQ(allocations(), before);
}

TEST(Variant, CopiesOfTextAllocateNothing)
{
    const auto atFirst = allocations();
    const CkelVariant value(longText);
    ASSERT_GT(allocations(), atFirst) << "allocations are not counted";

    const auto before = allocations();
    for (int i = 0; i < 3; ++i) {
        CkelVariant copy(value);
        CkelVariant assigned(5);
        assigned = copy;
        CkelVariant moved(std::move(copy));
        assigned = std::move(moved);
        assigned.swap(moved);
        EXPECT_TRUE(moved.cmp(value));
    }
    EXPECT_EQ(allocations(), before);
}

TEST(Variant, TextIsFreedWithItsLastCopyAndNotBefore)
{
    const auto allocationsBefore = allocations();
    const auto releasesBefore = releases();
    CkelVariant first(longText);
    CkelVariant second(first);
    CkelVariant third(second);
    first = 1;
    third = CkelVariant();
    EXPECT_EQ(releases(), releasesBefore);
    second = 2;
    EXPECT_GT(releases(), releasesBefore);
    EXPECT_EQ(releases() - releasesBefore, allocations() - allocationsBefore);
}

TEST(Variant, TemporaryTextIsTakenOver)
{
    std::string source(longText);
    const auto start = allocations();
    const CkelVariant copied(source);
    const auto afterCopy = allocations();
    const CkelVariant moved(std::move(source));
    EXPECT_LT(allocations() - afterCopy, afterCopy - start);
    EXPECT_TRUE(moved.cmp(copied));
}

TEST(Variant, CopiesOfOneTextMayBeUsedByManyThreads)
{
    constexpr int rounds = 2000;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    {
        const CkelVariant shared(longText);
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([own = shared, &wrong] {
                for (int round = 0; round < rounds; ++round) {
                    CkelVariant copy(own);
                    CkelVariant other(round);
                    other = copy;
                    copy = CkelVariant("changed");
                    if (other.toStdString() != longText || !other.cmp(own))
                        ++wrong;
                }
            });
        }
    } // the original ends while the threads use its text
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(Variant, LastCopyOfATextMayEndOnAnyThread)
{
    for (int round = 0; round < 200; ++round) {
        CkelVariant here(longText);
        std::thread thread([there = here]() mutable {
            EXPECT_EQ(there.toStdString(), longText);
            there = CkelVariant();
        });
        here = CkelVariant();
        thread.join();
    }
}

// --- conversions of numbers ---

TEST(Variant, InvalidConvertsToNothing)
{
    const CkelVariant invalid;
    expectNumbers({invalid, {false, fails}, {0, fails}, {0, fails}, {0, fails}, {0, fails}, {0, fails}, ""});
    expectText(invalid, "", false);
}

TEST(Variant, BoolConvertsToOneOrZero)
{
    expectConversions({
        {false, false, 0, 0, 0, 0, 0, "false"},
        {true, true, 1, 1, 1, 1, 1, "true"},
    });
}

TEST(Variant, IntConverts)
{
    expectConversions({
        {0, false, 0, 0, 0, 0, 0, "0"},
        {1, true, 1, 1, 1, 1, 1, "1"},
        {-1, true, -1, UINT_MAX, -1, ULLONG_MAX, -1, "-1"},
        {INT_MAX, true, INT_MAX, 2147483647U, 2147483647LL, 2147483647ULL, 2147483647.0, "2147483647"},
        {INT_MIN, true, INT_MIN, 2147483648U, -2147483648LL, 18446744071562067968ULL, -2147483648.0, "-2147483648"},
    });
}

TEST(Variant, UIntConverts)
{
    expectConversions({
        {0U, false, 0, 0, 0, 0, 0, "0"},
        {7U, true, 7, 7, 7, 7, 7, "7"},
        {2147483647U, true, INT_MAX, 2147483647U, 2147483647LL, 2147483647ULL, 2147483647.0, "2147483647"},
        {2147483648U, true, INT_MIN, 2147483648U, 2147483648LL, 2147483648ULL, 2147483648.0, "2147483648"},
        {UINT_MAX, true, -1, UINT_MAX, 4294967295LL, 4294967295ULL, 4294967295.0, "4294967295"},
    });
}

TEST(Variant, LongLongConverts)
{
    expectConversions({
        {0LL, false, 0, 0, 0, 0, 0, "0"},
        {-1LL, true, -1, UINT_MAX, -1, ULLONG_MAX, -1, "-1"},
        {2147483648LL, true, INT_MIN, 2147483648U, 2147483648LL, 2147483648ULL, 2147483648.0, "2147483648"},
        {-2147483649LL, true, INT_MAX, 2147483647U, -2147483649LL, 18446744071562067967ULL, -2147483649.0,
         "-2147483649"},
        {4294967296LL, true, 0, 0, 4294967296LL, 4294967296ULL, 4294967296.0, "4294967296"},
        {4294967301LL, true, 5, 5, 4294967301LL, 4294967301ULL, 4294967301.0, "4294967301"},
        {9007199254740993LL, true, 1, 1, 9007199254740993LL, 9007199254740993ULL, twoTo53, "9007199254740993"},
        {LLONG_MAX, true, -1, UINT_MAX, LLONG_MAX, 9223372036854775807ULL, twoTo63, "9223372036854775807"},
        {LLONG_MIN, true, 0, 0, LLONG_MIN, 9223372036854775808ULL, -twoTo63, "-9223372036854775808"},
    });
}

TEST(Variant, ULongLongConverts)
{
    expectConversions({
        {0ULL, false, 0, 0, 0, 0, 0, "0"},
        {4294967296ULL, true, 0, 0, 4294967296LL, 4294967296ULL, 4294967296.0, "4294967296"},
        {9007199254740993ULL, true, 1, 1, 9007199254740993LL, 9007199254740993ULL, twoTo53, "9007199254740993"},
        {9223372036854775807ULL, true, -1, UINT_MAX, LLONG_MAX, 9223372036854775807ULL, twoTo63, "9223372036854775807"},
        {9223372036854775808ULL, true, 0, 0, LLONG_MIN, 9223372036854775808ULL, twoTo63, "9223372036854775808"},
        {ULLONG_MAX, true, -1, UINT_MAX, -1, ULLONG_MAX, twoTo64, "18446744073709551615"},
    });
}

TEST(Variant, DoubleToIntegerRoundsHalvesAwayFromZero)
{
    expectConversions({
        {0.0, false, 0, 0, 0, 0, 0.0, "0"},
        {0.4, true, 0, 0, 0, 0, 0.4, "0.4"},
        {0.5, true, 1, 1, 1, 1, 0.5, "0.5"},
        {1.4999, true, 1, 1, 1, 1, 1.4999, "1.4999"},
        {1.5, true, 2, 2, 2, 2, 1.5, "1.5"},
        {2.5, true, 3, 3, 3, 3, 2.5, "2.5"},
        {35.5, true, 36, 36, 36, 36, 35.5, "35.5"},
        {-0.4, true, 0, 0, 0, 0, -0.4, "-0.4"},
        {-0.5, true, -1, {0, fails}, -1, {0, fails}, -0.5, "-0.5"},
        {-1.5, true, -2, {0, fails}, -2, {0, fails}, -1.5, "-1.5"},
        {-2.5, true, -3, {0, fails}, -3, {0, fails}, -2.5, "-2.5"},
    });
}

TEST(Variant, DoubleNextToAHalfIsNotRoundedTwice)
{
    expectConversions({
        {0.49999999999999994, true, 0, 0, 0, 0, 0.49999999999999994, "0.49999999999999994"},
        {-0.49999999999999994, true, 0, 0, 0, 0, -0.49999999999999994, "-0.49999999999999994"},
        {4503599627370495.5,
         true,
         {INT_MAX, fails},
         {UINT_MAX, fails},
         4503599627370496LL,
         4503599627370496ULL,
         4503599627370495.5,
         "4503599627370495.5"},
        {4503599627370497.0,
         true,
         {INT_MAX, fails},
         {UINT_MAX, fails},
         4503599627370497LL,
         4503599627370497ULL,
         4503599627370497.0,
         "4503599627370497"},
    });
}

TEST(Variant, NegativeZeroIsZeroAndKeepsItsSign)
{
    expectConversions({{-0.0, false, 0, 0, 0, 0, -0.0, "-0"}});
}

TEST(Variant, DoubleOutOfRangeSaturatesAtThe32BitLimits)
{
    expectConversions({
        {2147483647.0, true, INT_MAX, 2147483647U, 2147483647LL, 2147483647ULL, 2147483647.0, "2147483647"},
        {2147483647.4, true, INT_MAX, 2147483647U, 2147483647LL, 2147483647ULL, 2147483647.4, "2147483647.4"},
        {2147483647.5, true, {INT_MAX, fails}, 2147483648U, 2147483648LL, 2147483648ULL, 2147483647.5, "2147483647.5"},
        {2147483648.0, true, {INT_MAX, fails}, 2147483648U, 2147483648LL, 2147483648ULL, 2147483648.0, "2147483648"},
        {-2147483648.0, true, INT_MIN, {0, fails}, -2147483648LL, {0, fails}, -2147483648.0, "-2147483648"},
        {-2147483648.4, true, INT_MIN, {0, fails}, -2147483648LL, {0, fails}, -2147483648.4, "-2147483648.4"},
        {-2147483648.5, true, {INT_MIN, fails}, {0, fails}, -2147483649LL, {0, fails}, -2147483648.5, "-2147483648.5"},
        {4294967295.0, true, {INT_MAX, fails}, UINT_MAX, 4294967295LL, 4294967295ULL, 4294967295.0, "4294967295"},
        {4294967295.4, true, {INT_MAX, fails}, UINT_MAX, 4294967295LL, 4294967295ULL, 4294967295.4, "4294967295.4"},
        {4294967295.5,
         true,
         {INT_MAX, fails},
         {UINT_MAX, fails},
         4294967296LL,
         4294967296ULL,
         4294967295.5,
         "4294967295.5"},
    });
}

TEST(Variant, DoubleOutOfRangeSaturatesAtThe64BitLimits)
{
    const Outcome<int> intMax(INT_MAX, fails);
    const Outcome<int> intMin(INT_MIN, fails);
    const Outcome<unsigned int> uintMax(UINT_MAX, fails);
    expectConversions({
        // the last double below 2^63, 2^63, the last below 2^64, 2^64
        {9223372036854774784.0, true, intMax, uintMax, 9223372036854774784LL, 9223372036854774784ULL,
         9223372036854774784.0, "9223372036854774784"},
        {twoTo63, true, intMax, uintMax, {LLONG_MAX, fails}, 9223372036854775808ULL, twoTo63, "9223372036854775808"},
        {18446744073709549568.0,
         true,
         intMax,
         uintMax,
         {LLONG_MAX, fails},
         18446744073709549568ULL,
         18446744073709549568.0,
         "18446744073709549568"},
        {twoTo64, true, intMax, uintMax, {LLONG_MAX, fails}, {ULLONG_MAX, fails}, twoTo64, "18446744073709551616"},
        // -2^63 and the next double below it
        {-twoTo63, true, intMin, {0, fails}, LLONG_MIN, {0, fails}, -twoTo63, "-9223372036854775808"},
        {-9223372036854777856.0,
         true,
         intMin,
         {0, fails},
         {LLONG_MIN, fails},
         {0, fails},
         -9223372036854777856.0,
         "-9223372036854777856"},
    });
}

TEST(Variant, ExtremeDoublesConvert)
{
    const Conversions tooLarge{
        0, true, {INT_MAX, fails}, {UINT_MAX, fails}, {LLONG_MAX, fails}, {ULLONG_MAX, fails}, DBL_MAX, ""};
    const Conversions tooSmall{0, true, {INT_MIN, fails}, {0, fails}, {LLONG_MIN, fails}, {0, fails}, -DBL_MAX, ""};
    const auto with = [](Conversions row, double value, const char* text) {
        row.from = value;
        row.toDouble = value;
        row.text = text;
        return row;
    };
    expectConversions({
        with(tooLarge, DBL_MAX, "1.7976931348623157e+308"),
        with(tooSmall, -DBL_MAX, "-1.7976931348623157e+308"),
        with(tooLarge, infinity, "inf"),
        with(tooSmall, -infinity, "-inf"),
        {DBL_MIN, true, 0, 0, 0, 0, DBL_MIN, "2.2250738585072014e-308"},
        {5e-324, true, 0, 0, 0, 0, 5e-324, "5e-324"},
        {-5e-324, true, 0, 0, 0, 0, -5e-324, "-5e-324"},
    });
}

TEST(Variant, NanConvertsToNoIntegerAndNoBool)
{
    for (const double value : {notANumber, -notANumber, std::numeric_limits<double>::signaling_NaN()})
        expectConversions({{value, {false, fails}, {0, fails}, {0, fails}, {0, fails}, {0, fails}, notANumber, "nan"}});
}

TEST(Variant, NumberToTextIsTheShortestThatReadsBack)
{
    const std::vector<std::pair<double, std::string>> rows = {
        {0.1, "0.1"},    {0.3, "0.3"},      {0.1 + 0.2, "0.30000000000000004"}, {1.0 / 3, "0.3333333333333333"},
        {100, "100"},    {100000, "1e+05"}, {123456789, "123456789"},           {1e-5, "1e-05"},
        {1e21, "1e+21"}, {-35.25, "-35.25"}};
    for (const auto& [number, text] : rows)
        EXPECT_EQ(CkelVariant(number).toStdString(), text);
}

// --- conversions of text ---

TEST(Variant, TextOfAnIntegerConverts)
{
    expectConversions({
        text("0", false, 0, 0, 0, 0, 0),
        text("-0", false, 0, 0, 0, 0, -0.0),
        text("+0", false, 0, 0, 0, 0, 0),
        text("12", true, 12, 12, 12, 12, 12),
        text("+12", true, 12, 12, 12, 12, 12),
        text("0012", true, 12, 12, 12, 12, 12),
        text("-12", true, -12, {0, fails}, -12, {0, fails}, -12),
        text("2147483647", true, INT_MAX, 2147483647U, 2147483647LL, 2147483647ULL, 2147483647.0),
        text("-2147483648", true, INT_MIN, {0, fails}, -2147483648LL, {0, fails}, -2147483648.0),
        text("4294967295", true, {INT_MAX, fails}, UINT_MAX, 4294967295LL, 4294967295ULL, 4294967295.0),
    });
}

TEST(Variant, TextOfAnIntegerKeepsEveryBit)
{
    const Outcome<int> intMax(INT_MAX, fails);
    const Outcome<int> intMin(INT_MIN, fails);
    const Outcome<unsigned int> uintMax(UINT_MAX, fails);
    expectConversions({
        text("9007199254740993", true, intMax, uintMax, 9007199254740993LL, 9007199254740993ULL, twoTo53),
        text("+9223372036854775807", true, intMax, uintMax, LLONG_MAX, 9223372036854775807ULL, twoTo63),
        text("-9223372036854775808", true, intMin, {0, fails}, LLONG_MIN, {0, fails}, -twoTo63),
        text("18446744073709551615", true, intMax, uintMax, {LLONG_MAX, fails}, ULLONG_MAX, twoTo64),
        text("00000000000000000000009007199254740993", true, intMax, uintMax, 9007199254740993LL, 9007199254740993ULL,
             twoTo53),
    });
}

TEST(Variant, TextOfAnIntegerOutOfRangeSaturates)
{
    const Outcome<int> intMax(INT_MAX, fails);
    const Outcome<int> intMin(INT_MIN, fails);
    const Outcome<unsigned int> uintMax(UINT_MAX, fails);
    const Outcome<long long> longMax(LLONG_MAX, fails);
    const Outcome<unsigned long long> ulongMax(ULLONG_MAX, fails);
    expectConversions({
        text("2147483648", true, intMax, 2147483648U, 2147483648LL, 2147483648ULL, 2147483648.0),
        text("-2147483649", true, intMin, {0, fails}, -2147483649LL, {0, fails}, -2147483649.0),
        text("4294967296", true, intMax, uintMax, 4294967296LL, 4294967296ULL, 4294967296.0),
        text("9223372036854775808", true, intMax, uintMax, longMax, 9223372036854775808ULL, twoTo63),
        text("18446744073709551616", true, intMax, uintMax, longMax, ulongMax, twoTo64),
        text("100000000000000000000", true, intMax, uintMax, longMax, ulongMax, 1e20),
        text("-100000000000000000000", true, intMin, {0, fails}, {LLONG_MIN, fails}, {0, fails}, -1e20),
    });
}

TEST(Variant, TextOfAnIntegerJustBelowTheLowestSaturates)
{
    // As doubles these equal the lowest number, which is in range.
    for (const char* const below : {"-9223372036854775809", "-9223372036854775900", " -09223372036854776000 "}) {
        SCOPED_TRACE(below);
        expectOutcome("to long long", &CkelVariant::toLongLong, below, {LLONG_MIN, fails});
    }
}

TEST(Variant, TextWithFractionOrExponentIsRoundedLikeADouble)
{
    expectConversions({
        text("1.5", true, 2, 2, 2, 2, 1.5),
        text("2.5", true, 3, 3, 3, 3, 2.5),
        text("0.4", true, 0, 0, 0, 0, 0.4),
        text("-0.4", true, 0, 0, 0, 0, -0.4),
        text("-0.5", true, -1, {0, fails}, -1, {0, fails}, -0.5),
        text(".5", true, 1, 1, 1, 1, 0.5),
        text("+.5", true, 1, 1, 1, 1, 0.5),
        text("5.", true, 5, 5, 5, 5, 5),
        text("1.25e1", true, 13, 13, 13, 13, 12.5),
        text("125E-1", true, 13, 13, 13, 13, 12.5),
        text("1e+3", true, 1000, 1000, 1000, 1000, 1000),
        text("0e0", false, 0, 0, 0, 0, 0),
        text("0e99999", false, 0, 0, 0, 0, 0),
        text("0.0", false, 0, 0, 0, 0, 0),
        text("-0.0", false, 0, 0, 0, 0, -0.0),
        text("2147483647.5", true, {INT_MAX, fails}, 2147483648U, 2147483648LL, 2147483648ULL, 2147483647.5),
        text("-2147483648.5", true, {INT_MIN, fails}, {0, fails}, -2147483649LL, {0, fails}, -2147483648.5),
        text("1e10", true, {INT_MAX, fails}, {UINT_MAX, fails}, 10000000000LL, 10000000000ULL, 1e10),
        text("9.3e18", true, {INT_MAX, fails}, {UINT_MAX, fails}, {LLONG_MAX, fails}, 9300000000000000000ULL, 9.3e18),
        text("1e20", true, {INT_MAX, fails}, {UINT_MAX, fails}, {LLONG_MAX, fails}, {ULLONG_MAX, fails}, 1e20),
        text("-1e20", true, {INT_MIN, fails}, {0, fails}, {LLONG_MIN, fails}, {0, fails}, -1e20),
    });
}

TEST(Variant, TextTooLargeForADoubleIsInfinite)
{
    const std::string manyDigits = "1" + std::string(400, '0');
    for (const std::string& huge : {std::string("1e400"), std::string("+1E400"), std::string("1e309"),
                                    std::string("1e99999999999999999999"), manyDigits, " " + manyDigits + ".5 "}) {
        expectConversions({text(huge, true, {INT_MAX, fails}, {UINT_MAX, fails}, {LLONG_MAX, fails},
                                {ULLONG_MAX, fails}, {infinity, fails})});
    }
    for (const std::string& huge : {std::string("-1e400"), "-" + manyDigits}) {
        expectConversions(
            {text(huge, true, {INT_MIN, fails}, {0, fails}, {LLONG_MIN, fails}, {0, fails}, {-infinity, fails})});
    }
}

TEST(Variant, TextTooSmallForADoubleIsZeroWithItsSign)
{
    const std::string manyDigits = "0." + std::string(400, '0') + "1";
    expectOutcome("to double", &CkelVariant::toDouble, "1e-400", {0.0, fails});
    expectOutcome("to double", &CkelVariant::toDouble, "-1e-400", {-0.0, fails});
    expectOutcome("to double", &CkelVariant::toDouble, manyDigits, {0.0, fails});
    expectOutcome("to double", &CkelVariant::toDouble, "1e-99999999999999999999", {0.0, fails});
    expectOutcome("to double", &CkelVariant::toDouble, "4.9e-324", {5e-324, true});
    EXPECT_EQ(CkelVariant("1e-400").toInt(), 0);
}

TEST(Variant, TextOfInfinitySaturatesIntegers)
{
    for (const char* const infinite : {"inf", "INF", "+inf", "infinity", " Infinity\n"}) {
        expectConversions({text(infinite, true, {INT_MAX, fails}, {UINT_MAX, fails}, {LLONG_MAX, fails},
                                {ULLONG_MAX, fails}, infinity)});
    }
    expectConversions({text("-inf", true, {INT_MIN, fails}, {0, fails}, {LLONG_MIN, fails}, {0, fails}, -infinity)});
}

TEST(Variant, TextOfNanIsADoubleOnly)
{
    for (const char* const none : {"nan", "NaN", "+nan", "-nan", "\tnan "})
        expectConversions({text(none, {false, fails}, {0, fails}, {0, fails}, {0, fails}, {0, fails}, notANumber)});
}

TEST(Variant, BlanksAroundANumberAreAllowed)
{
    expectConversions({twelve(" 12"), twelve("12 "), twelve("  12  "), twelve("\t12"), twelve("12\n"), twelve("\v12\f"),
                       twelve("\r\n 12 \t"), twelve(" +12 "), twelve(" 12.0 "), twelve(" 1.2e1 ")});
}

TEST(Variant, TextThatIsNoNumberGivesZeroAndFails)
{
    for (const std::string& none : textsThatAreNoNumber())
        expectConversions({noNumber(none)});
}

TEST(Variant, NulInsideATextIsNotItsEnd)
{
    for (const std::string& none : textsWithNulInside())
        expectConversions({noNumber(none)});
}

TEST(Variant, WordsTrueAndFalseReadAsBoolOnly)
{
    for (const char* const word : {"true", " true", "true\t"})
        expectConversions({text(word, true, {0, fails}, {0, fails}, {0, fails}, {0, fails}, {0, fails})});
    for (const char* const word : {"false", "\nfalse "})
        expectConversions({text(word, false, {0, fails}, {0, fails}, {0, fails}, {0, fails}, {0, fails})});
}

TEST(Variant, EmptyTextConvertsToTextOnly)
{
    expectConversions({noNumber("")});
}

namespace {

/// Says by itself what a text of the pieces below has to look like.
bool isNumber(const std::string& text)
{
    std::size_t at = 0;
    const auto skip = [&](const char* allowed) {
        const auto end = std::min(text.find_first_not_of(allowed, at), text.size());
        return std::exchange(at, end) != end;
    };
    const auto skipOne = [&](const std::string& allowed) {
        return at < text.size() && allowed.find(text[at]) != std::string::npos && ++at > 0;
    };
    skip(" \t\n");
    skipOne("+-");
    if (text.compare(at, 3, "inf") == 0 || text.compare(at, 3, "nan") == 0) {
        at += 3;
    } else {
        const bool whole = skip("0123456789");
        const bool fraction = skipOne(".") && skip("0123456789");
        if (!whole && !fraction)
            return false;
        if (skipOne("eE")) {
            skipOne("+-");
            if (!skip("0123456789"))
                return false;
        }
    }
    skip(" \t\n");
    return at == text.size();
}

} // namespace

TEST(Variant, TextIsReadByTheGrammarOfDecimalNumbers)
{
    SCOPED_TRACE("seed " + std::to_string(firstSeed));
    const std::vector<std::string> pieces = {"0", "1",  "5",  "9", "12", ".",   "e",   "E",   "+", "-",
                                             " ", "\t", "\n", "x", ",",  "inf", "nan", "e-3", "00"};
    std::mt19937_64 random(firstSeed);
    int numbers = 0;
    for (int i = 0; i < 5000; ++i) {
        std::string text;
        for (auto length = random() % 6; length > 0; --length)
            text += pieces[static_cast<std::size_t>(random() % pieces.size())];
        SCOPED_TRACE('"' + text + '"');

        bool ok = false;
        const double value = CkelVariant(text).toDouble(&ok);
        ASSERT_EQ(CkelVariant(text).canConvert(CkelVariant::Double), isNumber(text));
        if (!isNumber(text)) {
            ASSERT_FALSE(ok);
            ASSERT_TRUE(same(value, 0.0));
            continue;
        }
        ++numbers;
        const double expected = std::strtod(text.c_str(), nullptr); // this program runs in the C locale
        ASSERT_TRUE(same(value, expected)) << value << " instead of " << expected;
        if (ok && std::isfinite(value)) {
            ASSERT_EQ(CkelVariant(text).toInt(), CkelVariant(value).toInt());
        }
    }
    EXPECT_GT(numbers, 500);
}

// --- round trips ---

TEST(Variant, RandomDoublesSurviveText)
{
    SCOPED_TRACE("seed " + std::to_string(firstSeed));
    std::mt19937_64 random(firstSeed);
    for (int i = 0; i < 20000; ++i) {
        const std::uint64_t bits = random();
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        bool ok = false;
        const std::string text = CkelVariant(value).toStdString();
        const double back = CkelVariant(text).toDouble(&ok);
        ASSERT_TRUE(ok) << text;
        ASSERT_TRUE(same(back, value)) << text << ", bits " << bits;
    }
}

TEST(Variant, RandomDecimalsSurviveText)
{
    SCOPED_TRACE("seed " + std::to_string(firstSeed));
    std::mt19937_64 random(firstSeed);
    for (int i = 0; i < 20000; ++i) {
        const double value = static_cast<double>(static_cast<std::int64_t>(random() % 2000001) - 1000000) / 1000;
        ASSERT_TRUE(same(CkelVariant(CkelVariant(value).toStdString()).toDouble(), value)) << value;
        std::array<char, 64> long17{};
        std::snprintf(long17.data(), long17.size(), "%.17g", value);
        ASSERT_TRUE(same(CkelVariant(long17.data()).toDouble(), value)) << long17.data();
    }
}

TEST(Variant, RandomIntegersSurviveText)
{
    SCOPED_TRACE("seed " + std::to_string(firstSeed));
    std::mt19937_64 random(firstSeed);
    for (int i = 0; i < 20000; ++i) {
        // short ones too
        const unsigned long long natural = random() >> (random() % 64);
        const auto integer = static_cast<long long>(random()) >> (random() % 64);
        bool ok = false;
        ASSERT_EQ(CkelVariant(natural).toStdString(), std::to_string(natural));
        ASSERT_EQ(CkelVariant(std::to_string(natural)).toULongLong(&ok), natural);
        ASSERT_TRUE(ok);
        ok = false;
        ASSERT_EQ(CkelVariant(integer).toStdString(), std::to_string(integer));
        ASSERT_EQ(CkelVariant(std::to_string(integer)).toLongLong(&ok), integer);
        ASSERT_TRUE(ok);
    }
}

TEST(Variant, RandomDoublesRoundLikeTheirParts)
{
    SCOPED_TRACE("seed " + std::to_string(firstSeed));
    std::mt19937_64 random(firstSeed);
    std::uniform_real_distribution<double> mantissa(-1, 1);
    for (int i = 0; i < 20000; ++i) {
        double value = std::ldexp(mantissa(random), static_cast<int>(random() % 63));
        if (i % 4 == 0)
            value = std::trunc(value) + 0.5;    // halves, as far as there are any
        const double whole = std::trunc(value); // exact, and so is what is left
        const auto up = std::abs(value - whole) >= 0.5 ? (value < 0 ? -1 : 1) : 0;
        bool ok = false;
        ASSERT_EQ(CkelVariant(value).toLongLong(&ok), static_cast<long long>(whole) + up) << value;
        ASSERT_TRUE(ok);
    }
}

// --- comparing ---

TEST(Variant, CmpIsTrueForEqualContentsOfAnyTypeAndForNothingElse)
{
    // The members of a group equal each other and no member of another group.
    const std::vector<std::vector<CkelVariant>> groups = {
        {CkelVariant(), CkelVariant(static_cast<const char*>(nullptr))},
        {false, 0, 0U, 0LL, 0ULL, 0.0, -0.0},
        {true, 1, 1U, 1LL, 1ULL, 1.0},
        {-1, -1LL, -1.0},
        {2, 2U, 2LL, 2ULL, 2.0},
        {5e-324},
        {0.5},
        {1.5},
        {std::nextafter(1.0, 2.0)},
        {INT_MIN, -2147483648LL, -2147483648.0},
        {INT_MAX, 2147483647U, 2147483647LL, 2147483647ULL, 2147483647.0},
        {2147483648U, 2147483648LL, 2147483648ULL, 2147483648.0},
        {UINT_MAX, 4294967295LL, 4294967295ULL, 4294967295.0},
        {4294967296LL, 4294967296ULL, 4294967296.0},
        {9007199254740991LL, 9007199254740991ULL, 9007199254740991.0},
        {9007199254740992LL, 9007199254740992ULL, twoTo53},
        {9007199254740993LL, 9007199254740993ULL},
        {-9007199254740992LL, -twoTo53},
        {-9007199254740993LL},
        {9223372036854774784LL, 9223372036854774784ULL, 9223372036854774784.0},
        {LLONG_MAX, 9223372036854775807ULL},
        {LLONG_MIN, -twoTo63},
        {LLONG_MIN + 1},
        {-9223372036854777856.0},
        {9223372036854775808ULL, twoTo63},
        {9223372036854775809ULL},
        {18446744073709549568ULL, 18446744073709549568.0},
        {ULLONG_MAX},
        {twoTo64},
        {18446744071562067968ULL}, // the bits of INT_MIN
        {18446744073709551614ULL}, // the bits of -2
        {DBL_MAX},
        {infinity},
        {-infinity},
        {notANumber, -notANumber, std::numeric_limits<double>::signaling_NaN()},
        {"", std::string(), CkelString()},
        {"0"},
        {"1", std::string("1")},
        {"1.0"},
        {" 1"},
        {"true"},
        {"false"},
        {"nan"},
        {"inf"},
        {"text", std::string("text"), CkelString("text")},
        {"Text"},
        {"text "},
        {std::string("text\0", 5)},
        {std::string("text\0a", 6)},
        {std::string("text\0b", 6)},
        {"\xC3\xA9"},  // one character ...
        {"e\xCC\x81"}, // ... that can be written so too
        {longText, std::string(longText)},
    };
    for (std::size_t i = 0; i < groups.size(); ++i) {
        for (std::size_t j = 0; j < groups.size(); ++j) {
            for (const CkelVariant& a : groups[i]) {
                for (const CkelVariant& b : groups[j])
                    EXPECT_EQ(a.cmp(b), i == j) << describe(a) << " and " << describe(b);
            }
        }
    }
}

TEST(Variant, CmpIsTrueForItselfAndForACopy)
{
    auto values = oneOfEachType();
    values.emplace_back(notANumber);
    for (const CkelVariant& value : values) {
        const CkelVariant copy(value); // NOLINT(performance-unnecessary-copy-initialization)
        EXPECT_TRUE(value.cmp(value)) << describe(value);
        EXPECT_TRUE(value.cmp(copy)) << describe(value);
    }
}

// --- what can be converted ---

namespace {

struct Convertible
{
    CkelVariant from;
    bool toBool;
    bool toIntegers;
    bool toDouble;
    bool toText;
};

std::vector<Convertible> convertibles()
{
    std::vector<Convertible> rows = {
        {CkelVariant(), false, false, false, false},
        {false, true, true, true, true},
        {true, true, true, true, true},
        {0, true, true, true, true},
        {INT_MIN, true, true, true, true},
        {UINT_MAX, true, true, true, true},
        {LLONG_MIN, true, true, true, true},
        {ULLONG_MAX, true, true, true, true},
        {0.0, true, true, true, true},
        {-35.5, true, true, true, true},
        {1e300, true, true, true, true}, // saturates
        {infinity, true, true, true, true},
        {-infinity, true, true, true, true},
        {notANumber, false, false, true, true},
        {-notANumber, false, false, true, true},
        {"12", true, true, true, true},
        {" -12.5e1 ", true, true, true, true},
        {"99999999999999999999", true, true, true, true},
        {"1e400", true, true, true, true},
        {"-1e-400", true, true, true, true},
        {"inf", true, true, true, true},
        {"nan", false, false, true, true},
        {" -NaN", false, false, true, true},
        {"true", true, false, false, true},
        {" false ", true, false, false, true},
        {longText, false, false, false, true},
    };
    for (const std::string& none : textsThatAreNoNumber())
        rows.push_back({none, false, false, false, true});
    for (const std::string& none : textsWithNulInside())
        rows.push_back({none, false, false, false, true});
    return rows;
}

} // namespace

TEST(Variant, CanConvertLooksAtTheContent)
{
    for (const Convertible& row : convertibles()) {
        SCOPED_TRACE(describe(row.from));
        EXPECT_EQ(row.from.canConvert(CkelVariant::Bool), row.toBool);
        EXPECT_EQ(row.from.canConvert(CkelVariant::Int), row.toIntegers);
        EXPECT_EQ(row.from.canConvert(CkelVariant::UInt), row.toIntegers);
        EXPECT_EQ(row.from.canConvert(CkelVariant::LongLong), row.toIntegers);
        EXPECT_EQ(row.from.canConvert(CkelVariant::ULongLong), row.toIntegers);
        EXPECT_EQ(row.from.canConvert(CkelVariant::Double), row.toDouble);
        EXPECT_EQ(row.from.canConvert(CkelVariant::String), row.toText);
    }
}

TEST(Variant, NothingConvertsToATypeThatIsACodeOnly)
{
    for (const Convertible& row : convertibles()) {
        SCOPED_TRACE(describe(row.from));
        for (const auto type :
             {CkelVariant::Invalid, CkelVariant::Char, CkelVariant::List, CkelVariant::Map, CkelVariant::ByteArray})
            EXPECT_FALSE(row.from.canConvert(type)) << type;
    }
}

TEST(Variant, NothingConvertsToAnUnknownType)
{
    for (const Convertible& row : convertibles()) {
        SCOPED_TRACE(describe(row.from));
        for (const int code : {INT_MIN, -1, 12, 13, 256 + CkelVariant::Int, INT_MAX})
            EXPECT_FALSE(row.from.canConvert(static_cast<CkelVariant::Type>(code))) << code;
    }
}

TEST(Variant, WhatCannotBeConvertedGivesZeroAndFails)
{
    for (const Convertible& row : convertibles()) {
        SCOPED_TRACE(describe(row.from));
        if (!row.toBool)
            expectOutcome("to bool", &CkelVariant::toBool, row.from, {false, fails});
        if (!row.toIntegers) {
            expectOutcome("to int", &CkelVariant::toInt, row.from, {0, fails});
            expectOutcome("to unsigned int", &CkelVariant::toUInt, row.from, {0, fails});
            expectOutcome("to long long", &CkelVariant::toLongLong, row.from, {0, fails});
            expectOutcome("to unsigned long long", &CkelVariant::toULongLong, row.from, {0, fails});
        }
        if (!row.toDouble)
            expectOutcome("to double", &CkelVariant::toDouble, row.from, {0, fails});
        if (!row.toText)
            expectText(row.from, "", false);
    }
}

// --- the locale ---

namespace {

/// Runs a case in a locale that writes 1.5 as "1,5" and 1000 as "1.000", made in the case's own folder.
class VariantInCommaLocale : public KelTest::FolderTest
{
protected:
    void SetUp() override
    {
        std::ofstream("charmap") << "<code_set_name> ASCII\n<mb_cur_min> 1\n<mb_cur_max> 1\nCHARMAP\n"
                                    "<U002C> \\x2c COMMA\n<U002E> \\x2e FULL STOP\nEND CHARMAP\n";
        std::ofstream("definition") << "LC_NUMERIC\ndecimal_point \"<U002C>\"\nthousands_sep \"<U002E>\"\n"
                                       "grouping 3;3\nEND LC_NUMERIC\n";
        // It complains of the parts that are missing, which nobody needs; whether it worked is seen below.
        const int ignored = std::system(
            "localedef --force --no-archive --quiet -f ./charmap -i ./definition ./comma "
            ">localedef.log 2>&1");
        static_cast<void>(ignored);
        setenv("LOCPATH", folder.path().c_str(), 1);
        ASSERT_NE(std::setlocale(LC_NUMERIC, "comma"), nullptr) << "localedef made no locale";
        std::array<char, 16> text{};
        std::snprintf(text.data(), text.size(), "%.1f", 1.5);
        ASSERT_STREQ(text.data(), "1,5");
        ASSERT_EQ(std::strtod("1,5", nullptr), 1.5);
    }

    void TearDown() override
    {
        std::setlocale(LC_NUMERIC, "C");
        unsetenv("LOCPATH");
    }
};

} // namespace

TEST_F(VariantInCommaLocale, NumbersAreWrittenWithAPoint)
{
    EXPECT_EQ(CkelVariant(1.5).toStdString(), "1.5");
    EXPECT_EQ(CkelVariant(-1234567.25).toStdString(), "-1234567.25");
    EXPECT_EQ(CkelVariant(1.5e300).toStdString(), "1.5e+300");
    EXPECT_EQ(CkelVariant(1234567).toStdString(), "1234567");
    EXPECT_EQ(CkelString::number(1.5).toStdString(), "1.5");
    EXPECT_EQ(CkelString::number(1234567).toStdString(), "1234567");
}

TEST_F(VariantInCommaLocale, NumbersAreReadWithAPoint)
{
    expectConversions({
        text("1.5", true, 2, 2, 2, 2, 1.5),
        text("1.000", true, 1, 1, 1, 1, 1),
        text("1.25e1", true, 13, 13, 13, 13, 12.5),
        noNumber("1,5"),
        noNumber("1,000"),
        noNumber("1.000.000"),
    });
}

TEST_F(VariantInCommaLocale, NumbersBeyondADoubleAreReadWithAPoint)
{
    expectOutcome("to double", &CkelVariant::toDouble, "1.5e400", {infinity, fails});
    expectOutcome("to double", &CkelVariant::toDouble, "-1.5e400", {-infinity, fails});
    expectOutcome("to double", &CkelVariant::toDouble, "0.5e-400", {0.0, fails});
    expectConversions({noNumber("1,5e400")});
}
