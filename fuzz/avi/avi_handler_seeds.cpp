// The first inputs of the AVI fuzz target.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/fuzz_seeds.h"
#include "support/avi_builder.h"

namespace vex {

namespace {

using namespace test;

GAviTestFile SmallFile(GAviTestIndex index, std::size_t parts)
{
    GAviTestStream mp3{.type = "auds", .rate = 16'000, .format = WaveFormat(0x55, 2, 44'100, 16'000, 1152)};
    GAviTestFile file{.streams = {VideoStream(), PcmStream(), mp3}, .parts = {}, .index = index, .totalFrames = 3};
    for (std::size_t part = 0; part < parts; ++part) {
        file.parts.push_back({Mpeg4Chunk("00dc", 20, true), Chunk("01wb", 12), Chunk("02wb", 7),
                              Mpeg4Chunk("00dc", 13, false), Chunk("00dc", 0)});
    }
    return file;
}

}  // namespace

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    GAviTestFile lists = SmallFile(GAviTestIndex::None, 3);
    lists.recLists = true;
    lists.junkBeforeData = 10;
    std::vector<std::uint8_t> unfilled = SmallFile(GAviTestIndex::None, 1).Build();
    Put(unfilled, 4, 0);
    Put(unfilled, PositionOf(unfilled, "movi") - 4, 0);

    seeds.Write("idx1-relative", SmallFile(GAviTestIndex::Idx1Relative, 1).Build(), 0x40);
    seeds.Write("idx1-absolute", SmallFile(GAviTestIndex::Idx1Absolute, 1).Build(), 0x20);
    seeds.Write("opendml", SmallFile(GAviTestIndex::OpenDml, 2).Build(), 0x60);
    seeds.Write("opendml-fields", SmallFile(GAviTestIndex::OpenDmlFields, 2).Build(), 0x60);
    seeds.Write("opendml-growing", SmallFile(GAviTestIndex::OpenDml, 3).Build(), 0x81);
    seeds.Write("scan-lists", lists.Build(), 0x80);
    seeds.Write("scan-growing", lists.Build(), 0xA1);
    seeds.Write("unfilled-sizes", unfilled, 0xC1);
}

}  // namespace vex
