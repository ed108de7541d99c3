// The first inputs of the MP4 fuzz target.

#include "fuzz/fuzz_seeds.h"
#include "support/mp4_builder.h"

namespace vex {
namespace {

using namespace test;

GMp4TestTrack Aac()
{
    GMp4TestTrack track = NumberedVideo(6, 1, 2);
    track.handler = "soun";
    track.entry = "mp4a";
    track.children = Esds(0x40, {0x12, 0x10});
    return track;
}

GMp4TestTrack Avc()
{
    GMp4TestTrack track = NumberedVideo(12, 4);
    track.entry = "avc1";
    track.children = Box("avcC", {1, 77, 0, 30, 0xFF, 0xE1, 0, 3, 0x67, 77, 30, 1, 0, 2, 0x68, 0xCE});
    track.stsc = {{1, 1, 1}, {5, 1, 1}};
    return track;
}

GMp4TestTrack Sound(std::string entry, std::uint16_t version = 0, std::array<std::uint32_t, 4> packing = {})
{
    GMp4TestTrack track = PcmSound({128, 40, 7});
    track.entry = std::move(entry);
    track.version = version;
    track.packing = packing;
    return track;
}

}  // namespace

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    seeds.Write("avc-aac", GMp4TestFile{.tracks = {Avc(), Aac()}}.Build(), 0xA0);
    seeds.Write("pcm", GMp4TestFile{.tracks = {Sound("twos"), NumberedVideo(3, 2)}}.Build(), 0x52);
    seeds.Write("blocks", GMp4TestFile{.tracks = {Sound("in24", 1, {4, 3, 12, 2})}}.Build(), 0x22);
    seeds.Write("chunks", GMp4TestFile{.tracks = {Sound("sowt", 1, {4, 2, 6, 2})}}.Build(), 0x82);
    seeds.Write("ima4", GMp4TestFile{.tracks = {Sound("ima4")}}.Build(), 0x00);
    GMp4TestTrack raw{.entry = "raw ", .stts = {{2, 40}}, .constantSize = 384, .constantCount = 2};
    raw.chunks = {GMp4Bytes(384, 1), GMp4Bytes(384, 2)};
    seeds.Write("raw", GMp4TestFile{.tracks = {raw}}.Build(), 0x60);
    GMp4TestTrack wide = Avc();
    wide.co64 = true;
    seeds.Write("co64", GMp4TestFile{.tracks = {wide}}.Build(), 0xC1);
}

}  // namespace vex
