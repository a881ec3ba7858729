#include "show.h"

#include "dictionary.h"
#include "failure.h"
#include "fields.h"
#include "words.h"
#include "writejson.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <vector>

#include <fnmatch.h>

namespace Keldict {

using Ombrin::tagStorageData;

namespace {

using Row = std::vector<std::string>;

constexpr std::array columns{Field::ID,  Field::NameID, Field::ValueT, Field::Value,      Field::DefValue, Field::Min,
                             Field::Max, Field::Block,  Field::RW,     Field::CommSource, Field::DBSource};

bool isSelected(const tagStorageData& item, const Selection& selection)
{
    if (item.ID < selection.firstId || item.ID > selection.lastId)
        return false;
    if (selection.block && *selection.block != item.Block)
        return false;
    return selection.nameGlob.empty() || fnmatch(selection.nameGlob.c_str(), item.NameID.c_str(), 0) == 0;
}

/// On one line and fit for a terminal; without quotes where it can do without.
std::string cellOf(const tagStorageData& item, Field field)
{
    const Ombrin::CkelVariant content = contentOf(item, field);
    if (field != Field::NameID)
        return content.isNull() ? "-" : shown(content);
    const std::string name = inQuotes(content.toStdString());
    const std::string bare = name.substr(1, name.size() - 2);
    return bare == item.NameID && !bare.empty() ? bare : name;
}

/// Numbers stand right, texts left.
std::string aligned(const std::string& cell, std::size_t width, bool left)
{
    const std::string padding(width - widthOf(cell), ' ');
    return left ? cell + padding : padding + cell;
}

void printRow(const Row& row, const std::vector<std::size_t>& widths)
{
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
        const bool isText = columns[i] == Field::NameID || row[i].front() == '"';
        line += (i == 0 ? "" : "  ") + aligned(row[i], widths[i], isText);
    }
    std::cout << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
}

void printTable(const Dictionary& dictionary)
{
    const std::size_t count = columns.size() - (dictionary.isSaved ? 1 : 0); // DBSource is the last one
    std::vector<Row> rows(1);
    for (std::size_t i = 0; i < count; ++i)
        rows[0].emplace_back(nameOf(columns[i]));
    for (const tagStorageData& item : dictionary.items) {
        rows.emplace_back();
        for (std::size_t i = 0; i < count; ++i)
            rows.back().push_back(cellOf(item, columns[i]));
    }
    std::vector<std::size_t> widths(count);
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < count; ++i)
            widths[i] = std::max(widths[i], widthOf(row[i]));
    }
    for (const Row& row : rows)
        printRow(row, widths);
}

/// JSON is UTF-8: stray bytes become the replacement character.
void repairTexts(tagStorageData& item)
{
    item.NameID = repaired(item.NameID);
    for (Ombrin::CkelVariant* value : {&item.Value, &item.DefValue, &item.Max, &item.Min}) {
        if (value->type() == Ombrin::CkelVariant::String)
            *value = repaired(value->toStdString());
    }
}

} // namespace

int show(const std::string& file, const Selection& selection, bool asJson)
{
    Dictionary dictionary = loadDictionary(file);
    auto& items = dictionary.items;
    items.erase(std::remove_if(items.begin(), items.end(),
                               [&](const tagStorageData& item) { return !isSelected(item, selection); }),
                items.end());
    if (asJson) {
        std::for_each(items.begin(), items.end(), repairTexts);
        writeJson(dictionary, std::cout);
    } else {
        printTable(dictionary);
    }
    return Clean;
}

} // namespace Keldict
