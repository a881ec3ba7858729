// Prints how long the library's parser takes to load a dictionary, in milliseconds: the least of some rounds.

#include "datastorage/kelparsedbjson.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <limits>

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: keldict_loadtime FILE ROUNDS\n";
        return EXIT_FAILURE;
    }
    double least = std::numeric_limits<double>::max();
    for (long round = std::strtol(argv[2], nullptr, 10); round > 0; --round) {
        const auto start = std::chrono::steady_clock::now();
        Ombrin::CkelParseDBJson parser;
        parser.parse(argv[1]);
        const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
        least = std::min(least, taken.count());
    }
    std::cout << least << '\n';
    return EXIT_SUCCESS;
}
