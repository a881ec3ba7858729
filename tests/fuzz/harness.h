#pragma once
// What the fuzz targets share. A target is a function of bytes: libFuzzer finds the bytes, or replay.cpp takes them
// from the corpus. Targets work in the current folder.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace KelFuzz {

/// Ends the process, in a way that the fuzzer and the replay take for a finding, unless `holds`.
inline void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "Not so: %s\n", what);
    __builtin_trap();
}

/// The expressions of the checks that may end a case of the target; each target defines its own.
extern const std::vector<std::string> endingChecks;

/// Runs a case of which a process-ending check may be the right end. Returns the expression of the check that failed,
/// or null. Outside the fuzz build the process does end.
template <typename Case>
const char* runToItsEnd(Case run)
{
#ifdef KEL_CHECKS_END_THE_CASE
    try {
        run();
    } catch (const CaseEnd& end) {
        return end.check;
    }
#else
    run();
#endif
    return nullptr;
}

/// What is printed to std::cout, kept in memory from the first use on.
inline std::ostringstream& printed()
{
    static auto& stream = *new std::ostringstream; // outlives every thread
    static std::streambuf* const before = std::cout.rdbuf(stream.rdbuf());
    (void)before;
    return stream;
}

inline std::string takePrinted()
{
    std::string text = printed().str();
    printed().str({});
    return text;
}

/// Takes an input apart; all zeros behind its end.
class Bytes
{
public:
    Bytes(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool atEnd() const { return m_size == 0; }

    std::uint8_t byte()
    {
        if (m_size == 0)
            return 0;
        --m_size;
        return *m_data++;
    }

    unsigned int below(unsigned int limit) { return byte() % limit; }
    bool coin() { return (byte() & 1U) != 0; }

    template <typename Number>
    Number number()
    {
        Number value{};
        const std::size_t count = m_size < sizeof value ? m_size : sizeof value;
        std::memcpy(&value, m_data, count);
        m_data += count;
        m_size -= count;
        return value;
    }

    std::string text(std::size_t length)
    {
        std::string result;
        while (result.size() < length && !atEnd())
            result += static_cast<char>(byte());
        return result;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
};

} // namespace KelFuzz
