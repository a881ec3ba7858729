#include "restartreport.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <sstream>

namespace Demo {

namespace {

constexpr const char* expectedFile = "expected.txt";

/// What one item was before the restart.
struct Expected
{
    unsigned int id = 0;
    bool changed = false; ///< in the last run
    bool deleted = false; ///< in the last run
    bool empty = false;   ///< a null value
    std::string text;     ///< the value
};

/// One kind of outcome, and the items that met it.
struct Outcome
{
    std::string meaning;
    std::size_t mostLines; ///< of those that are printed
    std::vector<std::string> lines;
};

/// All outcomes, in the order in which they are printed.
struct Report
{
    Outcome unchanged{"unchanged in the last run: as before", 0, {}};
    Outcome entries{"changed, writable: came back", 20, {}};
    Outcome reports{"changed, read only: came back", 10, {}};
    Outcome undeleted{"deleted: there again, as its row stays in the file", 6, {}};
    Outcome texts{"text: did not come back, as the file keeps a text as a number, mostly 0", 6, {}};
    Outcome bitFields{"bit field: did not come back, as its row is skipped", 6, {}};
    Outcome empty{"without a value: did not come back, as that is saved as 0", 6, {}};
    Outcome lost{"did not come back, and should have", 20, {}};
};

std::string escaped(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        if (c == '\\' || c == '\n')
            result += '\\';
        result += c == '\n' ? 'n' : c;
    }
    return result;
}

std::string unescaped(const std::string& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool escape = text[i] == '\\' && i + 1 < text.size();
        if (escape)
            ++i;
        result += escape && text[i] == 'n' ? '\n' : text[i];
    }
    return result;
}

std::vector<Expected> readExpected()
{
    std::vector<Expected> all;
    std::ifstream file(expectedFile);
    std::string line;
    while (std::getline(file, line)) {
        Expected one;
        std::istringstream fields(line);
        fields >> one.id >> one.changed >> one.deleted >> one.empty;
        fields.ignore(); // the blank before the value
        std::getline(fields, one.text);
        one.text = unescaped(one.text);
        all.push_back(one);
    }
    return all;
}

CkelVariant valueOf(const Storage& storage, const Item& item, const Expected& expected)
{
    return expected.empty ? CkelVariant() : storage.toStoreValue(item.ValueT, expected.text);
}

Outcome& outcomeOf(const Expected& expected, const Item& item, bool same, Report& report)
{
    if (item.ID != 0 && expected.deleted)
        return report.undeleted;
    if (same && !expected.changed)
        return report.unchanged;
    if (same)
        return isWritable(item) ? report.entries : report.reports;
    if (isText(item))
        return report.texts;
    if (isBitField(item))
        return report.bitFields;
    return expected.empty ? report.empty : report.lost;
}

void sortIn(const Storage& storage, const Expected& expected, Report& report)
{
    constexpr std::size_t nameWidth = 36;
    const Item item = storage.queryData(expected.id);
    const CkelVariant before = valueOf(storage, item, expected);
    const bool same = item.ID != 0 && item.Value.cmp(before);
    const std::string name = item.ID != 0 ? item.NameID : std::to_string(expected.id);
    const std::string now = item.ID != 0 ? shown(item, item.Value) : "no such item";
    outcomeOf(expected, item, same, report)
        .lines.push_back(alignedLeft(name, nameWidth) + (same ? now : shown(item, before) + " -> " + now));
}

void print(const Outcome& outcome)
{
    if (outcome.lines.empty())
        return;
    std::cout << '\n' << alignedRight(std::to_string(outcome.lines.size()), 5) << "  " << outcome.meaning << '\n';
    const std::size_t count = std::min(outcome.lines.size(), outcome.mostLines);
    for (std::size_t i = 0; i < count; ++i)
        std::cout << "         " << outcome.lines[i] << '\n';
    if (count != 0 && count < outcome.lines.size())
        std::cout << "         ... and " << outcome.lines.size() - count << " more\n";
}

} // namespace

bool writeExpected(const Storage& storage, const std::vector<Item>& before, const std::set<unsigned int>& changed)
{
    std::ofstream file(expectedFile);
    for (const Item& old : before) {
        const Item item = storage.queryData(old.ID);
        const bool deleted = item.ID == 0;
        const CkelVariant& value = deleted ? old.Value : item.Value;
        file << old.ID << ' ' << (changed.count(old.ID) != 0) << ' ' << deleted << ' ' << value.isNull() << ' '
             << escaped(value.toStdString()) << '\n';
    }
    file.close();
    return !file.fail();
}

bool reportRestored(const Storage& storage)
{
    Report report;
    std::vector<Expected> all = readExpected();
    // Counters and states first: they say more than the many temperatures.
    std::stable_partition(all.begin(), all.end(),
                          [&](const Expected& one) { return !isReal(storage.queryData(one.id)); });
    for (const Expected& expected : all)
        sortIn(storage, expected, report);
    for (const Outcome* outcome : {&report.unchanged, &report.entries, &report.reports, &report.undeleted,
                                   &report.texts, &report.bitFields, &report.empty, &report.lost})
        print(*outcome);
    return report.lost.lines.empty();
}

} // namespace Demo
