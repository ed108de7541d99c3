// The first inputs of the Matroska fuzz target.

#include <cstdint>

#include "fuzz/fuzz_seeds.h"
#include "support/ebml_builder.h"

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

GEbmlBytes LacedCluster(std::uint64_t time)
{
    return Cluster(
        time, {SimpleBlock(1, 0, kKeyFlag, {1, 2, 3}), SimpleBlock(2, 0, kXiphLace, {2, 1, 2, 1, 2, 2, 3, 3}),
               SimpleBlock(2, 30, kFixedLace, {1, 1, 2}), SimpleBlock(2, 60, kEbmlLace, {2, 0x81, 0xC0, 1, 2, 2, 3}),
               BlockGroup(3, 10, {'h', 'i'}, UIntElement(kBlockDuration, 900)),
               BlockGroup(1, 40, {4, 5}, UIntElement(kReferenceBlock, 0xD8))});
}

GMkvBuilder Usual()
{
    return GMkvBuilder()
        .AddSeekHead({kInfo, kTracks, kCues, kAttachments})
        .AddInfo({FloatElement(kDuration, 3000)})
        .AddTracks({TrackEntry(1, 1, "V_VP8", Join({Video(), UIntElement(kMinCache, 1)})),
                    TrackEntry(2, 2, "A_AC3", Audio()),
                    TrackEntry(3, 0x11, "S_TEXT/UTF8", TextElement(kLanguage, "ger"))});
}

GEbmlBytes Cued()
{
    const GEbmlBytes font = Element(kAttachedFile, {TextElement(kFileName, "f.ttf"), Element(kFileData, {1, 2}),
                                                    TextElement(kFileMimeType, "application/x-truetype-font")});
    return Usual()
        .Add(LacedCluster(0))
        .Add(LacedCluster(1000))
        .Add(LacedCluster(2000))
        .AddCues({{0, 1, 0}, {1000, 1, 1}, {2000, 1, 2}})
        .Add(Element(kAttachments, font))
        .Build();
}

GEbmlBytes Live()
{
    const auto cluster = [](std::uint64_t time) {
        return UnknownSizeElement(kCluster, Join({UIntElement(kTimecode, time), SimpleBlock(1, 0, kKeyFlag, {1}),
                                                  SimpleBlock(1, 40, 0, {2, 3})}));
    };
    return GMkvBuilder()
        .AddInfo()
        .AddTracks({TrackEntry(1, 1, "V_VP8", Video())})
        .Add(cluster(500))
        .Add(cluster(1500))
        .Add(cluster(2500))
        .Build(GMkvBuilder::GSegmentSize::Unknown);
}

GEbmlBytes Encoded()
{
    return GMkvBuilder()
        .AddInfo()
        .AddTracks({TrackEntry(1, 1, "V_VP8", Join({Video(), ContentEncodings(0)})),
                    TrackEntry(2, 2, "A_AC3", Join({Audio(), ContentEncodings(3, {0x0B, 0x77})}))})
        .Add(Cluster(0, {SimpleBlock(1, 0, kKeyFlag, ZlibCompressed(GEbmlBytes(500, 1))),
                         SimpleBlock(2, 0, kFixedLace, {1, 1, 2}), SimpleBlock(1, 40, 0, ZlibCompressed({1, 2, 3}))}))
        .Build();
}

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
    const GEbmlBytes cluster = LacedCluster(0);
    seeds.Write("cued", Cued(), 0xA0);
    seeds.Write("live", Live(), 0x52);
    seeds.Write("no-cues", Usual().Add(cluster).Add(LacedCluster(1000)).Add(LacedCluster(2000)).Build(), 0x80);
    seeds.Write("encoded", Encoded(), 0x22);
    seeds.Write("codecs", Codecs(), 0x00);
    seeds.Write("damaged", Usual().Add(cluster).Add({0, 1, 2, 0x1F, 0x43}).Add(LacedCluster(9)).Build(), 0x5A);
}

}  // namespace vex
