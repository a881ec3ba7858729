#pragma once
// Private to datastorage/: not installed.

#include <climits>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Ombrin {

/// A hash table with open addressing, made for lookups: it is at most half full, so that most keys are found at the
/// first look, in one cache line.
///
/// A `Slot` has a `key` of 32 bits, isEmpty(), and is empty when it is new. Equal keys may stand side by side.
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
        std::size_t at = home(key);
        while (!m_slots[at].isEmpty() && (m_slots[at].key != key || !matches(m_slots[at])))
            at = next(at);
        return m_slots[at];
    }

    template <typename Matches>
    Slot& find(std::uint32_t key, Matches matches)
    {
        return const_cast<Slot&>(std::as_const(*this).find(key, matches));
    }

    /// Makes room for `count` slots in all: up to that number insertions need no memory.
    void reserve(std::size_t count)
    {
        unsigned int bits = m_bits;
        while (std::size_t{1} << bits < 2 * count)
            ++bits;
        if (bits != m_bits)
            resize(bits);
    }

    /// Without memory for it, throws and leaves the table and `slot` as they were.
    void insert(Slot&& slot)
    {
        reserve(m_size + 1);
        place(std::move(slot));
        ++m_size;
    }

    /// Empties a slot that find() returned.
    void erase(const Slot& slot)
    {
        auto hole = static_cast<std::size_t>(&slot - m_slots.data());
        // What stands behind moves up, so that no look ends at the hole too early, but never before its home.
        for (std::size_t at = next(hole); !m_slots[at].isEmpty(); at = next(at)) {
            if (distance(home(m_slots[at].key), at) < distance(hole, at))
                continue;
            m_slots[hole] = std::move(m_slots[at]);
            hole = at;
        }
        m_slots[hole] = Slot();
        --m_size;
    }

private:
    static constexpr unsigned int leastBits = 3;
    static constexpr std::uint32_t goldenRatio = 0x9E3779B1; // 2^32 over it

    // The high bits of the product depend on all bits of the key.
    std::size_t home(std::uint32_t key) const { return (key * goldenRatio) >> (CHAR_BIT * sizeof(key) - m_bits); }
    std::size_t next(std::size_t at) const { return (at + 1) & (m_slots.size() - 1); }
    std::size_t distance(std::size_t from, std::size_t to) const { return (to - from) & (m_slots.size() - 1); }

    void place(Slot&& slot)
    {
        std::size_t at = home(slot.key);
        while (!m_slots[at].isEmpty())
            at = next(at);
        m_slots[at] = std::move(slot);
    }

    void resize(unsigned int bits)
    {
        std::vector<Slot> slots(std::size_t{1} << bits);
        slots.swap(m_slots);
        m_bits = bits;
        for (Slot& slot : slots) {
            if (!slot.isEmpty())
                place(std::move(slot));
        }
    }

    std::vector<Slot> m_slots = std::vector<Slot>(std::size_t{1} << leastBits);
    unsigned int m_bits = leastBits;
    std::size_t m_size = 0;
};

} // namespace Ombrin
