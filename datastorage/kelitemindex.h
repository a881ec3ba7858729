#pragma once
// Private to datastorage/: not installed.

#include "datastorage/kelmemorydatastorage.h"
#include "datastorage/kelopentable.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Ombrin {

/// The items by ID. Their records keep their addresses. Their change marks are set through setMark() only, so that the
/// items of a mark are found without a walk over all items.
class CkelMemoryDataStorage::IDMap
{
public:
    std::size_t size() const { return m_records.size(); }
    void reserve(std::size_t count);

    /// To be called after loading: adapts the table to the IDs. Without memory for it, throws and leaves the map as it
    /// was.
    void optimize() { m_table.reduceCollisions(); }

    /// The probes beyond the first that finding each item once takes.
    std::size_t collisions() const { return m_table.collisions(); }

    /// Null for an ID that is not there.
    tagStorageData* find(unsigned int id) const { return m_table.find(id, anySlot).record; }

    /// Takes a record whose ID is not there yet. Without memory for it, throws and leaves the map as it was.
    void insert(std::unique_ptr<tagStorageData> record);

    /// The ID must be there.
    void erase(unsigned int id);

    /// Sets the change mark of one of the items.
    void setMark(tagStorageData& item, std::uint8_t mark)
    {
        if (item.Dirty != mark)
            changeMark(item, mark);
    }

    /// False while no item is marked deleted: lookups then skip the mark, two cache lines behind the value.
    bool anyDeleted() const { return m_counts[DirtyDeleted] != 0; }

    /// For each mark whether it is wanted.
    using Marks = std::array<bool, 256>;

    /// The IDs of the items of these marks. Takes constant time when there are none, and looks only at items that are
    /// not clean unless DirtyClean is wanted.
    std::vector<unsigned int> withMarks(const Marks& wanted) const;

    /// Calls `visit` with each record, in no particular order.
    template <typename Visit>
    void forEach(Visit visit) const
    {
        for (const auto& record : m_records)
            visit(*record);
    }

private:
    struct Slot
    {
        std::uint32_t key = 0;
        std::uint32_t position = 0; // in the list
        tagStorageData* record = nullptr;

        bool isEmpty() const { return !record; }
    };

    static constexpr auto anySlot = [](const Slot& /*slot*/) { return true; };

    void changeMark(tagStorageData& item, std::uint8_t mark);
    void noteMark(std::size_t position, std::uint8_t mark);

    OpenTable<Slot> m_table;
    std::vector<std::unique_ptr<tagStorageData>> m_records; // a walk over it meets the records as they were loaded
    std::vector<std::uint64_t> m_isMarked;                  // a bit for each record: its mark is not DirtyClean
    std::array<std::uint32_t, 256> m_counts{};              // the number of items of each mark
};

/// The IDs by name. The names are the records' own; only those that an item does not bear itself are kept here.
class CkelMemoryDataStorage::NameMap
{
public:
    explicit NameMap(const IDMap& items) : m_items(items) {}

    std::size_t size() const { return m_table.size() + m_others.size(); }
    void reserve(std::size_t count) { m_table.reserve(count); }

    /// The item that the name leads to, null for an unknown name. Throws when there is no such item.
    tagStorageData* find(const std::string& name) const
    {
        tagStorageData* const item = bearerOf(name, keyOf(name));
        return item || m_others.empty() ? item : findOther(name);
    }

    /// Lets the record's name lead to its ID, under which there is an item, unless the name is known already. Without
    /// memory for it, throws and leaves the map as it was.
    void insert(const tagStorageData& record);

    /// Forgets the item's own name, if it leads to the item.
    void erase(const tagStorageData& item);

    /// Forgets the other names of items that are not there any more.
    void eraseOthers();

private:
    struct Slot
    {
        std::uint32_t key = 0;
        std::uint32_t id = 0;

        bool isEmpty() const { return id == 0; }
    };

    static std::uint32_t keyOf(const std::string& name)
    {
        return static_cast<std::uint32_t>(std::hash<std::string>()(name));
    }

    /// The item that was entered under its own name; null when there is none.
    tagStorageData* bearerOf(const std::string& name, std::uint32_t key) const
    {
        tagStorageData* item = nullptr;
        const Slot& slot = m_table.find(key, [&](const Slot& candidate) {
            item = &itemOf(candidate.id);
            return item->NameID == name;
        });
        return slot.isEmpty() ? nullptr : item;
    }

    tagStorageData& itemOf(unsigned int id) const
    {
        tagStorageData* const item = m_items.find(id);
        if (!item)
            throwMissing();
        return *item;
    }

    [[noreturn]] static void throwMissing();
    tagStorageData* findOther(const std::string& name) const;

    const IDMap& m_items;
    OpenTable<Slot> m_table;
    std::unordered_map<std::string, unsigned int> m_others; // of an ID given twice, and those of ID 0
};

} // namespace Ombrin
