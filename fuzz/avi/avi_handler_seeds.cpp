// Writes one small file of every kind for the AVI fuzz target into the folder named as the argument.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "support/avi_builder.h"

namespace {

using namespace vex::test;

// As the target takes it: the file and one byte of control.
bool WriteSeed(const std::string& folder, const std::string& name, std::vector<std::uint8_t> bytes,
               std::uint8_t control)
{
    bytes.push_back(control);
    std::ofstream out(folder + "/" + name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out.flush());
}

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

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const std::string folder = argv[1];
    GAviTestFile lists = SmallFile(GAviTestIndex::None, 3);
    lists.recLists = true;
    lists.junkBeforeData = 10;
    std::vector<std::uint8_t> unfilled = SmallFile(GAviTestIndex::None, 1).Build();
    for (const std::size_t size : {std::size_t{4}, PositionOf(unfilled, "movi") - 4}) {
        for (std::size_t i = 0; i < 4; ++i)
            unfilled[size + i] = 0;
    }
    const bool written =
        WriteSeed(folder, "idx1-relative", SmallFile(GAviTestIndex::Idx1Relative, 1).Build(), 0x40) &&
        WriteSeed(folder, "idx1-absolute", SmallFile(GAviTestIndex::Idx1Absolute, 1).Build(), 0x20) &&
        WriteSeed(folder, "opendml", SmallFile(GAviTestIndex::OpenDml, 2).Build(), 0x60) &&
        WriteSeed(folder, "opendml-fields", SmallFile(GAviTestIndex::OpenDmlFields, 2).Build(), 0x60) &&
        WriteSeed(folder, "opendml-growing", SmallFile(GAviTestIndex::OpenDml, 3).Build(), 0x81) &&
        WriteSeed(folder, "scan-lists", lists.Build(), 0x80) &&
        WriteSeed(folder, "scan-growing", lists.Build(), 0xA1) && WriteSeed(folder, "unfilled-sizes", unfilled, 0xC1);
    return written ? 0 : 1;
}
