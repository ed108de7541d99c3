// The first inputs of the MPEG fuzz target.

#include "fuzz/fuzz_seeds.h"
#include "support/mpeg_builder.h"

namespace vex {

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    using namespace test;
    GTsBuilder sound;
    sound.Association({{1, 0x30}, {2, 0x31}}).Map(0x30, {{0x0F, 0x51, "fre"}, {0x81, 0x52}, {0x82, 0x53, "", 0x59}});
    sound.Payload(0x51, Pes(0xC0, 0, Repeat(AdtsFrame(), 2))).Payload(0x52, Pes(0xBD, 0, Ac3Frame(1, 0)));
    sound.Payload(0x54, Pes(0xFD, 0, DtsFrame(), {.extension = 0x71})).Payload(0x55, Pes(0xFD, 9, Vc1Video()));
    sound.Payload(0x51, Pes(0xC0, 3600, AdtsFrame())).Packet(0x52, true, Pes(0xBD, 3600, {1, 2, 3}), 0x08);
    GPsBuilder disc;
    disc.Pack().Navigation(1, 90'000, 180'000).Add(0xE0, 90'000, MpegVideo()).Add(0xBD, 90'000, Lpcm(0xA0, 0, 2));
    disc.Pack(3).Add(0xE0, {}, {1, 2}).Navigation(2, 90'000, 180'000).Add(0xE0, 180'000, MpegVideo(2, false));
    disc.Add(0xBD, 93'600, Lpcm(0xA0, 0, 2)).Add(0xBE, {}, GMpegBytes(2000)).Raw({0, 0, 1, 0xB9});

    seeds.Write("transport", TransportFilm(5).bytes, 0x60);
    seeds.Write("transport-192", TransportFilm(3, 8'589'930'000, 192).bytes, 0x42);
    seeds.Write("transport-growing", TransportFilm(5).bytes, 0x81);
    seeds.Write("sound", sound.bytes, 0x62);
    seeds.Write("program", ProgramFilm(3).bytes, 0x60);
    seeds.Write("program-mpeg1", ProgramFilm(3, true).bytes, 0x62);
    seeds.Write("disc", disc.bytes, 0x60);
}

}  // namespace vex
