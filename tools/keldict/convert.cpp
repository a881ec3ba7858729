#include "convert.h"

#include "diff.h"
#include "failure.h"
#include "fields.h"
#include "outputfile.h"
#include "source.h"
#include "words.h"
#include "writedatabase.h"
#include "writejson.h"

#include "datastorage/kelstoredform.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>

namespace Keldict {

using Ombrin::CkelVariant;

namespace {

void refuseName(const std::string& out)
{
    if (!endsWith(out, ".json") && !endsWith(out, ".db"))
        throw Failure(Misused, out + ": the name has to end in .json or .db, which tells what is written");
    if (std::filesystem::path(out).filename() == "kelmem.db")
        throw Failure(Misused, out + ": that is the name of the device's saved file, which is no configuration");
}

/// The dictionary with values in the form in which the value types store them. A database is read in that form only: a
/// text in place of a number would be read as 0. In JSON a number keeps its form, as the device reads it.
Dictionary stored(Dictionary dictionary, bool asDatabase)
{
    for (Ombrin::tagStorageData& item : dictionary.items) {
        for (CkelVariant* value : {&item.Value, &item.DefValue, &item.Max, &item.Min}) {
            const CkelVariant form = Ombrin::storedForm(item.ValueT, *value);
            const bool isText = value->type() == CkelVariant::String;
            if ((asDatabase || isText) && !form.isNull() && isFinite(form))
                *value = form;
        }
    }
    return dictionary;
}

void write(const Dictionary& dictionary, const std::string& path, bool asDatabase)
{
    if (asDatabase) {
        writeDatabase(dictionary, path);
        return;
    }
    std::ofstream file(path, std::ios::binary);
    writeJson(dictionary, file);
    file.close();
    if (!file)
        throw Failure(Unreadable, path + ": cannot be written");
}

void say(const std::string& what)
{
    std::cout << "not kept: " << what << '\n';
}

/// The same change of many items is told once.
void sayChanges(const std::vector<Difference>& differences)
{
    constexpr std::size_t shownInFull = 3;
    std::map<std::string_view, std::size_t> counts;
    for (const Difference& difference : differences) {
        for (const auto& change : difference.changes) {
            if (++counts[change.field] <= shownInFull)
                say(std::string(change.field) + " " + change.before + " of item " + std::to_string(difference.id) +
                    ", which is read back as " + change.after);
        }
    }
    for (const auto& [field, count] : counts) {
        if (count > shownInFull)
            say(std::string(field) + " of " + counted(count - shownInFull, "more item"));
    }
}

void sayLostItems(const std::vector<Difference>& differences)
{
    for (const Difference& difference : differences) {
        if (difference.kind == Difference::Kind::Removed)
            say("item " + std::to_string(difference.id) + " " + inQuotes(difference.name) +
                ": databases know the value types 1 to 14 only");
    }
}

} // namespace

int convert(const std::string& in, const std::string& out, bool force)
{
    refuseName(out);
    const Dictionary dictionary = loadDictionary(in);
    OutputFile file(out, force);
    const bool asDatabase = endsWith(out, ".db");
    write(stored(dictionary, asDatabase), file.temporaryName(), asDatabase);

    // What the library reads back, and nothing else, tells what is kept.
    const auto differences = differencesOf(dictionary, loadDictionary(file.temporaryName()));
    file.publish();
    for (const std::string& note : dictionary.notes)
        say(note);
    sayLostItems(differences);
    sayChanges(differences);
    const auto lost = std::count_if(differences.begin(), differences.end(), [](const Difference& difference) {
        return difference.kind == Difference::Kind::Removed;
    });
    std::cout << counted(dictionary.items.size() - static_cast<std::size_t>(lost), "item") << " written to " << out
              << '\n';
    return differences.empty() && dictionary.notes.empty() ? Clean : Warned;
}

} // namespace Keldict
