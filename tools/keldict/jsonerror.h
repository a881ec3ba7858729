#pragma once

#include "finding.h"

#include <rapidjson/error/error.h>

#include <string_view>

namespace Keldict {

/// What a parse error means to a person.
struct JsonError
{
    std::size_t offset; ///< where to look
    std::string what;
    std::string meant; ///< may be empty
};

JsonError explain(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset);

} // namespace Keldict
