#pragma once

#include <sys/mman.h>

#include <new>
#include <stdexcept>

namespace KelTest {

/// An object that this process and those that it forks off have in common, and that outlives them when they are killed.
/// Its destructor is not called.
template <typename Content>
class SharedMemory
{
public:
    SharedMemory() : m_memory(mmap(nullptr, sizeof(Content), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
    {
        if (m_memory == MAP_FAILED)
            throw std::runtime_error("no shared memory");
        new (m_memory) Content;
    }
    ~SharedMemory() { munmap(m_memory, sizeof(Content)); }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    Content& operator*() const { return *static_cast<Content*>(m_memory); }
    Content* operator->() const { return &**this; }

private:
    void* const m_memory;
};

} // namespace KelTest
