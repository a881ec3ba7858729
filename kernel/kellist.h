#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

namespace Ombrin {

/// A growing list of values with forgiving access by position.
///
/// Not synchronised. References stay valid until the list is changed.
template <typename T>
class CkelList
{
    static_assert(!std::is_same_v<T, bool>, "a list of bools has no references to give");

public:
    using const_iterator = typename std::vector<T>::const_iterator;

    int count() const { return static_cast<int>(m_items.size()); }
    bool isEmpty() const { return m_items.empty(); }

    void append(T item) { m_items.push_back(std::move(item)); }
    void reserve(int count) { m_items.reserve(static_cast<std::size_t>(count < 0 ? 0 : count)); }
    void clear() { m_items.clear(); }

    /// The item at `index`, or a default-constructed one when there is none at that position.
    const T& value(int index) const
    {
        static const T* const none = new T{}; // never destroyed: threads may outlive main
        return index >= 0 && index < count() ? m_items[static_cast<std::size_t>(index)] : *none;
    }

    const_iterator begin() const { return m_items.begin(); }
    const_iterator end() const { return m_items.end(); }

private:
    std::vector<T> m_items;
};

} // namespace Ombrin
