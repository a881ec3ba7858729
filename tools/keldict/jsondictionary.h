#pragma once

#include "finding.h"

#include <rapidjson/document.h>

#include <string>
#include <string_view>
#include <vector>

namespace Keldict {

/// A JSON dictionary, read as the loader reads it, together with where everything stands in the text.
class JsonDictionary
{
public:
    /// Where a member of an item stands.
    struct Member
    {
        std::size_t key;
        std::size_t value;
    };

    /// Adds what would stop the device to `findings`.
    JsonDictionary(std::string bytes, std::vector<Finding>& findings);

    JsonDictionary(const JsonDictionary&) = delete;
    JsonDictionary& operator=(const JsonDictionary&) = delete;

    /// Whether there is an array of items to look at, which the device reads. It may still stop at one of them.
    bool hasItems() const { return m_items != nullptr; }

    /// The elements of "kel".
    rapidjson::Value::ConstArray items() const { return m_items->GetArray(); }

    std::size_t offsetOfItem(std::size_t index) const { return m_offsets[index]; }

    /// The members of an item that is an object, in their order.
    std::vector<Member> membersOf(std::size_t index) const;

    /// The text of the value at this offset.
    std::string_view valueAt(std::size_t offset) const;

    Place placeAt(std::size_t offset) const { return {m_lines.at(offset), 0}; }

    /// Whether all of the text is UTF-8.
    bool isUtf8() const { return m_isUtf8; }

    /// The outermost object, of which the device reads the member "kel" only. There, if there are items.
    const rapidjson::Value& root() const { return m_document; }

    /// Where the value of a member of the root stands.
    std::size_t offsetOfRootMember(std::size_t index) const;

private:
    bool parse(std::vector<Finding>& findings);
    void reportParseError(std::vector<Finding>& findings) const;
    void findItems(std::vector<Finding>& findings);
    void reportMissingRoot(std::vector<Finding>& findings) const;
    void checkSecondRoot(std::vector<Finding>& findings) const;
    void reportSecondRoots(std::vector<Finding>& findings) const;
    bool checkInheritedNames(std::vector<Finding>& findings) const;
    void locateItems();

    const std::string m_bytes;
    const std::string_view m_text; // what the loader reads of the bytes
    const bool m_isUtf8;
    const TextLines m_lines;
    rapidjson::Document m_document;
    const rapidjson::Value* m_items = nullptr;
    std::vector<std::size_t> m_offsets; // of the items
};

} // namespace Keldict
