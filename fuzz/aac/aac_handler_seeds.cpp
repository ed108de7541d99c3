// The first inputs of the AAC fuzz target.

#include "fuzz/fuzz_seeds.h"
#include "support/audio_frames.h"

namespace vex {

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    using namespace test;
    const GAudioBytes small = Repeat(AdtsFrame({.payload = 20}), 5);
    seeds.Write("small", small, 0x80);
    seeds.Write("tags", Join({Id3v2(20), small, Ape(50, 82), Id3v1()}), 0x40);
    seeds.Write("adif", Join({Text("ADIF", 30), small}), 0x20);
    seeds.Write("junk", Join({small, Text("junk", 100), small, First(small, 30)}), 0x5A);
}

}  // namespace vex
