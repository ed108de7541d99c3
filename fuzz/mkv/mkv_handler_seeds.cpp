// The first inputs of the Matroska fuzz target.

#include <cstdint>

#include "fuzz/fuzz_seeds.h"
#include "mkv/mkv_reading.h"

namespace vex {

namespace {

using namespace test;
using namespace mkv_id;

GEbmlBytes Video()
{
    return Element(kVideo,
                   {UIntElement(kPixelWidth, 320), UIntElement(kPixelHeight, 240), UIntElement(kDisplayWidth, 16),
                    UIntElement(kDisplayHeight, 9), FloatElement(kFrameRate, 25)});
}
GEbmlBytes Audio()
{
    return Element(kAudio,
                   {FloatElement(kSamplingFrequency, 48'000), UIntElement(kChannels, 2), UIntElement(kBitDepth, 16)});
}

GEbmlBytes Private(const GEbmlBytes& data) { return Element(kCodecPrivate, data); }

// One track of every codec whose private data are looked into.
GEbmlBytes Codecs()
{
    const GEbmlBytes avc = {1,  77,   64,   30,   0xFF, 0xE1, 0, 8, 0x67, 77,  64,
                            30, 0xE8, 0x80, 0xA0, 0x40, 1,    0, 2, 0x68, 0xCE};
    const GEbmlBytes mpeg2 = {0, 0, 1, 0xB3, 0, 0, 1, 0xB5, 0x14, 0x80};
    const GEbmlBytes bitmap = Join({{40, 0, 0, 0}, GEbmlBytes(36, 1)});
    const GEbmlBytes xiph = {2, 1, 2, 0x01, 0x03, 0x33, 0x05, 0x55, 0x56};
    return GMkvBuilder()
        .AddInfo()
        .AddTracks({TrackEntry(1, 1, "V_MPEG4/ISO/AVC", Join({Video(), Private(avc)})),
                    TrackEntry(2, 1, "V_MPEG2", Join({Video(), Private(mpeg2)})),
                    TrackEntry(3, 1, "V_MS/VFW/FOURCC", Join({Video(), Private(bitmap)})),
                    TrackEntry(4, 1, "V_THEORA", Join({Video(), Private(GEbmlBytes(60, 2))})),
                    TrackEntry(5, 2, "A_VORBIS", Join({Audio(), Private(xiph)})),
                    TrackEntry(6, 2, "A_MS/ACM", Private(GEbmlBytes(18, 1))),
                    TrackEntry(7, 2, "A_AAC/MPEG4/LC/SBR", Audio()),
                    TrackEntry(8, 2, "A_FLAC", Join({Audio(), Private({'f', 'L', 'a', 'C'})})),
                    TrackEntry(9, 2, "A_REAL/COOK", Private({1})), TrackEntry(10, 0x11, "S_TEXT/ASS", Private({'['}))})
        .Add(Cluster(0, {SimpleBlock(1, 0, kKeyFlag, {1}), SimpleBlock(5, 0, kKeyFlag, {2})}))
        .Build();
}

}  // namespace

void fuzz::WriteSeeds(GSeedFolder& seeds)
{
    const GEbmlBytes second = Cluster(1000, {Picture(0, 1, kKeyFlag), Sound(0, {1, 1, 2}, kFixedLace)});
    const GEbmlBytes third = Cluster(2000, {DependentGroup(0, {4, 5}), Picture(40, 2, kKeyFlag)});
    seeds.Write("small", SmallFile(), 0xA0);
    seeds.Write("live", LiveFile(), 0x52);
    seeds.Write("no-cues", ThreeTracks().Add(second).Add(third).Build(), 0x80);
    seeds.Write("codecs", Codecs(), 0x00);
    seeds.Write("damaged", ThreeTracks().Add(second).Add({0, 1, 2, 0x1F, 0x43}).Add(third).Build(), 0x5A);
}

}  // namespace vex
