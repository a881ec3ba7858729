#include "tests/reliability/hostilefiles.h"

#include <algorithm>
#include <cstddef>
#include <variant>

namespace KelTest {

namespace {

// The parts of an SQLite file, written byte by byte: SQLite itself makes no such files.

constexpr std::size_t smallPage = 512;
constexpr std::uint8_t tableLeaf = 0x0D;
constexpr std::uint8_t tableInner = 0x05;

std::string bigEndian(std::uint64_t number, int bytes)
{
    std::string text;
    for (int i = bytes - 1; i >= 0; --i)
        text += static_cast<char>(number >> (8 * i));
    return text;
}

/// SQLite's integers of variable length, below 2^56.
std::string varint(std::uint64_t number)
{
    std::string text(1, static_cast<char>(number & 0x7F));
    while ((number >>= 7) != 0)
        text.insert(text.begin(), static_cast<char>((number & 0x7F) | 0x80));
    return text;
}

using Field = std::variant<std::int64_t, std::string, std::nullptr_t>;

std::string record(const std::vector<Field>& fields)
{
    std::string types;
    std::string contents;
    for (const Field& field : fields) {
        if (const auto* const text = std::get_if<std::string>(&field)) {
            types += varint(2 * text->size() + 13);
            contents += *text;
        } else if (const auto* const number = std::get_if<std::int64_t>(&field)) {
            types += varint(4); // 32 bits
            contents += bigEndian(static_cast<std::uint64_t>(*number), 4);
        } else {
            types += varint(0);
        }
    }
    std::string size = varint(types.size() + 1);
    if (size.size() > 1)
        size = varint(types.size() + 2);
    return size + types + contents;
}

std::string leafCell(std::int64_t key, const std::string& payload)
{
    return varint(payload.size()) + varint(static_cast<std::uint64_t>(key)) + payload;
}

/// The least of a payload that SQLite keeps in a cell; it spills the rest when that fills whole pages.
std::size_t localSize(std::size_t pageSize)
{
    return (pageSize - 12) * 32 / 255 - 23;
}

/// The first bytes of the payload are in the cell, the others in a chain of pages.
std::string spillingCell(std::int64_t key, const std::string& payload, std::uint32_t chain)
{
    return varint(payload.size()) + varint(static_cast<std::uint64_t>(key)) + payload.substr(0, localSize(smallPage)) +
           bigEndian(chain, 4);
}

std::string innerCell(std::uint32_t child, std::int64_t key)
{
    return bigEndian(child, 4) + varint(static_cast<std::uint64_t>(key));
}

/// A page of a b-tree. `first` is the file's header on the first page, and empty on all others.
std::string treePage(std::uint8_t kind, const std::vector<std::string>& cells, std::uint32_t rightmost = 0,
                     const std::string& first = {})
{
    std::string pointers;
    std::string contents;
    for (const std::string& cell : cells) {
        contents.insert(0, cell);
        pointers += bigEndian(smallPage - contents.size(), 2);
    }
    std::string page = first + static_cast<char>(kind) + bigEndian(0, 2) + bigEndian(cells.size(), 2) +
                       bigEndian(smallPage - contents.size(), 2) + '\0';
    if (kind == tableInner)
        page += bigEndian(rightmost, 4);
    page += pointers;
    page.resize(smallPage - contents.size());
    return page + contents;
}

std::string fileHeader(std::size_t pages)
{
    std::string header("SQLite format 3\0", 16);
    header += bigEndian(smallPage, 2);
    header += "\1\1"; // rollback journal
    header += std::string("\0\100\40\40", 4);
    header += bigEndian(1, 4) + bigEndian(pages, 4); // changes, pages
    header += bigEndian(0, 8);                       // free pages
    header += bigEndian(1, 4) + bigEndian(4, 4);     // schema
    header += bigEndian(0, 8) + bigEndian(1, 4);     // UTF-8
    header.resize(92);
    return header + bigEndian(1, 4) + bigEndian(3040001, 4);
}

/// `key` is "PRIMARY KEY", or empty: then the ID is a column as any other.
std::string createText(Columns columns, const std::string& key = {})
{
    const std::string source = columns == Columns::Configuration ? "DBSource INTEGER," : "";
    const std::string units = columns == Columns::Saved ? ",Unit INTEGER,CUnit INTEGER" : "";
    return "CREATE TABLE IF NOT EXISTS kel(ID INTEGER " + key + ",NameID TEXT,CommSource INTEGER," + source +
           "RW INTEGER,Block INTEGER,ValueT INTEGER,Value NUMERIC,DefValue NUMERIC,Max NUMERIC,Min NUMERIC" + units +
           ")";
}

std::string schemaRow(const std::string& create, std::uint32_t root)
{
    return record({"table", "kel", "kel", std::int64_t{root}, create});
}

/// A row of an item. Where the ID is the key, the row has none of its own.
std::string itemRow(Columns columns, const Field& id, const std::string& name)
{
    std::vector<Field> fields{id, name, std::int64_t{0}};
    if (columns == Columns::Configuration)
        fields.emplace_back(std::int64_t{0});
    for (const std::int64_t field : {1, 2, 5, 10, 0, 1000, 0}) // RW, Block, ValueT and the values
        fields.emplace_back(field);
    if (columns == Columns::Saved)
        fields.insert(fields.end(), 2, std::int64_t{0});
    return record(fields);
}

std::vector<std::string> someRows(Columns columns, int count)
{
    std::vector<std::string> cells;
    for (std::int64_t id = 1; id <= count; ++id)
        cells.push_back(leafCell(id, itemRow(columns, id, "n")));
    return cells;
}

/// The row of a text that lets it spill `pages` whole pages.
template <typename MakeRow>
std::string spillingRow(std::size_t pages, MakeRow makeRow)
{
    const std::size_t wanted = localSize(smallPage) + pages * (smallPage - 4);
    const std::size_t others = makeRow(std::string(wanted, 'n')).size() - wanted;
    return makeRow(std::string(wanted - others, 'n'));
}

/// The pages of a file behind the first, which is written at the end.
class Pages
{
public:
    /// The number of the page that is added next.
    std::uint32_t next() const { return static_cast<std::uint32_t>(m_pages.size()) + 2; }

    std::uint32_t add(const std::string& page)
    {
        m_pages.push_back(page);
        return next() - 1;
    }

    /// Pages of overflow, each naming the next.
    std::uint32_t addChain(const std::string& contents)
    {
        constexpr std::size_t room = smallPage - 4;
        const std::uint32_t first = next();
        for (std::size_t at = 0; at < contents.size(); at += room) {
            std::string page = bigEndian(at + room < contents.size() ? next() + 1 : 0, 4) + contents.substr(at, room);
            page.resize(smallPage);
            add(page);
        }
        return first;
    }

    /// A b-tree of rows with the keys from 1 on; returns its root.
    template <typename MakeCell>
    std::uint32_t addTree(std::int64_t rows, std::int64_t rowsPerLeaf, MakeCell makeCell)
    {
        Level level;
        for (std::int64_t key = 1; key <= rows;) {
            std::vector<std::string> cells;
            for (const std::int64_t end = key + rowsPerLeaf; key < end; ++key)
                cells.push_back(makeCell(key));
            level.push_back({add(treePage(tableLeaf, cells)), key - 1});
        }
        while (level.size() > 1)
            level = addLevelAbove(level);
        return level.front().page;
    }

    /// The file, with `first` as the tree page of its schema.
    template <typename MakePage>
    std::string file(MakePage makeFirst) const
    {
        std::string bytes = makeFirst(fileHeader(m_pages.size() + 1));
        for (const std::string& page : m_pages)
            bytes += page;
        return bytes;
    }

    /// The file whose schema is one table.
    std::string fileOfTable(const std::string& create, std::uint32_t root) const
    {
        return file([&](const std::string& header) {
            return treePage(tableLeaf, {leafCell(1, schemaRow(create, root))}, 0, header);
        });
    }

private:
    struct Subtree
    {
        std::uint32_t page;
        std::int64_t lastKey;
    };
    using Level = std::vector<Subtree>;

    Level addLevelAbove(const Level& below)
    {
        constexpr std::size_t children = 40; // of one page
        Level level;
        for (std::size_t at = 0; at < below.size(); at += children) {
            const std::size_t last = std::min(at + children, below.size()) - 1;
            std::vector<std::string> cells;
            for (std::size_t child = at; child < last; ++child)
                cells.push_back(innerCell(below[child].page, below[child].lastKey));
            level.push_back({add(treePage(tableInner, cells, below[last].page)), below[last].lastKey});
        }
        return level;
    }

    std::vector<std::string> m_pages;
};

constexpr std::int64_t sharingRows = 5200;
constexpr std::int64_t sharingRowsPerLeaf = 10;
constexpr std::size_t sharedPages = 490;

/// 1028 pages of which each row claims a half: 1.3 GB.
HostileFile rowsThatShareOneChain(Columns columns)
{
    const std::string row =
        spillingRow(sharedPages, [&](const std::string& name) { return itemRow(columns, std::int64_t{1}, name); });
    Pages pages;
    const std::uint32_t chain = pages.addChain(row.substr(localSize(smallPage)));
    const std::uint32_t root =
        pages.addTree(sharingRows, sharingRowsPerLeaf, [&](std::int64_t key) { return spillingCell(key, row, chain); });
    return {"rows that share one overflow chain", pages.fileOfTable(createText(columns), root)};
}

/// The chain is one page, and endless.
HostileFile overflowPageThatNamesItself(Columns columns)
{
    const std::string row =
        spillingRow(sharedPages, [&](const std::string& name) { return itemRow(columns, std::int64_t{1}, name); });
    Pages pages;
    // The values of a row are in the chain too; its bytes make a known value type.
    const std::uint32_t chain = pages.add(bigEndian(pages.next(), 4) + std::string(smallPage - 4, '\5'));
    const std::uint32_t root =
        pages.addTree(sharingRows, sharingRowsPerLeaf, [&](std::int64_t key) { return spillingCell(key, row, chain); });
    return {"an overflow page that names itself", pages.fileOfTable(createText(columns), root)};
}

/// The statements of the schema, 250 KB each, are one.
HostileFile statementsThatShareOneChain(Columns columns)
{
    const std::string row = spillingRow(sharedPages, [&](const std::string& comment) {
        return schemaRow(createText(columns) + "/*" + comment + "*/", 2);
    });
    Pages pages;
    pages.add(treePage(tableLeaf, someRows(columns, 3)));
    const std::uint32_t chain = pages.addChain(row.substr(localSize(smallPage)));
    const std::uint32_t root =
        pages.addTree(sharingRows, sharingRowsPerLeaf, [&](std::int64_t key) { return spillingCell(key, row, chain); });
    return {"statements of the schema that share one overflow chain",
            pages.file([&](const std::string& header) { return treePage(tableInner, {}, root, header); }),
            Outcome::Either};
}

/// An inner page, all of whose children are one.
std::string pageOfOneChild(std::uint32_t child, int cells, const std::string& first = {})
{
    return treePage(tableInner, std::vector<std::string>(static_cast<std::size_t>(cells), innerCell(child, 1)), child,
                    first);
}

constexpr int levels = 7;
constexpr int cellsOfOneChild = 70;
constexpr int cellsOfFirstPage = 50; // it has the file's header too

/// 71 to the power of 7 rows, in nine pages.
HostileFile innerPagesOfOneChild(Columns columns)
{
    Pages pages;
    for (int level = 0; level < levels; ++level)
        pages.add(pageOfOneChild(pages.next() + 1, cellsOfOneChild));
    pages.add(treePage(tableLeaf, someRows(columns, 5)));
    return {"inner pages of one child", pages.fileOfTable(createText(columns), 2)};
}

/// The same in the tree of the schema.
HostileFile schemaPagesOfOneChild(Columns columns)
{
    Pages pages;
    for (int level = 0; level < levels - 1; ++level)
        pages.add(pageOfOneChild(pages.next() + 1, cellsOfOneChild));
    const std::uint32_t root = pages.next() + 1;
    pages.add(treePage(tableLeaf, {leafCell(1, schemaRow(createText(columns), root))}));
    pages.add(treePage(tableLeaf, someRows(columns, 3)));
    return {"inner pages of the schema of one child",
            pages.file([](const std::string& header) { return pageOfOneChild(2, cellsOfFirstPage, header); })};
}

HostileFile pageThatIsItsOwnChild(Columns columns)
{
    Pages pages;
    const std::uint32_t leaf = pages.add(treePage(tableLeaf, someRows(columns, 5)));
    const std::uint32_t root = pages.next();
    pages.add(treePage(tableInner, {innerCell(leaf, 5), innerCell(root, 6)}, root));
    return {"a page that is its own child", pages.fileOfTable(createText(columns), root)};
}

/// The rows of one leaf; `keyOf` gives the key of each.
template <typename KeyOf>
HostileFile rowsWithKeys(const std::string& name, Columns columns, KeyOf keyOf)
{
    constexpr int rows = 6;
    std::vector<std::string> cells;
    for (int row = 1; row <= rows; ++row)
        cells.push_back(leafCell(keyOf(row), itemRow(columns, nullptr, "n")));
    Pages pages;
    const std::uint32_t root = pages.add(treePage(tableLeaf, cells));
    return {name, pages.fileOfTable(createText(columns, "PRIMARY KEY"), root)};
}

HostileFile tableOfFewColumns(Columns columns)
{
    Pages pages;
    const std::uint32_t root = pages.add(treePage(tableLeaf, {leafCell(1, record({std::int64_t{1}, "n"}))}));
    return {"a table of two columns", pages.fileOfTable("CREATE TABLE kel(ID INTEGER,NameID TEXT)", root),
            columns == Columns::Configuration ? Outcome::Ends : Outcome::Refused};
}

/// A hot journal of one page, the file's first as it is; it says that the file had `pages` pages.
std::string hotJournal(const std::string& firstPage, std::uint32_t pages)
{
    constexpr std::uint32_t nonce = 1;
    constexpr std::size_t step = 200; // every so many bytes, one is in the checksum
    std::uint32_t checksum = nonce;
    for (std::size_t at = smallPage - step; at < smallPage; at -= step)
        checksum += static_cast<std::uint8_t>(firstPage[at]);
    std::string journal = "\xD9\xD5\x05\xF9\x20\xA1\x63\xD7" + bigEndian(1, 4) + bigEndian(nonce, 4) +
                          bigEndian(pages, 4) + bigEndian(smallPage, 4) + bigEndian(smallPage, 4);
    journal.resize(smallPage);
    return journal + bigEndian(1, 4) + firstPage + bigEndian(checksum, 4);
}

/// The rows are good; the journal lets SQLite make the file a gigabyte long.
HostileFile journalThatGrowsTheFile()
{
    HostileFile file = rowsWithKeys("a journal that grows the file", Columns::Saved, [](int row) { return row; });
    constexpr std::uint32_t gigabyte = 1U << 30U;
    file.journal = hotJournal(file.bytes.substr(0, smallPage), gigabyte / smallPage);
    file.outcome = Outcome::Read;
    return file;
}

std::string repeated(const std::string& text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

} // namespace

std::vector<HostileFile> hostileDatabases(Columns columns)
{
    std::vector<HostileFile> files{
        rowsThatShareOneChain(columns),
        overflowPageThatNamesItself(columns),
        statementsThatShareOneChain(columns),
        innerPagesOfOneChild(columns),
        schemaPagesOfOneChild(columns),
        pageThatIsItsOwnChild(columns),
        rowsWithKeys("keys that fall", columns, [](int row) { return 100 - row; }),
        rowsWithKeys("keys that are equal", columns, [](int /*row*/) { return 1; }),
        tableOfFewColumns(columns),
    };
    if (columns == Columns::Saved)
        files.push_back(journalThatGrowsTheFile());
    return files;
}

std::vector<HostileFile> hostileDictionaries()
{
    constexpr int manyItems = 40000;
    constexpr int longName = 400000;
    constexpr int depth = 1000000;
    std::string items;
    for (int id = 2; id <= manyItems; ++id)
        items += ",{\"ID\":" + std::to_string(id) + '}';
    return {
        {"items that inherit one long name",
         R"({"kel":[{"ID":1,"NameID":")" + std::string(longName, 'n') + "\"}" + items + "]}"},
        {"arrays in each other",
         R"({"kel":[{"ID":1,"NameID":"n","x":)" + std::string(depth, '[') + std::string(depth, ']') + "}]}"},
        {"items of nothing", R"({"kel":[{"ID":1,"NameID":"n"})" + repeated(",{}", depth / 3) + "]}"},
    };
}

} // namespace KelTest
