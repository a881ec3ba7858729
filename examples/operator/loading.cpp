#include "loading.h"

#include <unistd.h>

#include <fstream>
#include <iostream>
#include <system_error>

namespace Demo {

namespace {

namespace fs = std::filesystem;

/// Without its dictionary the library goes on: it reports a JSON file that it cannot open, ignores other names, and
/// makes an empty table of saved values, which then takes no value in any later run.
std::string checkDictionary(const fs::path& file)
{
    const std::string name = file.string();
    std::error_code error;
    if (!fs::exists(file, error))
        return "There is no dictionary " + name;
    if (!fs::is_regular_file(file, error))
        return name + " is no file";
    if (file.extension() != ".json" && file.extension() != ".db")
        return "The name of a dictionary ends in .json or .db, not so " + name;
    if (!std::ifstream(file).is_open())
        return "Cannot read the dictionary " + name;
    return {};
}

std::string enterFolder(const fs::path& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (!error)
        fs::current_path(folder, error);
    if (error)
        return "Cannot use the folder " + folder.string() + ": " + error.message() + "; choose another with --folder";
    const bool writable =
        access(".", W_OK) == 0 && (access(savedValuesFile, F_OK) != 0 || access(savedValuesFile, W_OK) == 0);
    return writable ? std::string()
                    : "Cannot write in the folder " + folder.string() + "; choose another with --folder";
}

void explainUnknownType()
{
    std::cout << "Any line \"Unknown Type 16\" stands for a bit field: the library cannot read its row back from a\n"
                 "database, and leaves it out, for good when it then rebuilds its table.\n";
}

} // namespace

std::string prepareFiles(const Options& options)
{
    if (std::string trouble = checkDictionary(options.dictionary); !trouble.empty())
        return trouble;
    if (std::string trouble = enterFolder(options.folder); !trouble.empty())
        return trouble;
    std::error_code error;
    if (fs::equivalent(options.dictionary, savedValuesFile, error))
        return options.dictionary.string() + " holds the saved values and is no dictionary";
    return {};
}

std::string load(Storage& storage, const Options& options)
{
    const bool first = !storage.hasLocalDB();
    std::cout << "Dictionary:   " << options.dictionary.string()
              << "\nSaved values: " << (options.folder / savedValuesFile).string() << (first ? " (new)" : "") << '\n';
    if (!first || isDatabase(options))
        explainUnknownType();

    storage.readConfigFile(options.dictionary.string(), true);
    const std::size_t count = allItems(storage).size();
    if (count == 0)
        return "Found no items in " + options.dictionary.string();
    std::cout << count << " items loaded" << (first ? "" : ", with the values saved last time") << ".\n";
    return {};
}

void registerItems(Storage& storage)
{
    std::cout << "A configuration database is not copied to the file of saved values, where a changed value needs a\n"
                 "row to go to. So every item is marked as inserted once, and written before production starts.\n";
    for (const Item& item : allItems(storage))
        storage.updateField(item.ID, "Dirty", int{Ombrin::DirtyInserted}, false);
}

bool isRegistering(const Storage& storage)
{
    return !storage.queryDataListByField("Dirty", Storage::IntegerFieldType, int{Ombrin::DirtyInserted}, Storage::Equal)
                .empty();
}

bool isDatabase(const Options& options)
{
    return options.dictionary.extension() == ".db";
}

} // namespace Demo
