#include "itemrules.h"

#include "savedform.h"
#include "words.h"

#include "datastorage/kelstoredform.h"

#include <cmath>
#include <limits>
#include <utility>

namespace Keldict {

using Ombrin::CkelVariant;
using Ombrin::storedForm;
using Ombrin::tagStorageData;

namespace {

bool holdsValues(const tagStorageData& record)
{
    return !storedForm(record.ValueT, 0).isNull();
}

/// Of two numbers in one stored form.
bool isLess(const CkelVariant& a, const CkelVariant& b)
{
    if (a.type() == CkelVariant::Double)
        return a.toDouble() < b.toDouble();
    if (a.type() == CkelVariant::ULongLong)
        return a.toULongLong() < b.toULongLong();
    return a.toLongLong() < b.toLongLong();
}

std::string fieldAnd(Field field, const std::string& text)
{
    return std::string(nameOf(field)) + " " + text;
}

void checkNumberAndName(const CheckedItem& item, std::vector<Finding>& findings)
{
    const tagStorageData& record = item.record;
    if (record.ID > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max())) {
        const auto saved = std::to_string(static_cast<std::int32_t>(record.ID));
        findings.push_back(warning(Rules::largeId, item, Field::ID, "ID " + std::to_string(record.ID),
                                   "The saved file holds it as " + saved + "."));
    }
    if (record.NameID.empty())
        findings.push_back(warning(Rules::emptyName, item, Field::NameID, "the item has no name",
                                   "It is found by the name \"\", as any other without one."));
}

void checkType(const CheckedItem& item, std::vector<Finding>& findings)
{
    const std::string type = "value type " + std::to_string(item.record.ValueT);
    if (!holdsValues(item.record))
        findings.push_back(warning(Rules::unknownType, item, Field::ValueT, type,
                                   "Every update makes the value nothing, and a restart does not read it back.",
                                   "types are 1 to 14 and 16"));
    else if (!afterRestart(item.record))
        findings.push_back(warning(Rules::typeNotRestored, item, Field::ValueT, type,
                                   "The value is saved, but a restart does not read it back and says so.",
                                   "13, where the value has to survive"));
}

std::string restartEffect(const CheckedItem& item)
{
    const auto restored = afterRestart(item.record);
    return restored ? " A restart with saved values makes it " + shown(*restored) + "." : "";
}

/// What happens to a value that the type holds otherwise, or not at all.
std::string effectOf(const CheckedItem& item, Field field, const CkelVariant& stored)
{
    const std::string kept = "Kept as it is at first.";
    if (field == Field::Value)
        return kept + (stored.isNull() ? "" : " The same value as an update becomes " + shown(stored) + ".") +
               restartEffect(item);
    if (field == Field::DefValue)
        return kept + " A reset makes it the value, unconverted.";
    return stored.isNull() ? "No bound can be read from it."
                           : kept + " In the type's form it is " + shown(stored) + ".";
}

/// The value that was probably meant where the type holds `stored` instead; nothing where that is a guess.
std::string meantBy(const CkelVariant& value, const CkelVariant& stored)
{
    if (stored.isNull() || (value.type() != CkelVariant::Double && value.type() != CkelVariant::String))
        return {};
    if (!isFinite(stored))
        return "a number; JSON has neither NaN nor infinity";
    const bool isInteger = stored.type() == CkelVariant::LongLong || stored.type() == CkelVariant::ULongLong;
    if (isInteger && !(std::fabs(value.toDouble() - stored.toDouble()) < 1))
        return "a number that 64 bits hold";
    return shown(stored);
}

/// A value as the file writes it, unless the type holds another one.
std::string quoted(const CheckedItem& item, Field field, const CkelVariant& stored)
{
    const CkelVariant& value = valueOf(item.record, field);
    const bool isKept = value.type() != CkelVariant::String && stored.cmp(value);
    return isKept && item.gives(field) ? item.written(field) : shown(stored);
}

void checkConversion(const CheckedItem& item, Field field, std::vector<Finding>& findings)
{
    const CkelVariant& value = valueOf(item.record, field);
    const CkelVariant stored = storedForm(item.record.ValueT, value);
    if (value.isNull() || stored.cmp(value))
        return;
    const std::string what = fieldAnd(field, item.written(field)) + " where value type " +
                             std::to_string(item.record.ValueT) + " holds " + std::string(formOf(item.record.ValueT));
    const Rule& rule = stored.isNull() ? Rules::unconvertibleValue : Rules::changedValue;
    findings.push_back(warning(rule, item, field, what, effectOf(item, field, stored), meantBy(value, stored)));
}

void checkSavedForm(const CheckedItem& item, Field field, std::vector<Finding>& findings)
{
    const tagStorageData& record = item.record;
    const CkelVariant& value = valueOf(record, field);
    const auto saved = savedAndRead(record, field);
    if (!saved || value.isNull() || !storedForm(record.ValueT, value).cmp(value))
        return;
    const CkelVariant read = storedForm(record.ValueT, *saved);
    if (read.cmp(value))
        return;
    findings.push_back(
        warning(Rules::roundedWhenSaved, item, field,
                fieldAnd(field, item.written(field)) + " beside Value " + quoted(item, Field::Value, record.Value),
                "The saved file holds it in the form of Value, as " + shown(read) +
                    "; a device that starts from that file alone gets this.",
                "Value with a decimal point, such as 5.0"));
}

void checkText(const CheckedItem& item, std::vector<Finding>& findings)
{
    const auto restored = afterRestart(item.record);
    if (!restored || restored->cmp(storedForm(item.record.ValueT, item.record.Value)))
        return;
    findings.push_back(warning(Rules::textNotRestored, item, Field::Value, "the text " + shown(item.record.Value),
                               "The saved file keeps the number that the text reads as: a restart with saved values "
                               "makes it " +
                                   shown(*restored) + "."));
}

void checkWithinBounds(const CheckedItem& item, Field field, const CkelVariant& low, const CkelVariant& high,
                       std::vector<Finding>& findings)
{
    const CkelVariant value = storedForm(item.record.ValueT, valueOf(item.record, field));
    if (value.isNull() || (!isLess(value, low) && !isLess(high, value)))
        return;
    const std::string bounds = quoted(item, Field::Min, low) + " to " + quoted(item, Field::Max, high);
    findings.push_back(warning(Rules::outOfBounds, item, field,
                               fieldAnd(field, quoted(item, field, value)) + " outside " + bounds,
                               "It is taken as it is: bounds are reported, never applied."));
}

void checkBounds(const CheckedItem& item, std::vector<Finding>& findings)
{
    const CkelVariant low = storedForm(item.record.ValueT, item.record.Min);
    const CkelVariant high = storedForm(item.record.ValueT, item.record.Max);
    if (low.isNull() || high.isNull())
        return;
    if (isLess(high, low)) {
        const std::string min = quoted(item, Field::Min, low);
        const std::string max = quoted(item, Field::Max, high);
        findings.push_back(warning(Rules::boundsExchanged, item, Field::Min, "Min " + min + " above Max " + max,
                                   "Both are reported as they are: a screen that keeps to them takes no value.",
                                   isFinite(low) && isFinite(high) ? "Min " + max + " and Max " + min : std::string()));
        return;
    }
    checkWithinBounds(item, Field::Value, low, high, findings);
    checkWithinBounds(item, Field::DefValue, low, high, findings);
}

} // namespace

Finding warning(const Rule& rule, const CheckedItem& item, Field field, std::string what, std::string effect,
                std::string meant)
{
    constexpr std::size_t longestName = 200; // bytes: an item with a long name may have very many findings
    const tagStorageData& record = item.record;
    return {&rule,
            Severity::Warning,
            item.placeOf(field),
            record.ID != 0 ? std::optional(record.ID) : std::nullopt,
            shortened(record.NameID, longestName),
            std::move(what),
            std::move(effect),
            std::move(meant),
            {},
            {}};
}

void checkItem(const CheckedItem& item, std::vector<Finding>& findings)
{
    checkNumberAndName(item, findings);
    checkType(item, findings);
    if (!holdsValues(item.record))
        return;
    const bool isText = item.record.ValueT == Ombrin::ValueTypeText;
    for (const Field field : valueFields) {
        if (!item.gives(field))
            continue;
        checkConversion(item, field, findings);
        if (!isText)
            checkSavedForm(item, field, findings);
    }
    if (isText)
        checkText(item, findings);
    else
        checkBounds(item, findings);
}

} // namespace Keldict
