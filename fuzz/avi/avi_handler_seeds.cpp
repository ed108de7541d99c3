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
    GAviTestFile lists = SmallFile(GAviTestIndex::None, 3);
    lists.recLists = true;
    lists.junkBeforeData = 10;
    std::vector<std::uint8_t> unfilled = SmallFile(GAviTestIndex::None, 1).Build();
    Put(unfilled, 4, 0);
    Put(unfilled, PositionOf(unfilled, "movi") - 4, 0);

    // As the target takes it: the file and one byte of control.
    const auto write = [&](const char* name, std::vector<std::uint8_t> bytes, std::uint8_t control) {
        bytes.push_back(control);
        std::ofstream out(std::string(argv[1]) + "/" + name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return static_cast<bool>(out.flush());
    };
    const bool written = write("idx1-relative", SmallFile(GAviTestIndex::Idx1Relative, 1).Build(), 0x40) &&
                         write("idx1-absolute", SmallFile(GAviTestIndex::Idx1Absolute, 1).Build(), 0x20) &&
                         write("opendml", SmallFile(GAviTestIndex::OpenDml, 2).Build(), 0x60) &&
                         write("opendml-fields", SmallFile(GAviTestIndex::OpenDmlFields, 2).Build(), 0x60) &&
                         write("opendml-growing", SmallFile(GAviTestIndex::OpenDml, 3).Build(), 0x81) &&
                         write("scan-lists", lists.Build(), 0x80) && write("scan-growing", lists.Build(), 0xA1) &&
                         write("unfilled-sizes", unfilled, 0xC1);
    return written ? 0 : 1;
}
