#pragma once

#include "datastorage/kelstoragedata.h"
#include "kernel/kelglobal.h"

#include <rapidjson/fwd.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Ombrin {

/// Reads a JSON data dictionary: an object whose member "kel" is an array of item objects.
///
/// A field that an item omits, or gives with the wrong JSON type, keeps what the item before left there, across items
/// and across files read with one parser. Byte fields keep the low 8 bits of their number. Items without an ID are
/// dropped. Values, defaults and bounds are kept as the file writes them: nothing is converted to the value type.
/// Nothing behind a NUL is read, in the file and in its texts. Not synchronised.
///
/// **A malformed dictionary ends the process**: text that is not strict JSON, a root that is no object or has no member
/// "kel", a "kel" that is no array, an element that is no object.
///
/// @snippet classes.cpp CkelParseDBJson
///
/// @ingroup datastorage_parts
class KEL_EXPORT CkelParseDBJson
{
public:
    /// Nothing read yet; fields that the first item omits are 0, empty or null.
    CkelParseDBJson();
    ~CkelParseDBJson();

    CkelParseDBJson(const CkelParseDBJson&) = delete;
    CkelParseDBJson& operator=(const CkelParseDBJson&) = delete;

    /// The file's items in their order, equal IDs and names side by side. The list is the parser's, until its next
    /// parse. A file that cannot be opened is reported on standard output; the result then is unread(), and the list of
    /// the last file stays. The same goes for what is no regular file or cannot be read to its end, and, with another
    /// line and an empty list, for a file whose items inherit names of more than 16 MiB in all.
    const std::vector<tagStorageData>& parse(const std::string& fileName);

    /// What parse() returns, by address, when it could not open the file: an empty list unlike that of an empty
    /// dictionary.
    static const std::vector<tagStorageData>& unread();

    /// The items of the last file that was read. The list is the parser's, until its next parse.
    const std::vector<tagStorageData>& dataList() const& { return m_dataList; }
    /// The same, moved out of a parser that is not needed any more.
    std::vector<tagStorageData> dataList() && { return std::move(m_dataList); }

    /// Applies the members of one item object to the working record, whose ID alone starts anew, and returns that
    /// record, which is the parser's. Neither the count nor the file name is used. An `item` that is no object ends the
    /// process.
    tagStorageData& deepParse(const rapidjson::Value& item, unsigned int memberCount, std::string fileName);

    /// Gives `target` the JSON scalar `value`, in the narrowest variant type that holds it. Anything but a scalar
    /// leaves `target` as it is.
    void setValue(const rapidjson::Value& value, CkelVariant& target);

    /// Prints an item to standard output, one line for each known key; for diagnosis. An "ID", "NameID" or "CommSource"
    /// of the wrong JSON type ends the process.
    void printJson(const rapidjson::Value& item, unsigned int memberCount);

    /// Prints one line of key and value; the value is left out when it is no scalar.
    void printDependType(const std::string& key, const rapidjson::Value& value);

private:
    struct Items;

    void setField(std::string_view key, const rapidjson::Value& value);

    std::vector<tagStorageData> m_dataList;
    tagStorageData m_data{}; // carries fields from one item to the next
};

} // namespace Ombrin
