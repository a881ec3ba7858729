#include "dictionary.h"

#include "database.h"
#include "failure.h"
#include "fields.h"
#include "jsondictionary.h"
#include "words.h"

#include "datastorage/kelparsedbjson.h"
#include "datastorage/kelrowvalues.h"

#include <unordered_set>
#include <utility>

namespace Keldict {

using Ombrin::CkelSqliteVariantVector;
using Ombrin::tagStorageData;

namespace {

[[noreturn]] void failFor(const std::string& name, const Finding& finding)
{
    const std::string place = shown(finding.place);
    throw Failure(Wrong, name + ":" + place + (place.empty() ? " " : ": ") + finding.what +
                             (finding.meant.empty() ? "" : "; meant: " + finding.meant));
}

/// Takes items as the storages index them: the first of each ID.
class Collector
{
public:
    explicit Collector(Dictionary& dictionary) : m_dictionary(dictionary) {}

    void add(const tagStorageData& record)
    {
        if (m_ids.insert(record.ID).second)
            m_dictionary.items.push_back(record);
        else
            ++m_lost;
    }

    void lose() { ++m_lost; }

    void finish()
    {
        if (m_lost > 0)
            m_dictionary.notes.push_back(counted(m_lost, "item") + " that the device would not take");
    }

private:
    Dictionary& m_dictionary;
    std::unordered_set<std::uint32_t> m_ids;
    std::size_t m_lost = 0;
};

/// Bounds what items take from those before them. Written out for each item, a small file could fill every disk.
class InheritedTexts
{
public:
    InheritedTexts(const std::string& name, std::size_t size) : m_name(name), m_bytesLeft(size + most) {}

    void count(const tagStorageData& record)
    {
        take(record.NameID.size());
        for (const Field field : valueFields) {
            const Ombrin::CkelVariant& value = valueOf(record, field);
            if (value.type() == Ombrin::CkelVariant::String)
                take(value.toStdString().size());
        }
    }

private:
    static constexpr std::size_t most = 16 << 20;

    void take(std::size_t bytes)
    {
        if (bytes > m_bytesLeft)
            throw Failure(Unreadable, m_name + ": the items inherit texts of more than 16 MiB in all");
        m_bytesLeft -= bytes;
    }

    const std::string& m_name;
    std::size_t m_bytesLeft; // the file itself holds a text for each, or it is inherited
};

void noteWhatIsIgnored(const JsonDictionary& json, Dictionary& dictionary)
{
    for (const auto& member : json.root().GetObject()) {
        const std::string name(member.name.GetString(), member.name.GetStringLength());
        if (name != "kel")
            dictionary.notes.push_back("the root's member " + inQuotes(name));
    }
    std::size_t unknown = 0;
    for (const rapidjson::Value& item : json.items()) {
        for (const auto& member : item.GetObject())
            unknown += fieldNamed({member.name.GetString(), member.name.GetStringLength()}) ? 0U : 1U;
    }
    if (unknown > 0)
        dictionary.notes.push_back(counted(unknown, "unknown key") + " of items");
}

Dictionary loadJson(Source source)
{
    InheritedTexts inherited(source.name, source.bytes.size());
    std::vector<Finding> findings;
    const JsonDictionary json(std::move(source.bytes), findings);
    for (const Finding& finding : findings) {
        if (finding.severity == Severity::Error && finding.rule != &Rules::duplicateRoot)
            failFor(source.name, finding);
    }
    Dictionary dictionary;
    Collector collector(dictionary);
    Ombrin::CkelParseDBJson parser;
    std::size_t n = 0;
    for (const rapidjson::Value& item : json.items()) {
        if (!item.IsObject())
            throw Failure(Wrong, source.name + ":" + shown(json.placeAt(json.offsetOfItem(n))) +
                                     ": an element of \"kel\" is no object");
        ++n;
        const tagStorageData& record = parser.deepParse(item, item.MemberCount(), {});
        inherited.count(record);
        if (record.ID != 0)
            collector.add(record);
        else
            collector.lose();
    }
    collector.finish();
    noteWhatIsIgnored(json, dictionary);
    return dictionary;
}

void requireTable(const Database& database, const std::string& name)
{
    if (database.table() == Database::Table::NoDatabase)
        throw Failure(Wrong, name + ": no SQLite database");
    if (database.table() == Database::Table::View)
        throw Failure(Wrong,
                      name + ": \"kel\" is a view, a virtual table, or computes a column that is read; it is not run");
    if (database.table() == Database::Table::Missing)
        throw Failure(Wrong, name + ": no table \"kel\"");
    if (database.columns().size() < static_cast<std::size_t>(database.columnsRead()))
        throw Failure(Wrong, name + ": the table has too few columns");
}

Dictionary loadDatabase(const Source& source)
{
    Database database(source);
    requireTable(database, source.name);
    Dictionary dictionary;
    dictionary.isSaved = database.isSaved();
    if (dictionary.isSaved)
        dictionary.notes.emplace_back("DBSource: a file of saved values has none");
    Collector collector(dictionary);
    tagStorageData carried{}; // a configuration's rows leave something of themselves to the next one
    database.forEachRow([&](const CkelSqliteVariantVector& row, sqlite3_stmt*) {
        tagStorageData saved{};
        tagStorageData& record = dictionary.isSaved ? saved : carried;
        const bool known = dictionary.isSaved ? readSavedRow(row, record) : readConfigurationRow(row, record);
        if (known && (dictionary.isSaved || record.ID != 0))
            collector.add(record);
        else
            collector.lose();
    });
    collector.finish();
    return dictionary;
}

} // namespace

Dictionary loadDictionary(const std::string& name)
{
    Source source = openSource(name);
    return source.kind == Source::Kind::Database ? loadDatabase(source) : loadJson(std::move(source));
}

} // namespace Keldict
