#include "tests/fuzz/harness.h"

#ifdef KEL_CHECKS_END_THE_CASE // libFuzzer is there

#include <algorithm>
#include <array>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed);

// Most changes of an SQLite file make it no SQLite file. This mutator leaves the pages where they are, most of the
// time, and the header such that SQLite goes on to look at them.

namespace {

constexpr std::size_t headerSize = 100;
constexpr std::size_t pageSize = 512;

void repairHeader(std::uint8_t* data, std::size_t size, unsigned int seed)
{
    std::memcpy(data, "SQLite format 3", 16);
    const std::array<std::uint8_t, 8> format{2, 0, 1, 1, 0, 64, 32, 32};
    std::copy(format.begin(), format.end(), data + 16);
    const auto pages = static_cast<std::uint32_t>(size / pageSize);
    for (unsigned int i = 0; i < 4; ++i)
        data[28 + i] = static_cast<std::uint8_t>(pages >> (24 - 8 * i));
    data[47] = static_cast<std::uint8_t>(1 + data[47] % 4); // format of the schema
    if (seed % 16 != 1)
        data[59] = 1; // UTF-8
}

/// Changes a few bytes without moving the others.
void mutateInPlace(std::uint8_t* data, std::size_t size, unsigned int seed)
{
    std::array<std::uint8_t, 64> window{};
    const std::size_t begin = (seed / 64) % size;
    const std::size_t length = std::min({window.size(), size - begin, std::size_t{1} + (seed / 8) % window.size()});
    std::copy_n(data + begin, length, window.begin());
    LLVMFuzzerMutate(window.data(), length, length);
    std::copy_n(window.begin(), length, data + begin);
}

} // namespace

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed)
{
    if (size < headerSize || seed % 8 == 0)
        return LLVMFuzzerMutate(data, size, maxSize);
    mutateInPlace(data, size, seed);
    if (seed % 8 != 1)
        repairHeader(data, size, seed / 8);
    return size;
}

#endif
