#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

namespace Ombrin {

/// A growing list of values with forgiving access by position.
///
/// Not synchronised. References stay valid until the list is changed.
/// @ingroup kernel
template <typename T>
class CkelList
{
    static_assert(!std::is_same_v<T, bool>, "a list of bools has no references to give");

public:
    /// Walks the items in the order in which they were appended.
    using const_iterator = typename std::vector<T>::const_iterator;

    /// How many items there are.
    int count() const { return static_cast<int>(m_items.size()); }
    /// True when there is no item.
    bool isEmpty() const { return m_items.empty(); }

    /// Adds `item` at the end.
    void append(T item) { m_items.push_back(std::move(item)); }
    /// Makes room for `count` items in all, so that appending them moves nothing. Negative numbers count as 0.
    void reserve(int count) { m_items.reserve(static_cast<std::size_t>(count < 0 ? 0 : count)); }
    /// Removes all items.
    void clear() { m_items.clear(); }

    /// The item at `index`, from 0, or a default-constructed one when there is none at that position.
    const T& value(int index) const
    {
        static const T* const none = new T{}; // never destroyed: threads may outlive main
        return index >= 0 && index < count() ? m_items[static_cast<std::size_t>(index)] : *none;
    }

    /// The first item, for range-based loops.
    const_iterator begin() const { return m_items.begin(); }
    /// The position behind the last item.
    const_iterator end() const { return m_items.end(); }

private:
    std::vector<T> m_items;
};

} // namespace Ombrin
