#include "jsonwriter.h"

#include "words.h"

namespace Keldict {

JsonWriter::JsonWriter(std::ostream& out) : m_stream(out), m_writer(m_stream)
{
    m_writer.SetIndent(' ', 2);
}

JsonWriter& JsonWriter::beginObject()
{
    m_writer.StartObject();
    return *this;
}

JsonWriter& JsonWriter::endObject()
{
    m_writer.EndObject();
    return *this;
}

JsonWriter& JsonWriter::beginArray()
{
    m_writer.StartArray();
    return *this;
}

JsonWriter& JsonWriter::endArray()
{
    m_writer.EndArray();
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name)
{
    m_writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    return *this;
}

JsonWriter& JsonWriter::text(std::string_view value)
{
    const std::string utf8 = repaired(value);
    m_writer.String(utf8.data(), static_cast<rapidjson::SizeType>(utf8.size()));
    return *this;
}

JsonWriter& JsonWriter::number(std::uint64_t value)
{
    m_writer.Uint64(value);
    return *this;
}

JsonWriter& JsonWriter::boolean(bool value)
{
    m_writer.Bool(value);
    return *this;
}

} // namespace Keldict
