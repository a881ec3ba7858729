#pragma once
// Private to datastorage/: not installed.

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdlib>
#include <new>

namespace Ombrin {

/// Memory for RapidJSON's stacks, which write to what they get without looking: that there is none has to be an
/// exception.
class JsonAllocator
{
public:
    static const bool kNeedFree = true; // RapidJSON's names

    void* Malloc(std::size_t size) { return Realloc(nullptr, 0, size); }

    void* Realloc(void* memory, std::size_t /*oldSize*/, std::size_t size)
    {
        if (size == 0) {
            Free(memory);
            return nullptr;
        }
        void* const resized = std::realloc(memory, size);
        return resized ? resized : throw std::bad_alloc();
    }

    static void Free(void* memory) { std::free(memory); }
};

/// A document of plain rapidjson::Value. The memory of its values stays with RapidJSON's own allocator, which is part
/// of that type and takes a missing chunk of 64 KiB for one at address 0.
using JsonDocument = rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::Value::AllocatorType, JsonAllocator>;

} // namespace Ombrin
