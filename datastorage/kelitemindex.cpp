#include "datastorage/kelitemindex.h"

#include <iterator>
#include <stdexcept>
#include <utility>

namespace Ombrin {

namespace {

constexpr std::size_t wordBits = 64;

std::size_t wordOf(std::size_t position)
{
    return position / wordBits;
}

} // namespace

// By ID

void CkelMemoryDataStorage::IDMap::reserve(std::size_t count)
{
    m_table.reserve(count);
    m_records.reserve(count);
}

void CkelMemoryDataStorage::IDMap::insert(std::unique_ptr<tagStorageData> record)
{
    if (m_table.isCrowded())
        m_table.reduceCollisions();
    m_table.reserve(size() + 1);
    m_isMarked.resize(wordOf(size()) + 1);
    m_records.push_back(std::move(record));
    tagStorageData* const item = m_records.back().get();
    m_table.insert({item->ID, static_cast<std::uint32_t>(size() - 1), item});
    ++m_counts[item->Dirty];
    noteMark(size() - 1, item->Dirty);
}

void CkelMemoryDataStorage::IDMap::erase(unsigned int id)
{
    const Slot& slot = m_table.find(id, anySlot);
    const tagStorageData& last = *m_records.back();
    --m_counts[slot.record->Dirty];
    noteMark(slot.position, last.Dirty);
    noteMark(size() - 1, DirtyClean);
    m_table.find(last.ID, anySlot).position = slot.position;
    m_records[slot.position].swap(m_records.back());
    m_table.erase(slot);
    m_records.pop_back();
}

void CkelMemoryDataStorage::IDMap::changeMark(tagStorageData& item, std::uint8_t mark)
{
    --m_counts[item.Dirty];
    ++m_counts[mark];
    item.Dirty = mark;
    noteMark(m_table.find(item.ID, anySlot).position, mark);
}

void CkelMemoryDataStorage::IDMap::noteMark(std::size_t position, std::uint8_t mark)
{
    const std::uint64_t bit = std::uint64_t{1} << position % wordBits;
    std::uint64_t& word = m_isMarked[wordOf(position)];
    word = mark != DirtyClean ? word | bit : word & ~bit;
}

std::vector<unsigned int> CkelMemoryDataStorage::IDMap::withMarks(const Marks& wanted) const
{
    std::size_t count = 0;
    for (std::size_t mark = 0; mark < wanted.size(); ++mark)
        count += wanted[mark] ? m_counts[mark] : 0;
    std::vector<unsigned int> ids;
    ids.reserve(count);
    for (std::size_t word = 0; ids.size() < count; ++word) {
        std::uint64_t bits = wanted[DirtyClean] ? ~std::uint64_t{0} : m_isMarked[word];
        for (std::size_t i = word * wordBits; bits != 0 && ids.size() < count; ++i, bits >>= 1U) {
            if ((bits & 1U) != 0 && wanted[m_records[i]->Dirty])
                ids.push_back(m_records[i]->ID);
        }
    }
    return ids;
}

// By name

void CkelMemoryDataStorage::NameMap::throwMissing()
{
    throw std::out_of_range("_Map_base::at");
}

tagStorageData* CkelMemoryDataStorage::NameMap::findOther(const std::string& name) const
{
    const auto other = m_others.find(name);
    return other != m_others.end() ? &itemOf(other->second) : nullptr;
}

void CkelMemoryDataStorage::NameMap::insert(const tagStorageData& record)
{
    const std::string& name = record.NameID;
    const std::uint32_t key = keyOf(name);
    if (bearerOf(name, key) || m_others.count(name) != 0)
        return;
    if (record.ID != 0 && itemOf(record.ID).NameID == name)
        m_table.insert({key, record.ID});
    else
        m_others.emplace(name, record.ID);
}

void CkelMemoryDataStorage::NameMap::erase(const tagStorageData& item)
{
    const Slot& slot = m_table.find(keyOf(item.NameID), [&](const Slot& found) { return found.id == item.ID; });
    if (!slot.isEmpty())
        m_table.erase(slot);
}

void CkelMemoryDataStorage::NameMap::eraseOthers()
{
    for (auto other = m_others.begin(); other != m_others.end();)
        other = m_items.find(other->second) ? std::next(other) : m_others.erase(other);
}

} // namespace Ombrin
