#include "datastorage/kelstoragedata.h"

#include <cstdio>
#include <cstdlib>

/// Prints the sizes that the memory of a device is planned with; fails when a record is larger than the first argument
/// or a variant is not of 16 bytes.
int main(int argc, char** argv)
{
    using Ombrin::CkelVariant;
    using Ombrin::tagStorageData;
    std::printf("sizeof(tagStorageData): %zu\nsizeof(CkelVariant): %zu\n", sizeof(tagStorageData), sizeof(CkelVariant));
    const bool isWithin = argc > 1 && sizeof(tagStorageData) <= std::strtoul(argv[1], nullptr, 10);
    return isWithin && sizeof(CkelVariant) == 16 ? EXIT_SUCCESS : EXIT_FAILURE;
}
