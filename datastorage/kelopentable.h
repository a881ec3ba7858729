#pragma once
// Private to datastorage/: not installed.

#include <climits>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Ombrin {

/// A hash table with open addressing, made for lookups: it is at most half full, so that most keys are found at the
/// first probe, in one cache line.
///
/// A `Slot` has a `key` of 32 bits, isEmpty(), and is empty when it is new. Several slots may have the same key.
///
/// The hash is a multiplication. It spreads regular keys better than random ones, but every multiplier has keys that it
/// does not spread, such as those in steps of its inverse. reduceCollisions() finds a better multiplier for the keys.
template <typename Slot>
class OpenTable
{
public:
    OpenTable() = default;
    OpenTable(const OpenTable&) = delete;
    OpenTable& operator=(const OpenTable&) = delete;

    std::size_t size() const { return m_size; }

    /// The first slot of this key that `matches`; where there is none, an empty one.
    template <typename Matches>
    const Slot& find(std::uint32_t key, Matches matches) const
    {
        const Slot* const slots = m_slots.data();
        std::size_t at = home(key, m_multiplier);
        while (!slots[at].isEmpty() && (slots[at].key != key || !matches(slots[at])))
            at = next(at);
        return slots[at];
    }

    template <typename Matches>
    Slot& find(std::uint32_t key, Matches matches)
    {
        return const_cast<Slot&>(std::as_const(*this).find(key, matches));
    }

    /// Makes room for `count` slots in all: up to that number insertions need no memory. Invalidates references to
    /// slots. Without memory for it, throws and leaves the table as it was.
    void reserve(std::size_t count)
    {
        std::size_t slots = m_slots.size();
        while (slots < 2 * count)
            slots *= 2;
        if (slots != m_slots.size())
            rebuild(slots, m_multiplier);
    }

    /// Without memory for it, throws and leaves the table and `slot` as they were.
    void insert(Slot&& slot)
    {
        reserve(m_size + 1);
        m_isCrowded = place(std::move(slot)) > m_patience;
        ++m_size;
    }

    /// Empties a slot that find() returned.
    void erase(const Slot& slot)
    {
        auto hole = static_cast<std::size_t>(&slot - m_slots.data());
        // What stands behind moves up, so that no look ends at the hole too early, but never before its home.
        for (std::size_t at = next(hole); !m_slots[at].isEmpty(); at = next(at)) {
            if (distance(home(m_slots[at].key, m_multiplier), at) < distance(hole, at))
                continue;
            m_slots[hole] = std::move(m_slots[at]);
            hole = at;
        }
        m_slots[hole] = Slot();
        --m_size;
    }

    /// The probes beyond the first that finding each key once takes.
    std::size_t collisions() const
    {
        std::size_t sum = 0;
        for (std::size_t at = 0; at < m_slots.size(); ++at) {
            if (!m_slots[at].isEmpty())
                sum += distance(home(m_slots[at].key, m_multiplier), at);
        }
        return sum;
    }

    /// Whether the last insertion collided so often that the multiplier may be a bad one for the keys.
    bool isCrowded() const { return m_isCrowded; }

    /// Tries several multipliers and keeps the best one. Invalidates references to slots. Without memory for it, throws
    /// and leaves the table as it was.
    void reduceCollisions()
    {
        std::uint32_t best = m_multiplier;
        std::size_t least = collisions();
        std::uint32_t multiplier = goldenRatio;
        for (int i = 0; i < triedMultipliers && least > m_size / 16; ++i, multiplier *= goldenRatio) {
            const std::size_t count = collisionsWith(multiplier, least);
            if (count < least) {
                best = multiplier;
                least = count;
            }
        }
        if (best != m_multiplier)
            rebuild(m_slots.size(), best);
        if (m_isCrowded)
            m_patience *= 2; // among enough keys, random ones too collide more often than any fixed number
        m_isCrowded = false;
    }

private:
    static constexpr unsigned int leastBits = 3;
    static constexpr std::uint32_t goldenRatio = 0x9E3779B1; // 2^32 over it; its powers are the other multipliers
    static constexpr int triedMultipliers = 6;

    // The high bits of the product depend on all bits of the key.
    std::size_t home(std::uint32_t key, std::uint32_t multiplier) const { return (key * multiplier) >> m_shift; }
    std::size_t next(std::size_t at) const { return (at + 1) & m_mask; }
    std::size_t distance(std::size_t from, std::size_t to) const { return (to - from) & m_mask; }

    /// Returns the number of collisions.
    std::size_t place(Slot&& slot)
    {
        const std::size_t first = home(slot.key, m_multiplier);
        std::size_t at = first;
        while (!m_slots[at].isEmpty())
            at = next(at);
        m_slots[at] = std::move(slot);
        return distance(first, at);
    }

    /// What collisions() would return with this multiplier; stops counting at `limit`.
    std::size_t collisionsWith(std::uint32_t multiplier, std::size_t limit) const
    {
        std::vector<bool> isTaken(m_slots.size());
        std::size_t sum = 0;
        for (const Slot& slot : m_slots) {
            if (slot.isEmpty())
                continue;
            std::size_t at = home(slot.key, multiplier);
            for (; isTaken[at] && sum < limit; ++sum)
                at = next(at);
            isTaken[at] = true;
        }
        return sum;
    }

    /// `count` is a power of two.
    void rebuild(std::size_t count, std::uint32_t multiplier)
    {
        std::vector<Slot> slots(count);
        slots.swap(m_slots);
        m_mask = count - 1;
        for (m_shift = CHAR_BIT * sizeof(multiplier); count > 1; count /= 2)
            --m_shift;
        m_multiplier = multiplier;
        for (Slot& slot : slots) {
            if (!slot.isEmpty())
                place(std::move(slot));
        }
    }

    std::vector<Slot> m_slots = std::vector<Slot>(std::size_t{1} << leastBits);
    std::size_t m_mask = (std::size_t{1} << leastBits) - 1;
    std::uint32_t m_multiplier = goldenRatio;
    unsigned int m_shift = CHAR_BIT * sizeof(std::uint32_t) - leastBits;
    std::size_t m_size = 0;
    std::size_t m_patience = 32; // an insertion with more collisions makes the table crowded
    bool m_isCrowded = false;
};

} // namespace Ombrin
