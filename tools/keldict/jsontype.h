#pragma once

#include <rapidjson/document.h>

#include <string_view>

namespace Keldict {

/// The type of a JSON value in words: "an object".
inline std::string_view typeOf(const rapidjson::Value& value)
{
    if (value.IsObject())
        return "an object";
    if (value.IsArray())
        return "an array";
    if (value.IsString())
        return "a text";
    if (value.IsNumber())
        return "a number";
    return value.IsNull() ? "null" : "a bool";
}

} // namespace Keldict
