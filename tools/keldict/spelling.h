#pragma once

#include "kernel/kelvariant.h"

#include <string>
#include <string_view>

namespace Keldict {

/// A floating-point number as JSON, spelled so that the loader reads the very same bits: it rounds some spellings off
/// by a bit, and reads a number without point and exponent as an integer. What JSON cannot say (NaN, infinity) becomes
/// the nearest that it can.
std::string jsonOf(double number);

/// A value as JSON.
std::string jsonOf(const Ombrin::CkelVariant& value);

/// A text as JSON, its bytes as they are.
std::string jsonOf(std::string_view text);

} // namespace Keldict
