// The first inputs of the FLV fuzz target.

#include "fuzz/fuzz_seeds.h"
#include "support/flv_builder.h"

namespace vex {

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    using namespace test;
    GFlvBuilder sorenson;
    for (std::uint8_t i = 1; i <= 6; ++i)
        sorenson.Video(40u * i, SorensonPicture(i % 3 == 1, i)).Audio(40u * i, Mp3Frame(i));
    GFlvBuilder damaged;
    damaged.Audio(0, Mp3Frame(1)).Raw(Payload({}, 50, 0x42)).Audio(26, Mp3Frame(2));
    damaged.Tag(kFlvAudio, 52, Mp3Frame(3), {.dataSize = 30, .streamId = 1})
        .Audio(78, Mp3Frame(4))
        .Audio(104, Mp3Frame(5));
    GFlvBuilder vp6;
    vp6.Video(0, {0x15, 0, 0, 0, 7, 0x78, 0x36, 0, 0, 2, 3, 2, 3, 1, 1})
        .Video(40, Payload({0x25, 0, 0, 0, 7}, 20, 0x80));
    for (const std::uint8_t format : std::initializer_list<std::uint8_t>{0x00, 0x10, 0x40, 0x50, 0x60})
        vp6.Audio(80, Payload({format}, 9));

    seeds.Write("h264-aac", Film(6, 3).bytes, 0x60);
    seeds.Write("no-sizes", Film(6, 3, 0, {.previousTagSize = 0}).bytes, 0x40);
    seeds.Write("growing", Film(6, 3).bytes, 0x81);
    seeds.Write("cut", Film(6, 3).Cut(9), 0xE0);
    seeds.Write("sorenson-mp3", sorenson.bytes, 0x60);
    seeds.Write("damaged", damaged.bytes, 0x60);
    seeds.Write("vp6-alpha", vp6.bytes, 0x60);
}

}  // namespace vex
