// The first inputs of the MP4 fuzz target.

#include "fuzz/fuzz_seeds.h"
#include "mp4/mp4_reading.h"

namespace vex {
void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    using namespace test;
    const std::vector<std::uint32_t> samples{128, 40, 7};
    seeds.Write("small", SmallFile(), 0xA0);
    seeds.Write("pcm", GMp4TestFile{.tracks = {PcmSound(samples), NumberedVideo(3, 2)}}.Build(), 0x52);
    seeds.Write("blocks", GMp4TestFile{.tracks = {Packed(samples, "in24", 1, {4, 3, 12, 2})}}.Build(), 0x22);
    seeds.Write("chunks", GMp4TestFile{.tracks = {Packed(samples, "sowt", 1, {4, 2, 6, 2})}}.Build(), 0x82);
    seeds.Write("ima4", GMp4TestFile{.tracks = {Packed(samples, "ima4")}}.Build(), 0x00);
    GMp4TestTrack raw{.entry = "raw ", .stts = {{2, 40}}, .constantSize = 384, .constantCount = 2};
    raw.chunks = {GMp4Bytes(384, 1), GMp4Bytes(384, 2)};
    seeds.Write("raw", GMp4TestFile{.tracks = {raw}}.Build(), 0x60);
    GMp4TestTrack wide = NumberedVideo(12, 4);
    wide.stsc = {{1, 1, 1}, {5, 1, 1}};
    wide.co64 = true;
    seeds.Write("co64", GMp4TestFile{.tracks = {wide}}.Build(), 0xC1);
}

}  // namespace vex
