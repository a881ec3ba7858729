#pragma once
// Private to datastorage/: not installed.

#include <rapidjson/reader.h>

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

/// Tells a text's events without making a document of it.
using JsonReader = rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, JsonAllocator>;

} // namespace Ombrin
