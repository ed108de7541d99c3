// The main program of a fuzz target's seeds: writes them into the folder named as the argument.

#include <cstdio>

#include "fuzz/fuzz_seeds.h"

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    vex::fuzz::GSeedFolder seeds(argv[1]);
    vex::fuzz::WriteSeeds(seeds);
    return seeds.Sound() ? 0 : 1;
}
