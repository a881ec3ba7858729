#pragma once

#include "datastorage/kelstoragedata.h"
#include "kernel/kelglobal.h"

#include <rapidjson/fwd.h>

#include <string>
#include <utility>
#include <vector>

namespace Ombrin {

/// Reads a JSON data dictionary: an object whose member "kel" is an array of item objects.
///
/// A field that an item omits, or gives with the wrong JSON type, keeps what the item before left there, across items
/// and across files read with one parser. Byte fields keep the low 8 bits of their number. Items without an ID are
/// dropped. Not synchronised.
///
/// **A malformed dictionary ends the process**: text that is not strict JSON, a root that is no object or has no member
/// "kel", a "kel" that is no array, an element that is no object.
class KEL_EXPORT CkelParseDBJson
{
public:
    CkelParseDBJson();
    ~CkelParseDBJson();

    CkelParseDBJson(const CkelParseDBJson&) = delete;
    CkelParseDBJson& operator=(const CkelParseDBJson&) = delete;

    /// The file's items in their order, equal IDs and names side by side. The list is the parser's, until its next
    /// parse. A file that cannot be opened is reported on standard output; the result then is unread(), and the list of
    /// the last file stays.
    const std::vector<tagStorageData>& parse(const std::string& fileName);

    /// What parse() returns, by address, when it could not open the file: an empty list unlike that of an empty
    /// dictionary.
    static const std::vector<tagStorageData>& unread();

    /// The items of the last file that was read. Taken from an expiring parser, they are moved.
    const std::vector<tagStorageData>& dataList() const& { return m_dataList; }
    std::vector<tagStorageData> dataList() && { return std::move(m_dataList); }

    /// Applies the members of one item object to the working record, whose ID alone starts anew.
    tagStorageData& deepParse(const rapidjson::Value& item, unsigned int memberCount, std::string fileName);

    /// Gives `target` the JSON scalar `value`, in the narrowest variant type that holds it. Anything but a scalar
    /// leaves `target` as it is.
    void setValue(const rapidjson::Value& value, CkelVariant& target);

    /// Prints an item to standard output, one line for each known key; for diagnosis. A key of the wrong JSON type ends
    /// the process.
    void printJson(const rapidjson::Value& item, unsigned int memberCount);

    /// Prints one line of key and value.
    void printDependType(const std::string& key, const rapidjson::Value& value);

private:
    std::vector<tagStorageData> m_dataList;
    tagStorageData m_data{}; // carries fields from one item to the next
};

} // namespace Ombrin
