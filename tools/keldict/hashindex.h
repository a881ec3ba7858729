#pragma once

#include <cstdint>
#include <vector>

namespace Keldict {

/// Finds numbered entries by a hash of their key, which lies elsewhere. One short look into memory for a key that is
/// new: with maps of nodes, looking for duplicates would take longer than loading the dictionary.
class HashIndex
{
public:
    explicit HashIndex(std::size_t expected) { reserve(expected); }

    /// The earlier entry with this hash for which `isSame(entry)` holds; otherwise takes and gives back `entry`.
    template <typename IsSame>
    std::uint32_t findOrAdd(std::size_t hash, std::uint32_t entry, IsSame isSame)
    {
        if (2 * (m_count + 1) > m_slots.size())
            reserve(2 * m_count + 1);
        const std::uint32_t mixed = mix(hash);
        std::size_t at = mixed & (m_slots.size() - 1);
        for (; m_slots[at].entry != none; at = (at + 1) & (m_slots.size() - 1)) {
            if (m_slots[at].hash == mixed && isSame(m_slots[at].entry))
                return m_slots[at].entry;
        }
        m_slots[at] = {mixed, entry};
        ++m_count;
        return entry;
    }

    std::size_t count() const { return m_count; }

private:
    static constexpr std::uint32_t none = 0xFFFFFFFF;

    struct Slot
    {
        std::uint32_t hash = 0;
        std::uint32_t entry = none;
    };

    /// Spreads keys that follow each other.
    static std::uint32_t mix(std::size_t hash)
    {
        return static_cast<std::uint32_t>((std::uint64_t{hash} * 0x9E3779B97F4A7C15U) >> 32U);
    }

    void reserve(std::size_t count)
    {
        std::size_t size = 16;
        while (size < 2 * count)
            size *= 2;
        std::vector<Slot> before(size);
        before.swap(m_slots);
        for (const Slot& slot : before) {
            if (slot.entry == none)
                continue;
            std::size_t at = slot.hash & (size - 1);
            while (m_slots[at].entry != none)
                at = (at + 1) & (size - 1);
            m_slots[at] = slot;
        }
    }

    std::vector<Slot> m_slots; // a power of two
    std::size_t m_count = 0;
};

} // namespace Keldict
