// The first inputs of the MP3 fuzz target.

#include "fuzz/fuzz_seeds.h"
#include "support/audio_frames.h"

namespace vex {

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    using namespace test;
    const GAudioBytes small = Repeat(MpegFrame(1, 0xFFE31800, 72), 5);
    GAudioBytes xing = MpegFrame(0);
    std::ranges::copy(Join({Text("Xing"), GAudioBytes(12, 1)}), xing.begin() + 36);
    seeds.Write("small", small, 0x80);
    seeds.Write("tags", Join({Id3v2(20), small, Ape(50, 82), Id3v1()}), 0x40);
    seeds.Write("xing", Join({xing, MpegFrame(2), MpegFrame(3)}), 0x60);
    seeds.Write("junk", Join({small, Text("junk", 100), small, First(small, 100)}), 0x5A);
}

}  // namespace vex
