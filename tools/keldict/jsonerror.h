#pragma once

#include "finding.h"

#include <rapidjson/error/error.h>

#include <optional>
#include <string>
#include <string_view>

namespace Keldict {

/// What a parse error means to a person.
struct JsonError
{
    std::size_t offset; ///< where to look
    std::string what;
    std::string meant;                 ///< may be empty
    std::optional<std::size_t> opened; ///< where the quote or bracket stands that is not closed
};

JsonError explain(std::string_view text, rapidjson::ParseErrorCode code, std::size_t offset);

} // namespace Keldict
