// What tracks become outside: media types to the byte, their order, pin names, and private data of every wrong length.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include "formats/mkv/mkv_track_types.h"
#include "io/fourcc.h"
#include "media/codec_guids.h"
#include "mkv/mkv_sources.h"
#include "platform/fonts.h"
#include "support/ebml_builder.h"

namespace vex::test {
namespace {

using namespace mkv_id;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

GMkvTrack Track(std::uint64_t type, std::string_view codec)
{
    GMkvTrack track;
    track.trackNumber = CUInt(1);
    track.trackType = CUInt(type);
    track.codecId.assign(codec.begin(), codec.end());
    return track;
}

GMkvTrack VideoTrack(std::string_view codec)
{
    GMkvTrack track = Track(GMkvTrack::kVideo, codec);
    track.video.pixelWidth = CUInt(320);
    track.video.pixelHeight = CUInt(240);
    return track;
}

GMkvTrack AudioTrack(std::string_view codec)
{
    GMkvTrack track = Track(GMkvTrack::kAudio, codec);
    track.audio.samplingFrequency = CFloat(22'050.9);
    track.audio.channels = CUInt(2);
    track.audio.bitDepth = CUInt(16);
    return track;
}

// A little-endian number of the format block.
std::uint64_t At(const CMediaType& type, std::size_t offset, std::size_t bytes = 4)
{
    std::uint64_t value = 0;
    for (std::size_t i = bytes; i-- > 0;)
        value = value << 8 | type.Format()[offset + i];
    return value;
}

struct GField {
    std::size_t offset;
    std::uint64_t value;
    std::size_t bytes = 4;
};

void ExpectFields(const CMediaType& type, std::initializer_list<GField> fields)
{
    for (const GField& field : fields)
        EXPECT_EQ(At(type, field.offset, field.bytes), field.value) << "at " << field.offset;
}

// The one type of a track that has no other.
CMediaType Only(const std::vector<CMediaType>& types)
{
    EXPECT_THAT(types, SizeIs(1));
    return types.at(0);
}

GEbmlBytes Bytes(const CMediaType& type, std::size_t from)
{
    const auto format = type.Format().subspan(from);
    return {format.begin(), format.end()};
}

// Offsets in VIDEOINFOHEADER, VIDEOINFOHEADER2 and MPEG2VIDEOINFO.
constexpr std::size_t kFrameTime = 40;
constexpr std::size_t kBitmap1 = 48;
constexpr std::size_t kAspectX = 56;
constexpr std::size_t kAspectY = 60;
constexpr std::size_t kBitmap2 = 72;
constexpr std::size_t kSequenceSize = 116;
constexpr std::size_t kProfile = 120;
constexpr std::size_t kLevel = 124;
constexpr std::size_t kFlags = 128;
constexpr std::size_t kSequence = 132;
constexpr std::size_t kBitmapBytes = 40;
// In WAVEFORMATEX.
constexpr std::size_t kWaveBytes = 18;

GEbmlBytes Avc() { return {1, 77, 64, 31, 0xFD, 0xE2, 0, 3, 0x67, 77, 64, 0, 3, 0x67, 77, 64, 1, 0, 2, 0x68, 1}; }

TEST(MkvVideoTypes, AvcKeepsTheParameterSetsBehindTheirLengths)
{
    const CMediaType type = Only(MkvVideoTypes(VideoTrack("V_MPEG4/ISO/AVC"), Avc()));
    EXPECT_EQ(type.subtype, SubtypeFromFourCC("AVC1"));
    EXPECT_EQ(type.formattype, FORMAT_MPEG2Video);
    constexpr std::uint64_t kLengthBytes = 2;
    ExpectFields(type, {{kProfile, 77}, {kLevel, 31}, {kFlags, kLengthBytes}, {kSequenceSize, 14}});
    ExpectFields(type,
                 {{kBitmap2, kBitmapBytes}, {kBitmap2 + 4, 320}, {kBitmap2 + 8, 240}, {kBitmap2 + 12, 24u << 16 | 1u}});
    EXPECT_EQ(Bytes(type, kSequence), (GEbmlBytes{0, 3, 0x67, 77, 64, 0, 3, 0x67, 77, 64, 0, 2, 0x68, 1}));
    for (GEbmlBytes cut = Avc(); !cut.empty();) {
        cut.pop_back();
        EXPECT_THAT(MkvVideoTypes(VideoTrack("V_MPEG4/ISO/AVC"), cut), IsEmpty()) << cut.size();
    }
}

GEbmlBytes TheoraPrivate(std::uint8_t rate = 25)
{
    return Join({GEbmlBytes(13),
                 {0x20, 0x01, 0x30, 0x02, 0, 1, 10, 0, 0, 200, 5, 6, 0, 0, 0, rate, 0, 0, 0, 1},
                 GEbmlBytes(12)});
}

TEST(MkvVideoTypes, TheoraReadsItsIdentificationHeader)
{
    const CMediaType type = Only(MkvVideoTypes(VideoTrack("V_THEORA"), TheoraPrivate()));
    EXPECT_EQ(type.subtype, SubtypeFromFourCC("THEO"));
    ExpectFields(
        type, {{kBitmap2 + 4, 0x12}, {kBitmap2 + 8, 0x23}, {kFrameTime, 400'000, 8}, {kAspectX, 266}, {kAspectY, 200}});
    EXPECT_EQ(Bytes(type, kSequence), TheoraPrivate());
    ExpectFields(MkvVideoTypes(VideoTrack("V_THEORA"), TheoraPrivate(0)).at(0), {{kFrameTime, 0, 8}});
    EXPECT_THAT(MkvVideoTypes(VideoTrack("V_THEORA"), GEbmlBytes(32)), IsEmpty());
}

GEbmlBytes Bitmap(std::uint16_t depth, std::uint32_t compression, const GEbmlBytes& behind = {})
{
    BITMAPINFOHEADER header{};
    header.biSize = sizeof header;
    header.biBitCount = depth;
    header.biCompression = compression;
    GEbmlBytes bytes(sizeof header);
    std::memcpy(bytes.data(), &header, sizeof header);
    return Join({bytes, behind});
}

TEST(MkvVideoTypes, VfwTracksCarryTheirBitmapHeaderAndWhatFollowsIt)
{
    const struct {
        std::uint16_t depth;
        DWORD compression;
        GUID subtype;
    } rows[] = {{24, FourCC("XVID"), SubtypeFromFourCC("XVID")},
                {16, BI_RGB, MEDIASUBTYPE_RGB565},
                {32, BI_BITFIELDS, MEDIASUBTYPE_ARGB32},
                {12, BI_RGB, GUID_NULL}};
    for (const auto& row : rows) {
        const GEbmlBytes codecPrivate = Bitmap(row.depth, row.compression, {1, 2, 3});
        const auto types = MkvVideoTypes(VideoTrack("V_MS/VFW/FOURCC"), codecPrivate);
        EXPECT_EQ(types.at(0).subtype, row.subtype) << row.depth;
        EXPECT_EQ(types[0].formattype, FORMAT_VideoInfo);
        EXPECT_EQ(Bytes(types[0], kBitmap1), codecPrivate);
    }
    EXPECT_THAT(MkvVideoTypes(VideoTrack("V_MS/VFW/FOURCC"), GEbmlBytes(39)), IsEmpty());
}

TEST(MkvVideoTypes, ADisplaySizeGivesVideoInfoATwinInFrontAndMpeg2ItsAspect)
{
    GMkvTrack track = VideoTrack("V_MS/VFW/FOURCC");
    track.video.displayWidth = CUInt(16);
    track.video.frameRate = CFloat(25.0);
    const GEbmlBytes codecPrivate = Bitmap(24, 0x44495658, {1, 2, 3});
    EXPECT_THAT(MkvVideoTypes(track, codecPrivate), SizeIs(1)) << "one of the two is not there";
    track.video.displayHeight = CUInt(9);
    const auto types = MkvVideoTypes(track, codecPrivate);
    ASSERT_THAT(types, SizeIs(2));
    EXPECT_EQ(types[0].formattype, FORMAT_VideoInfo2);
    EXPECT_EQ(types[1].formattype, FORMAT_VideoInfo);
    EXPECT_EQ(types[0].cbFormat, kBitmap2 + codecPrivate.size());
    EXPECT_EQ(0, std::memcmp(types[0].pbFormat, types[1].pbFormat, kBitmap1));
    ExpectFields(types[0],
                 {{kFrameTime, 400'000, 8}, {kBitmap1, 0, 8}, {kAspectX, 16}, {kAspectY, 9}, {kAspectY + 4, 0, 8}});
    EXPECT_EQ(Bytes(types[0], kBitmap2), codecPrivate);

    GMkvTrack mpeg2 = VideoTrack("V_MPEG2");
    mpeg2.video = track.video;
    const GEbmlBytes sequence = {0, 0, 1, 0xB5, 0x11, 0x4F};
    const CMediaType single = Only(MkvVideoTypes(mpeg2, sequence));
    EXPECT_EQ(single.subtype, MEDIASUBTYPE_MPEG2_VIDEO);
    ExpectFields(single, {{kAspectX, 16}, {kAspectY, 9}, {kSequenceSize, 6}, {kProfile, 5}, {kLevel, 4}});
}

TEST(MkvVideoTypes, TheFrameTimeComesFromTheRateThenTheDurationThenTheStream)
{
    const auto time = [](const GMkvTrack& track, const GEbmlBytes& codecPrivate) {
        return At(MkvVideoTypes(track, codecPrivate).at(0), kFrameTime, 8);
    };
    GMkvTrack track = VideoTrack("V_VP8");
    EXPECT_EQ(time(track, {}), 0u);
    track.defaultDuration = CUInt(41'708'399);
    EXPECT_EQ(time(track, {}), 417'083u);
    track.video.frameRate = CFloat(29.97);
    EXPECT_EQ(time(track, {}), 333'667u);
    for (const double rate : {1e-300, std::numeric_limits<double>::infinity(), -1.0, std::nan("")}) {
        track.video.frameRate = CFloat(rate);
        EXPECT_LE(time(track, {}), 417'083u) << rate;
    }
    // 50 ticks per second at a fixed rate: 25 frames.
    const GEbmlBytes sps = {0x67, 0x42, 0xC0, 0x0A, 0xD9, 0x04, 0x7B, 0x01, 0x10, 0x00, 0x00, 0x03,
                            0x00, 0x10, 0x00, 0x00, 0x03, 0x03, 0x28, 0xF1, 0x22, 0x64, 0x80};
    const GEbmlBytes timed = Join({{1, 66, 0xC0, 10, 0xFF, 0xE1, 0, 23}, sps, {0}});
    GMkvTrack avc = VideoTrack("V_MPEG4/ISO/AVC");
    EXPECT_EQ(time(avc, timed), 400'000u);
    EXPECT_EQ(time(avc, Avc()), 10'000'000u) << "a stream without timing counts as one a second";
    avc.defaultDuration = CUInt(20'000'000);
    EXPECT_EQ(time(avc, timed), 200'000u);
}

TEST(MkvVideoTypes, CodecIdsAreComparedToTheByteAndTheirPrefixesInOrder)
{
    const std::pair<std::string_view, GUID> rows[] = {{"V_MPEG4/", SubtypeFromFourCC("MP4V")},
                                                      {{"V_VP8\0\0", 7}, SubtypeFromFourCC("VP80")},
                                                      {"V_UNCOMPRESSED", GUID_NULL},
                                                      {"V_REAL/RV40", SubtypeFromFourCC("RV40")}};
    for (const auto& [id, subtype] : rows)
        EXPECT_EQ(MkvVideoTypes(VideoTrack(id), {}).at(0).subtype, subtype) << id;
    for (const std::string_view id : {"", "v_vp8", "V_VP80", "V_REAL/RV", "V_MPEG4"})
        EXPECT_THAT(MkvVideoTypes(VideoTrack(id), {}), IsEmpty()) << id;
}

TEST(MkvAudioTypes, TheWaveFormatIsThatOfTheTrack)
{
    const CMediaType type = Only(MkvAudioTypes(AudioTrack("A_PCM/INT/LIT"), GEbmlBytes(5)));
    EXPECT_EQ(type.lSampleSize, 256'000u);
    EXPECT_EQ(type.cbFormat, kWaveBytes) << "no private data here";
    ExpectFields(type, {{0, 1, 2}, {2, 2, 2}, {4, 22'050}, {8, 88'200}, {12, 4, 2}, {14, 16, 2}, {16, 0, 2}});

    const auto bare = MkvAudioTypes(Track(GMkvTrack::kAudio, "A_AC3"), {});
    EXPECT_EQ(bare.at(0).subtype, SubtypeFromWaveTag(0x2000));
    ExpectFields(bare[0], {{0, 0x2000, 2}, {2, 1, 2}, {4, 8'000}, {8, 0}, {12, 0}});

    GMkvTrack absurd = AudioTrack("A_AC3");
    absurd.audio.channels = absurd.audio.bitDepth = CUInt(~std::uint64_t{0});
    for (const double rate : {-1.0, 1e300, std::nan(""), std::numeric_limits<double>::infinity()}) {
        absurd.audio.samplingFrequency = CFloat(rate);
        EXPECT_THAT(MkvAudioTypes(absurd, {}), SizeIs(1));
    }
}

TEST(MkvAudioTypes, AacIsDescribedByItsPrivateDataOrByItsName)
{
    const CMediaType own = Only(MkvAudioTypes(AudioTrack("A_AAC"), GEbmlBytes{0x13, 0x90}));
    EXPECT_EQ(own.subtype, SubtypeFromWaveTag(0xFF));
    EXPECT_EQ(Bytes(own, 16), (GEbmlBytes{2, 0, 0x13, 0x90}));

    EXPECT_EQ(MkvAudioTypes(AudioTrack("A_AAC/MPEG2/MAIN"), GEbmlBytes{9, 9}).at(0).Format()[kWaveBytes] >> 3, 1);
    EXPECT_EQ(MkvAudioTypes(AudioTrack("A_AAC/"), {}).at(0).Format()[kWaveBytes] >> 3, 2) << "LC";

    const auto sbr = MkvAudioTypes(AudioTrack("A_AAC/MPEG4/LC/SBR"), {});
    ASSERT_THAT(sbr, SizeIs(2)) << "SBR comes before LC";
    ExpectFields(sbr[0], {{4, 44'100}, {8, 176'400}});
    ExpectFields(sbr[1], {{4, 22'050}, {8, 88'200}});
    EXPECT_EQ(Bytes(sbr[0], 16), Bytes(sbr[1], 16));
}

TEST(MkvAudioTypes, TwinsComeInTheirOrder)
{
    const auto flac = MkvAudioTypes(AudioTrack("A_FLAC"), GEbmlBytes{'f', 'L'});
    ASSERT_THAT(flac, SizeIs(2));
    EXPECT_EQ(flac[0].subtype, MEDIASUBTYPE_FlacFramed);
    EXPECT_EQ(flac[1].subtype, SubtypeFromWaveTag(0xF1AC));
    EXPECT_EQ(Bytes(flac[0], 0), Bytes(flac[1], 0));
    EXPECT_EQ(Bytes(flac[0], 16), (GEbmlBytes{2, 0, 'f', 'L'}));
    EXPECT_THAT(MkvAudioTypes(AudioTrack("A_FLAC"), GEbmlBytes(0x10000)), IsEmpty()) << "does not fit its 16-bit size";

    const auto vorbis = MkvAudioTypes(AudioTrack("A_VORBIS"), GEbmlBytes{2, 1, 2, 0x01, 0x03, 0x33, 0x05, 0x55, 0x56});
    ASSERT_THAT(vorbis, SizeIs(2));
    EXPECT_EQ(vorbis[0].subtype, MEDIASUBTYPE_Vorbis2);
    EXPECT_EQ(vorbis[0].formattype, FORMAT_VorbisFormat2);
    ExpectFields(vorbis[0], {{0, 2}, {4, 22'050}, {8, 16}, {12, 1}, {16, 2}, {20, 3}});
    EXPECT_EQ(Bytes(vorbis[0], 24), (GEbmlBytes{0x01, 0x03, 0x33, 0x05, 0x55, 0x56}));
    EXPECT_EQ(vorbis[1].subtype, MEDIASUBTYPE_Vorbis);
    EXPECT_EQ(vorbis[1].cbFormat, 24u);
    ExpectFields(vorbis[1], {{0, 2, 2}, {4, 22'050}, {8, 0xFFFFFFFF'FFFFFFFF, 8}, {16, 0xFFFFFFFF}});
    EXPECT_THAT(MkvAudioTypes(AudioTrack("A_VORBIS"), GEbmlBytes{1, 1, 2, 3}), SizeIs(1)) << "two packets";
}

TEST(MkvAudioTypes, FormatsThatTheFileBringsAreTakenAsTheyAre)
{
    const GEbmlBytes wave = {0x55, 0, 2, 0, 0x44, 0xAC, 0, 0, 1, 2, 3, 4, 1, 0, 0, 0, 2, 0, 7, 8};
    const CMediaType acm = Only(MkvAudioTypes(AudioTrack("A_MS/ACM"), wave));
    EXPECT_EQ(acm.subtype, SubtypeFromWaveTag(0x55));
    EXPECT_EQ(Bytes(acm, 0), wave);
    EXPECT_THAT(MkvAudioTypes(AudioTrack("A_MS/ACM"), GEbmlBytes(wave.begin(), wave.begin() + 15)), IsEmpty());

    const CMediaType real = Only(MkvAudioTypes(AudioTrack("A_REAL/COOK"), GEbmlBytes{1, 2, 3}));
    EXPECT_EQ(real.subtype, SubtypeFromFourCC("COOK"));
    EXPECT_EQ(Bytes(real, 16), (GEbmlBytes{0, 0, 1, 2, 3}));
    EXPECT_THAT(MkvAudioTypes(AudioTrack("A_REAL/COO"), {}), IsEmpty());
    EXPECT_THAT(MkvAudioTypes(AudioTrack("A_OPUS"), {}), IsEmpty());
}

TEST(MkvSubtitleTypes, TheBlockHoldsLanguageNameAndPrivateData)
{
    GMkvTrack track = Track(GMkvTrack::kSubtitle, "S_TEXT/SSA");
    track.language = "ger-AT";
    track.name = WString(300, WCHAR{'n'});
    const CMediaType type = Only(MkvSubtitleTypes(track, GEbmlBytes{'[', ']'}));
    EXPECT_EQ(type.majortype, MEDIATYPE_Subtitle);
    EXPECT_EQ(type.subtype, MEDIASUBTYPE_SSA);
    EXPECT_EQ(type.formattype, FORMAT_SubtitleInfo);
    constexpr std::size_t kLastOf255 = 8 + 254 * 2;
    ExpectFields(type, {{0, 520}, {4, 'g' | 'e' << 8 | 'r' << 16}, {kLastOf255, 'n'}});
    EXPECT_EQ(Bytes(type, 520), (GEbmlBytes{'[', ']'}));
    const auto plain = MkvSubtitleTypes(Track(GMkvTrack::kSubtitle, "S_TEXT/ASCII"), {});
    EXPECT_EQ(plain.at(0).majortype, MEDIATYPE_Text);
    EXPECT_EQ(plain[0].subtype, GUID_NULL);
    EXPECT_EQ(plain[0].formattype, FORMAT_None);
    EXPECT_EQ(plain[0].cbFormat, 0u);
    EXPECT_THAT(MkvSubtitleTypes(Track(GMkvTrack::kSubtitle, "S_HDMV/PGS"), {}), IsEmpty());
}

std::vector<GMkvDescribedTrack> Describe(std::initializer_list<GEbmlBytes> tracks, const GEbmlBytes& more = {})
{
    GMkvTestFile file;
    EXPECT_TRUE(file.Open(OpenInMemory(GMkvBuilder().AddInfo().AddTracks(tracks).Add(more).Build())).Ok());
    auto described = DescribeMkvTracks(file);
    for (GMkvDescribedTrack& entry : described)
        entry.track = nullptr;  // the file goes
    return described;
}

TEST(MkvTrackTypes, PinsAreNamedByLanguageNameAndNumberWithinTheirKind)
{
    const auto described = Describe({
        TrackEntry(7, GMkvTrack::kVideo, "V_VP8"),
        TrackEntry(8, GMkvTrack::kAudio, "A_NOBODY/KNOWS"),
        TrackEntry(9, GMkvTrack::kAudio, "A_AC3", TextElement(kLanguage, "ger")),
        TrackEntry(10, GMkvTrack::kAudio, "A_AC3",
                   Join({TextElement(kLanguage, "jpn"), TextElement(kName, "Commentary")})),
        TrackEntry(11, 0x20, "S_TEXT/UTF8"),
        TrackEntry(12, GMkvTrack::kSubtitle, "S_TEXT/UTF8", TextElement(kLanguage, {"xyz\0\0", 5})),
    });
    std::vector<std::pair<std::string, std::uint32_t>> pins;
    for (const GMkvDescribedTrack& entry : described)
        pins.emplace_back(Utf8FromWide(entry.info.pinName), entry.info.number);
    EXPECT_THAT(pins, ElementsAre(Pair("English (Video 1)", 7), Pair("German (Audio 1)", 9),
                                  Pair("Japanese, Commentary (Audio 2)", 10), Pair("xyz (Subtitle 1)", 12)));
}

TEST(MkvTrackTypes, ATrackWhosePrivateDataCannotBeDecodedGetsNoPin)
{
    const auto encoded = [](std::uint64_t scope) {
        return Join({Element(kCodecPrivate, {1, 2, 3}),
                     Element(kContentEncodings, {Element(kContentEncoding, {UIntElement(kContentEncodingScope, scope),
                                                                            UIntElement(kContentEncodingType, 1)})})});
    };
    EXPECT_THAT(
        Describe({TrackEntry(1, GMkvTrack::kVideo, "V_VP8", encoded(2)), TrackEntry(2, GMkvTrack::kAudio, "A_AC3")}),
        SizeIs(1));
    EXPECT_THAT(Describe({TrackEntry(1, GMkvTrack::kVideo, "V_VP8", encoded(1))}), SizeIs(1))
        << "only its frames are encrypted";
}

TEST(MkvTrackTypes, TheFirstSubtitleTrackBringsTheFontsAndOnlyOnce)
{
    const auto attached = [](std::string_view type, const GEbmlBytes& data) {
        return Element(kAttachedFile, {TextElement(kFileMimeType, type), Element(kFileData, data)});
    };
    constexpr std::string_view kFont = "application/x-truetype-font";
    const GEbmlBytes fonts = Element(kAttachments, {attached(kFont, {1, 2, 3}), attached("image/png", {1}),
                                                    attached(kFont, {}), attached(kFont, {1, 2})});
    const std::size_t before = ProcessFonts().size();
    Describe({TrackEntry(1, GMkvTrack::kVideo, "V_VP8")}, fonts);
    EXPECT_EQ(ProcessFonts().size(), before);
    Describe({TrackEntry(1, GMkvTrack::kSubtitle, "S_TEXT/SSA"), TrackEntry(2, GMkvTrack::kSubtitle, "S_TEXT/ASS")},
             fonts);
    auto fontSizes = ProcessFonts();
    fontSizes.erase(fontSizes.begin(), fontSizes.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(fontSizes, ElementsAre(3, 2));
}

}  // namespace
}  // namespace vex::test
