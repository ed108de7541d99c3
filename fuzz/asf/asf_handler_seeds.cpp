// The first inputs of the ASF fuzz target.

#include "fuzz/fuzz_seeds.h"
#include "support/asf_builder.h"

namespace vex {

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    using namespace test;
    GAsfTestFile odd;
    for (unsigned i = 0; i < 8; ++i)
        odd.packets.Raw(Packet({Whole(2, 1'000 + 40 * i, {1, 2, 3})}, 100,
                               {.correction = i % 2 == 0, .multiple = i < 4, .packetType = 2, .sequenceType = i & 3})
                            .bytes);
    GAsfTestFile broadcast = AsfFilm(6, 3);
    broadcast.playDurationMs = 0;
    broadcast.dataSize = 0;

    seeds.Write("film", AsfFilm(6, 3).Bytes(), 0x60);
    seeds.Write("growing", AsfFilm(6, 3).Bytes(), 0x81);
    seeds.Write("shapes", odd.Bytes(), 0x60);
    seeds.Write("everything", AsfEverything().Bytes(), 0x60);
    seeds.Write("broadcast", broadcast.Bytes(), 0x46);
}

}  // namespace vex
