#pragma once

#include <rapidjson/ostreamwrapper.h>
#include <rapidjson/prettywriter.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace Keldict {

/// Writes indented JSON. Texts become well-formed UTF-8, whatever they were.
class JsonWriter
{
public:
    explicit JsonWriter(std::ostream& out);

    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    JsonWriter& key(std::string_view name);
    JsonWriter& text(std::string_view value);
    JsonWriter& number(std::uint64_t value);
    JsonWriter& boolean(bool value);

    JsonWriter& text(std::string_view name, std::string_view value) { return key(name).text(value); }
    JsonWriter& number(std::string_view name, std::uint64_t value) { return key(name).number(value); }

private:
    rapidjson::OStreamWrapper m_stream;
    rapidjson::PrettyWriter<rapidjson::OStreamWrapper> m_writer;
};

} // namespace Keldict
