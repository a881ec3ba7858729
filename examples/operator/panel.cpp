#include "panel.h"

#include <algorithm>
#include <set>

namespace Demo {

namespace {

bool hasBounds(const Item& item)
{
    return item.Min.toDouble() < item.Max.toDouble();
}

/// Why `entry` is not accepted; empty when it is.
std::string refusal(const Item& item, const CkelVariant& entry)
{
    if (!isWritable(item))
        return "it is read only";
    if (isText(item))
        return {};
    if (!entry.canConvert(CkelVariant::Double))
        return "it is no number";
    if (hasBounds(item) && entry.toDouble() > item.Max.toDouble())
        return "the maximum is " + shown(item, item.Max);
    if (hasBounds(item) && entry.toDouble() < item.Min.toDouble())
        return "the minimum is " + shown(item, item.Min);
    return {};
}

/// A value near the present one that the item takes.
double nearby(const Item& item, double distance)
{
    const double value = item.Value.toDouble();
    return refusal(item, value + distance).empty() ? value + distance : value - distance;
}

bool isSetPoint(const Item& item)
{
    return isNumber(item) && isWritable(item) && hasBounds(item);
}

} // namespace

Panel::Panel(Storage& storage, Display& display, const std::vector<Row>& rows) : m_storage(storage), m_display(display)
{
    std::set<unsigned int> inUse;
    for (const Row& row : rows)
        inUse.insert(row.actual.ID);
    const std::vector<Item> items = allItems(storage);
    const auto take = [&](const char* name) {
        Item item =
            pick(items, name, [&inUse](const Item& one) { return isSetPoint(one) && inUse.count(one.ID) == 0; });
        inUse.insert(item.ID);
        return item;
    };
    m_text = pick(items, "Material_BatchNumber", [](const Item& item) { return isText(item) && isWritable(item); });
    m_setPoint = take("Barrel_Zone3_SetTemperature");
    if (m_setPoint.ID == 0)
        m_setPoint = pick(items, "", isSetPoint); // rather one that moves by itself than none
    const auto takeOrShare = [&](const char* name) {
        Item item = take(name);
        return item.ID != 0 ? item : m_setPoint;
    };
    m_unwanted = take("Conveyor_RunTime_Set");
    m_blockEntry = takeOrShare("Holding_Pressure_Set1");
    m_lastEntry = takeOrShare("Cooling_Time_Set");
    m_deeds = {
        {0.05, [this] { enterText(); }},    {0.15, [this] { changeSetPoint(); }}, {0.30, [this] { enterInBlock(); }},
        {0.45, [this] { enterTooMuch(); }}, {0.60, [this] { resetBlock(); }},     {0.75, [this] { deleteItem(); }},
    };
}

void Panel::goOn(double progress)
{
    while (m_next < m_deeds.size() && m_deeds[m_next].when <= progress)
        m_deeds[m_next++].act();
}

std::string Panel::changeOneMore()
{
    const Item item = m_storage.queryData(m_lastEntry.ID);
    if (item.ID == 0)
        return {};
    const CkelVariant entry = nearby(item, 1);
    m_storage.updateValue(item.ID, entry, false);
    return item.NameID + " changed from " + shown(item, item.Value) + " to " + shown(item, entry);
}

void Panel::enter(const Item& item, const CkelVariant& entry)
{
    const std::string what = "Entry: " + item.NameID + " = " + shown(item, entry);
    const std::string reason = refusal(item, entry);
    if (!reason.empty()) {
        m_display.say(what + " refused, " + reason);
        return;
    }
    const CkelVariant before = m_storage.updateValue(item.ID, entry, false);
    m_display.say(what + " (was " + shown(item, before) + ')');
}

void Panel::enterText()
{
    if (m_text.ID != 0)
        enter(m_text, "B240411-08");
}

void Panel::changeSetPoint()
{
    const Item item = m_storage.queryData(m_setPoint.ID);
    if (item.ID != 0)
        enter(item, nearby(item, 5));
}

void Panel::enterInBlock()
{
    const Item item = m_storage.queryData(m_blockEntry.ID);
    if (item.ID != 0)
        enter(item, nearby(item, 15));
}

void Panel::enterTooMuch()
{
    if (m_setPoint.ID != 0)
        enter(m_setPoint, m_setPoint.Max.toDouble() + 500);
}

void Panel::resetBlock()
{
    if (m_blockEntry.ID == 0)
        return;
    int changed = 0;
    const int block = m_blockEntry.Block;
    for (const Item& item : m_storage.queryDataListByField("Block", Storage::IntegerFieldType, block, Storage::Equal)) {
        if (!isWritable(item) || item.Value.cmp(item.DefValue))
            continue;
        m_storage.updateValue(item.ID, item.DefValue, false);
        ++changed;
    }
    const Item now = m_storage.queryData(m_blockEntry.ID);
    m_display.say("Block " + std::to_string(block) + " reset to its defaults: " + std::to_string(changed) +
                  " values changed, " + now.NameID + " = " + shown(now, now.Value));
}

void Panel::deleteItem()
{
    if (m_unwanted.ID == 0)
        return;
    m_storage.deleteData(m_unwanted.ID);
    m_deleted.push_back(m_unwanted.ID);
    const bool gone = m_storage.queryData(m_unwanted.ID).ID == 0;
    m_display.say("Item deleted: " + m_unwanted.NameID + (gone ? ", no lookup finds it any more" : ""));
}

} // namespace Demo
