// The first inputs of the Ogg fuzz target.

#include "fuzz/fuzz_seeds.h"
#include "support/ogg_builder.h"

namespace vex {

namespace {

using namespace test;

GOggBytes Ogm()
{
    return Join({HeaderPages(3, {OgmHeader({.type = "video", .subtype = "XVID"}), CommentHeader({"LANGUAGE=fre"})}),
                 HeaderPages(4, {OgmHeader({.type = "audio", .subtype = "55"})}),
                 HeaderPages(5, {OgmHeader({.type = "text", .subtype = ""})}),
                 Page({.serial = 3, .number = 2, .granule = 1, .packets = {{8, 1}, {0, 2}}}),
                 Page({.serial = 4, .number = 1, .granule = 7, .packets = {{0, 1}, {0x41, 9, 2}}}),
                 Page({.serial = 5, .number = 1, .granule = 2, .packets = {{0x40, 3, 'a'}}}),
                 Page({.serial = 3, .number = 3, .granule = -1, .packets = {{8, 1}, {0, 2}}})});
}

}  // namespace

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    seeds.Write("theora", TheoraFile(20), 0x40);
    seeds.Write("theora-vorbis", TheoraFile(12, 20, true), 0x81);
    seeds.Write("vorbis", VorbisFile(6, 3), 0x62);
    seeds.Write("ogm", Ogm(), 0x20);
    seeds.Write("chained", Join({VorbisFile(2, 3), VorbisFile(2, 2)}), 0xA1);
}

}  // namespace vex
