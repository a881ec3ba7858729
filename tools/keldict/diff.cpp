#include "diff.h"

#include "failure.h"
#include "fields.h"
#include "words.h"

#include <iostream>
#include <unordered_map>

namespace Keldict {

using Ombrin::tagStorageData;

namespace {

using Index = std::unordered_map<std::uint32_t, const tagStorageData*>;

Index indexOf(const Dictionary& dictionary)
{
    Index index;
    index.reserve(dictionary.items.size());
    for (const tagStorageData& item : dictionary.items)
        index.emplace(item.ID, &item);
    return index;
}

std::vector<Difference::Change> changesOf(const tagStorageData& before, const tagStorageData& after, bool withSource)
{
    std::vector<Difference::Change> changes;
    for (const Field field : allFields) {
        const auto old = contentOf(before, field);
        const auto now = contentOf(after, field);
        if ((field != Field::DBSource || withSource) && !old.cmp(now))
            changes.push_back({nameOf(field), shown(old), shown(now)});
    }
    return changes;
}

void print(const Difference& difference, std::ostream& out)
{
    constexpr std::string_view marks = "-+~";
    out << marks[static_cast<std::size_t>(difference.kind)] << ' ' << difference.id << ' ' << inQuotes(difference.name)
        << '\n';
    for (const auto& change : difference.changes)
        out << "    " << change.field << ": " << change.before << " -> " << change.after << '\n';
}

void printSummary(const std::vector<Difference>& differences, std::ostream& out)
{
    std::array<std::size_t, 3> counts{};
    for (const Difference& difference : differences)
        ++counts[static_cast<std::size_t>(difference.kind)];
    out << counts[0] << " removed, " << counts[1] << " added, " << counts[2] << " changed\n";
}

} // namespace

std::vector<Difference> differencesOf(const Dictionary& before, const Dictionary& after)
{
    std::vector<Difference> differences;
    const bool withSource = !before.isSaved && !after.isSaved;
    const Index afterwards = indexOf(after);
    for (const tagStorageData& item : before.items) {
        const auto found = afterwards.find(item.ID);
        if (found == afterwards.end()) {
            differences.push_back({Difference::Kind::Removed, item.ID, item.NameID, {}});
            continue;
        }
        auto changes = changesOf(item, *found->second, withSource);
        if (!changes.empty())
            differences.push_back({Difference::Kind::Changed, item.ID, item.NameID, std::move(changes)});
    }
    const Index earlier = indexOf(before);
    for (const tagStorageData& item : after.items) {
        if (earlier.count(item.ID) == 0)
            differences.push_back({Difference::Kind::Added, item.ID, item.NameID, {}});
    }
    return differences;
}

int diff(const std::string& before, const std::string& after)
{
    const Dictionary first = loadDictionary(before);
    const auto differences = differencesOf(first, loadDictionary(after));
    for (const Difference& difference : differences)
        print(difference, std::cout);
    if (!differences.empty())
        printSummary(differences, std::cout);
    return differences.empty() ? Clean : Warned;
}

} // namespace Keldict
