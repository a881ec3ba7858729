#pragma once

namespace KelTest {

/// Runs every case of the program that GoogleTest's filter leaves in a process of its own that is forked off this one,
/// as many at once as there are cores. It keeps the cases apart as well as starting the program for each does, which
/// takes long under an emulator or a sanitizer. The instances of one case share a process, and all count as failed when
/// that fails. Prints what failing cases print, their names, and the count of both kinds. Gives the program's exit
/// status, which is 77 when the filter leaves none.
int runCasesApart();

} // namespace KelTest
