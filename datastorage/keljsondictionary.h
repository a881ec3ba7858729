#pragma once
// Private to datastorage/: not installed.

#include <rapidjson/document.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace Ombrin {

/// What a text is as a whole: empty values of RapidJSON's, which have its checks.
struct JsonDictionaryShape
{
    rapidjson::Value root;                         ///< null unless it is an object
    bool hasItems = false;                         ///< whether the root has the member "kel"
    rapidjson::Value items;                        ///< the first such member; null unless it is an array
    rapidjson::Value item{rapidjson::kObjectType}; ///< null when any item is no object
};

/// Bounds the names that items inherit. Each record has a copy of its name: without a limit, a small file could take
/// all memory.
class JsonInheritedNames
{
public:
    /// Counts a name that an item with an ID has from an item before.
    void add(std::string_view name) { m_bytes += name.size(); }

    bool isTooMuch() const { return m_bytes > most; }

private:
    static constexpr std::size_t most = 16 << 20;

    std::size_t m_bytes = 0;
};

/// SAX filter: passes the items of a dictionary to `Sink`. It calls begin() for each item, setField() for each of its
/// members that is no object and no array, and end(), which returns whether to go on.
template <typename Sink>
class JsonDictionaryEvents
{
public:
    explicit JsonDictionaryEvents(Sink sink) : m_sink(std::move(sink)) {}

    const JsonDictionaryShape& shape() const { return m_shape; }
    const Sink& sink() const { return m_sink; }

    // RapidJSON's names and types. Each returns whether to go on.

    bool Null() { return scalar(rapidjson::Value()); }
    bool Bool(bool value) { return scalar(rapidjson::Value(value)); }
    bool Int(int value) { return scalar(rapidjson::Value(value)); }
    bool Uint(unsigned int value) { return scalar(rapidjson::Value(value)); }
    bool Int64(std::int64_t value) { return scalar(rapidjson::Value(value)); }
    bool Uint64(std::uint64_t value) { return scalar(rapidjson::Value(value)); }
    bool Double(double value) { return scalar(rapidjson::Value(value)); }
    bool RawNumber(const char* /*text*/, rapidjson::SizeType /*size*/, bool /*copy*/) { return false; } // not asked for
    bool String(const char* text, rapidjson::SizeType size, bool /*copy*/)
    {
        return scalar(rapidjson::Value(rapidjson::StringRef(text, size)));
    }

    bool Key(const char* text, rapidjson::SizeType size, bool /*copy*/)
    {
        if (m_ignored == 0 && m_place == Place::Item)
            m_key.assign(text, size);
        else if (m_ignored == 0)
            m_isItemsNext = !m_shape.hasItems && std::string_view(text, size) == "kel";
        return true;
    }

    bool StartObject()
    {
        if (m_ignored == 0 && m_place == Place::Outside) {
            m_shape.root.SetObject();
            m_place = Place::Root;
        } else if (m_ignored == 0 && m_place == Place::Items) {
            m_sink.begin();
            m_place = Place::Item;
        } else {
            ignore();
        }
        return true;
    }

    bool StartArray()
    {
        if (m_ignored == 0 && m_place == Place::Root && m_isItemsNext) {
            m_shape.hasItems = true;
            m_shape.items.SetArray();
            m_place = Place::Items;
        } else {
            ignore();
        }
        return true;
    }

    bool EndObject(rapidjson::SizeType /*members*/)
    {
        if (m_ignored > 0) {
            --m_ignored;
        } else if (m_place == Place::Item) {
            m_place = Place::Items;
            return m_sink.end();
        }
        return true;
    }

    bool EndArray(rapidjson::SizeType /*elements*/)
    {
        if (m_ignored > 0)
            --m_ignored;
        else
            m_place = Place::Root;
        return true;
    }

private:
    /// What is open around the next event, beside what is ignored.
    enum class Place
    {
        Outside,
        Root,
        Items,
        Item
    };

    bool scalar(const rapidjson::Value& value)
    {
        if (m_ignored == 0 && m_place == Place::Item)
            m_sink.setField(m_key, value);
        else
            noteOther();
        return true;
    }

    void ignore()
    {
        noteOther();
        ++m_ignored;
    }

    /// A value that is not what a dictionary has in this place.
    void noteOther()
    {
        if (m_ignored == 0 && m_place == Place::Items)
            m_shape.item.SetNull();
        else if (m_ignored == 0 && m_place == Place::Root && m_isItemsNext)
            m_shape.hasItems = true;
    }

    Sink m_sink;
    JsonDictionaryShape m_shape;
    Place m_place = Place::Outside;
    std::size_t m_ignored = 0;  // objects and arrays in which nothing counts
    bool m_isItemsNext = false; // the newest key of the root was the items'
    std::string m_key;          // the newest of the item
};

} // namespace Ombrin
