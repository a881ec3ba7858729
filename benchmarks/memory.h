#pragma once

#include <cstddef>

namespace KelBench {

/// Bytes that the process has taken from malloc and not given back, with malloc's own share of each piece.
std::size_t bytesInUse();

} // namespace KelBench
