#pragma once

#include "datastorage/kelstoragedata.h"
#include "kernel/kelvariant.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace KelTest {

/// Equal in content and in type, which CkelVariant::cmp alone does not tell.
inline bool identical(const Ombrin::CkelVariant& a, const Ombrin::CkelVariant& b)
{
    return a.type() == b.type() && a.cmp(b);
}

/// What arrived through the data sensor.
struct Announcement
{
    unsigned int id;
    Ombrin::CkelVariant value;
    int sensorType;
    int merge;
};

/// Items in an ordered map, found by looking at all of them.
class Model
{
public:
    std::map<unsigned int, Ombrin::tagStorageData> items;
    std::map<std::string, unsigned int> names;
    std::vector<Announcement> events;
    std::string printed;

    Ombrin::tagStorageData* live(unsigned int id)
    {
        const auto item = items.find(id);
        return item != items.end() && item->second.Dirty != 3 ? &item->second : nullptr;
    }

    unsigned int idOf(const std::string& name)
    {
        const auto entry = names.find(name);
        return entry != names.end() && live(entry->second) ? entry->second : 0;
    }

    static Ombrin::CkelVariant convert(unsigned int type, const Ombrin::CkelVariant& value)
    {
        const bool integer = (type >= 1 && type <= 7) || type == 11 || type == 12 || type == 14;
        if (integer && value.canConvert(Ombrin::CkelVariant::LongLong))
            return value.toLongLong();
        if ((type == 8 || type == 9) && value.canConvert(Ombrin::CkelVariant::Double))
            return value.toDouble();
        if (type == 10 && value.canConvert(Ombrin::CkelVariant::String))
            return value.toStdString();
        if ((type == 13 || type == 16) && value.canConvert(Ombrin::CkelVariant::ULongLong))
            return value.toULongLong();
        return {};
    }

    void store(Ombrin::tagStorageData& item, const Ombrin::CkelVariant& value, bool merge)
    {
        item.Value = value;
        const Announcement event{item.ID, value, 10, merge ? 1 : 0};
        const auto newest =
            std::find_if(events.rbegin(), events.rend(), [&](const Announcement& e) { return e.id == item.ID; });
        if (merge && newest != events.rend() && newest->merge == 1)
            *newest = event;
        else
            events.push_back(event);
    }

    void insert(const Ombrin::tagStorageData& record)
    {
        if (record.ID == 0)
            return;
        if (items.count(record.ID) == 0) {
            items[record.ID] = record;
            items[record.ID].Dirty = 1;
            names.insert({record.NameID, record.ID});
        } else if (items[record.ID].Dirty == 3) {
            items[record.ID].Dirty = 1;
        } else {
            printed += "CkelMemoryDataStorage::insertData: ID= " + std::to_string(record.ID) + " Already Exists\n";
        }
    }

    void remove(unsigned int id)
    {
        if (items.count(id) != 0)
            items[id].Dirty = 3;
    }

    Ombrin::CkelVariant update(unsigned int id, const Ombrin::CkelVariant& value, bool merge)
    {
        Ombrin::tagStorageData* const item = live(id);
        if (!item)
            return {};
        const Ombrin::CkelVariant before = item->Value;
        if (value.isNull() || convert(item->ValueT, value).cmp(before))
            return before;
        item->Dirty = 2;
        store(*item, convert(item->ValueT, value), merge);
        return before;
    }

    void updateRecord(const Ombrin::tagStorageData& record, bool merge)
    {
        Ombrin::tagStorageData* const item = live(record.ID);
        if (!item)
            return;
        if (item->Dirty != 1)
            item->Dirty = 2;
        item->CommSource = record.CommSource;
        item->DBSource = record.DBSource;
        item->RW = record.RW;
        item->Block = record.Block;
        item->ValueT = record.ValueT;
        item->DefValue = convert(record.ValueT, record.DefValue);
        item->Max = convert(record.ValueT, record.Max);
        item->Min = convert(record.ValueT, record.Min);
        const Ombrin::CkelVariant value = convert(record.ValueT, record.Value);
        if (!value.cmp(item->Value))
            store(*item, value, merge);
    }

    void updateField(unsigned int id, const std::string& field, const Ombrin::CkelVariant& value, bool merge)
    {
        if (field == "Value") {
            update(id, value, merge);
            return;
        }
        if (value.isNull() || items.count(id) == 0)
            return;
        Ombrin::tagStorageData& item = items[id];
        const auto byte = static_cast<std::uint8_t>(value.toUInt() % 256);
        if (field == "Dirty") {
            item.Dirty = byte;
            return;
        }
        if (item.Dirty == 1 || item.Dirty == 3)
            return;
        if (field == "RW")
            item.RW = byte;
        else if (field == "Block")
            item.Block = byte;
        else if (field == "CommSource")
            item.CommSource = byte;
        else if (field == "DefValue")
            item.DefValue = convert(item.ValueT, value);
        else if (field == "Max")
            item.Max = convert(item.ValueT, value);
        else if (field == "Min")
            item.Min = convert(item.ValueT, value);
        else
            return;
        item.Dirty = 2;
    }

    void reset()
    {
        for (auto& [id, item] : items) {
            item.Value = item.DefValue;
            item.Dirty = 2;
        }
    }

    /// What a collection hands over to be saved: kinds of blocks and their records, in the order of the IDs.
    std::vector<std::pair<int, std::vector<Ombrin::tagStorageData>>> collect()
    {
        std::vector<std::pair<int, std::vector<Ombrin::tagStorageData>>> blocks;
        for (const auto& [mark, kind] : {std::pair(2, 1), std::pair(1, 0), std::pair(3, 2)}) {
            std::vector<Ombrin::tagStorageData> records;
            for (auto& [id, item] : items) {
                if (item.Dirty != mark)
                    continue;
                records.push_back(mark == 3 ? Ombrin::tagStorageData{} : item);
                records.back().ID = id;
                if (mark != 3)
                    item.Dirty = 0;
            }
            if (!records.empty())
                blocks.emplace_back(kind, records);
        }
        removeDeleted();
        return blocks;
    }

private:
    void removeDeleted()
    {
        for (auto item = items.begin(); item != items.end();)
            item = item->second.Dirty == 3 ? items.erase(item) : std::next(item);
        for (auto name = names.begin(); name != names.end();)
            name = items.count(name->second) == 0 ? names.erase(name) : std::next(name);
    }
};

} // namespace KelTest
