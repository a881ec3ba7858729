#pragma once

namespace Keldict {

/// Does what the command line asks for; the status of the program.
int run(int argc, const char* const* argv);

} // namespace Keldict
