#include "formats/mp4/mp4_codecs.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>

#include "formats/mp4/mp4_box_kinds.h"
#include "formats/mp4/mp4_records.h"
#include "io/limits.h"
#include "media/ac3_header.h"
#include "media/video_types.h"
#include "media/wave_tags.h"
#include "platform/trace.h"

namespace vex {
namespace {

using namespace mp4_codec;

constexpr std::uint32_t kMsAdpcm = FourCC("ms\0\x02");
constexpr std::uint32_t kMsIma = FourCC("ms\0\x11");
constexpr std::uint32_t kMsMp3 = FourCC("ms\0\x55");

// Samples of constant size up to this many bytes are grouped.
constexpr std::uint32_t kLargestGrouped = 256;

struct GEntryCodec {
    std::uint32_t type;
    unsigned codec;
};

constexpr GEntryCodec kAudioCodecs[]{
    {FourCC("mp4a"), kAac},      {FourCC(".mp3"), kMpegAudio}, {kMsMp3, kMpegAudio},        {FourCC("ima4"), kImaAdpcm},
    {kMsAdpcm, kImaAdpcm},       {kMsIma, kImaAdpcm},          {FourCC("twos"), kTwos},     {FourCC("sowt"), kSowt},
    {FourCC("raw "), kRawAudio}, {FourCC("in24"), kIn24},      {FourCC("ulaw"), kMuLaw},    {FourCC("alaw"), kALaw},
    {FourCC("ac-3"), kAc3},      {FourCC("QDM2"), kQdesign2},  {FourCC("QDMC"), kQdesign1}, {FourCC("MAC3"), kMace3},
    {FourCC("MAC6"), kMace6},    {FourCC("Qclp"), kQcelp},     {FourCC("samr"), kAmr},
};

constexpr GEntryCodec kVideoCodecs[]{
    {FourCC("mp4v"), kMpeg4Video},   {FourCC("avc1"), kAvc},         {FourCC("h264"), kH264},
    {FourCC("h263"), kH263},         {FourCC("s263"), kH263},        {FourCC("cvid"), kCinepak},
    {FourCC("jpeg"), kJpeg},         {FourCC("mjpa"), kMotionJpegA}, {FourCC("rpza"), kRoadPizza},
    {FourCC("rle "), kQuickTimeRle}, {FourCC("SVQ1"), kSorenson1},   {FourCC("SVQ3"), kSorenson3},
    {FourCC("IV41"), kIndeo4},       {FourCC("dvc "), kDv},          {FourCC("raw "), kRawVideo},
};

template <std::size_t N>
unsigned CodecOf(const GEntryCodec (&rows)[N], std::uint32_t type)
{
    const auto* const row = std::ranges::find(rows, type, &GEntryCodec::type);
    return row != std::end(rows) ? row->codec : kNone;
}

bool IsMsAdpcm(std::uint32_t type) { return type == kMsAdpcm || type == kMsIma; }

bool IsOneOf(std::uint32_t type, std::initializer_list<std::uint32_t> types)
{
    return std::ranges::find(types, type) != types.end();
}

// What an object type stands for. 0xE1 is a speech codec only in an audio track.
unsigned CodecOfObjectType(unsigned objectType, unsigned fromEntry, GMp4Category category)
{
    switch (objectType) {
    case 0x20:
        return kMpeg4Video;
    case 0x40:
    case 0x66:
    case 0x67:
    case 0x68:
        return kAac;
    case 0x60:
    case 0x61:
    case 0x62:
    case 0x63:
    case 0x64:
    case 0x65:
        return kMpeg2Video;
    case 0xE1:
        return category == GMp4Category::Audio ? kQcelp : fromEntry;
    default:
        return objectType;
    }
}

void SetExtra(Mp4Track& track, GBytes bytes)
{
    bytes = bytes.first(std::min<std::size_t>(bytes.size(), kMaxCodecDataSize));
    track.extra.assign(bytes.begin(), bytes.end());
}

// Nine bytes that carry the type of the entry, then more configuration.
void SetTaggedExtra(Mp4Track& track, GBytes bytes)
{
    SetExtra(track, bytes);
    const auto type = track.entryType;
    track.extra.insert(track.extra.begin(),
                       {0, 0, 0, 0, static_cast<std::uint8_t>(type), static_cast<std::uint8_t>(type >> 8),
                        static_cast<std::uint8_t>(type >> 16), static_cast<std::uint8_t>(type >> 24), 0});
}

bool TakeDescriptor(Mp4Track& track, Mp4Box& entry)
{
    const Mp4Box* esds = GMp4BoxTree::GetBox(entry, "esds");
    if (!esds)
        esds = GMp4BoxTree::GetBox(entry, "wave/esds");
    if (!esds)
        return false;
    const std::optional<Mp4DecoderConfig> config = ReadDecoderConfig(esds->data);
    if (!config)
        return false;
    track.codec = CodecOfObjectType(config->objectType, track.codec, track.category);
    track.maxBitRate = config->maxBitRate;
    track.avgBitRate = config->avgBitRate;
    SetExtra(track, config->specific);
    return true;
}

bool TakeSpeechBox(Mp4Track& track, Mp4Box& entry)
{
    constexpr GEntryCodec kBoxes[]{{FourCC("dqcp"), kQcelp}, {FourCC("d723"), kG723}, {FourCC("devc"), kEvrc}};
    for (const GEntryCodec& row : kBoxes) {
        for (const Mp4Box* box = entry.firstChild; box; box = box->nextSibling) {
            if (box->type != row.type)
                continue;
            track.codec = row.codec;
            track.extra = ReadSpeechConfig(box->data);
            return true;
        }
    }
    return false;
}

// The first that fits counts.
void TakeConfiguration(Mp4Track& track, Mp4Box& entry)
{
    if (TakeDescriptor(track, entry) || TakeSpeechBox(track, entry))
        return;
    if (const Mp4Box* const avcC = GMp4BoxTree::GetBox(entry, "avcC")) {
        track.codec = kAvc;
        return SetExtra(track, avcC->data);
    }
    if (entry.type == FourCC("ima4") || IsMsAdpcm(entry.type)) {
        track.codec = kImaAdpcm;
        return SetTaggedExtra(track, {});
    }
    if (entry.type == FourCC("QDM2"))
        return SetTaggedExtra(track, EntryConfiguration(entry.data));
    if (IsOneOf(entry.type, {FourCC("SVQ1"), FourCC("SVQ3"), FourCC("3IV1"), FourCC("VP31"), FourCC("ZyGo"),
                             FourCC("QDMC"), FourCC("samr")}))
        SetExtra(track, EntryConfiguration(entry.data));
}

// QuickTime files of version 0 leave the packing to whoever knows the codec, and those of version 1 may claim one where
// there is none.
void CorrectPacking(Mp4Track& track, Mp4SoundEntry& sound)
{
    const std::uint32_t type = track.entryType;
    std::uint32_t& constantSize = track.tables.sampleSize;
    const auto pack = [&](std::uint32_t samples, std::uint32_t bytes) {
        sound.version = 1;
        sound.samplesPerPacket = samples;
        sound.bytesPerPacket = bytes;
        sound.bytesPerFrame = bytes * sound.channels;
        sound.bytesPerSample = 2;
    };
    if (sound.version == 0) {
        if (type == FourCC("MAC6"))
            pack(12, 2);
        else if (type == FourCC("MAC3"))
            pack(6, 2);
        else if (type == FourCC("ima4") || IsMsAdpcm(type))
            pack(64, 34);
        else if (IsOneOf(type, {FourCC("raw "), FourCC("twos"), FourCC("sowt")}))
            constantSize = (sound.bits + 7u) / 8u * sound.channels;
        else if (IsOneOf(type, {FourCC("alaw"), FourCC("ulaw")})) {
            sound.bits = 8;
            constantSize = sound.channels;
        }
    }
    if (sound.version == 1 && sound.samplesPerPacket == 0)
        sound.version = 0;
    if (sound.version == 1 && sound.bytesPerFrame == 0 && constantSize > 1) {
        // Some writers leave the size of a block to "stsz", which counts blocks then.
        sound.version = 0;
        sound.bytesPerFrame = constantSize;
    }
    if (sound.version == 1 && type == FourCC("ac-3"))
        sound.version = 0;
    if (sound.version == 1 && constantSize > 1 && (type == FourCC(".mp3") || type == kMsMp3))
        sound.version = 0;
}

// Raw audio counts its samples, so that its clock is its rate.
void MatchTimescale(Mp4Track& track, Mp4SoundEntry& sound)
{
    if (track.timescale == sound.sampleRate)
        return;
    Trace("timescale (%llu) != sampleratehi(%u), making both equal (report any problem).",
          static_cast<unsigned long long>(track.timescale), unsigned{sound.sampleRate});
    if (sound.sampleRate != 0)
        track.timescale = sound.sampleRate;
    else
        sound.sampleRate = static_cast<std::uint16_t>(track.timescale);
}

void SetAlign(Mp4Track& track, std::uint32_t bytes)
{
    track.blockAlign = bytes;
    track.wave.nBlockAlign = static_cast<WORD>(bytes);
}

void BuildWaveFormat(Mp4Track& track, const Mp4SoundEntry& sound, Mp4Box& entry)
{
    WAVEFORMATEX& wave = track.wave;
    const std::uint64_t bitsPerFrame = std::uint64_t{sound.bits} * sound.channels;
    wave.wFormatTag = wave_tag::kPcm;
    wave.nChannels = sound.channels;
    wave.nSamplesPerSec = sound.sampleRate;
    wave.wBitsPerSample = sound.bits;
    wave.nAvgBytesPerSec = static_cast<DWORD>(sound.sampleRate * bitsPerFrame / 8);
    SetAlign(track, static_cast<std::uint32_t>(bitsPerFrame / 8));
    if (track.codec == kG723 && GMp4BoxTree::GetBox(entry, "d723")) {
        wave.nChannels = 1;
        wave.wFormatTag = wave_tag::kG723;
        wave.nSamplesPerSec = 8000;
        wave.nAvgBytesPerSec = 800;
        wave.wBitsPerSample = 8;
        SetAlign(track, 24);
        return;
    }
    switch (track.codec) {
    case kALaw:
    case kMuLaw:
        wave.wBitsPerSample = 8;
        wave.wFormatTag = wave_tag::kMuLaw;
        wave.nAvgBytesPerSec = wave.nSamplesPerSec * wave.nChannels;
        SetAlign(track, 1);
        break;
    case kImaAdpcm:
    case kQcelp:
        SetAlign(track, sound.bytesPerFrame);
        break;
    case kAmr:
        wave.nSamplesPerSec = 8000;
        break;
    case kSowt:
        SetAlign(track, 1);
        break;
    case kAc3:
        if (const Mp4Box* const dac3 = GMp4BoxTree::GetBox(entry, "dac3")) {
            wave.nChannels = 0;
            wave.wBitsPerSample = 0;
            wave.nAvgBytesPerSec = Ac3BitRate(ReadAc3BitRateCode(dac3->data)) * 1000;
        }
        break;
    default:
        break;
    }
}

GMp4Packing AudioPacking(const Mp4Track& track, unsigned version)
{
    if (track.tables.sampleSize == 0)
        return GMp4Packing::Varying;
    if (version == 1)  // blocks of no bytes would make a packet of every sample
        return track.blockAlign > 1 && track.bytesPerFrame > 0 ? GMp4Packing::Block : GMp4Packing::WholeChunk;
    return track.tables.sampleSize <= kLargestGrouped ? GMp4Packing::Group : GMp4Packing::Constant;
}

void SetupAudio(Mp4Track& track, Mp4Box& entry)
{
    Mp4SoundEntry sound = ReadSoundEntry(entry.data);
    CorrectPacking(track, sound);
    track.codec = CodecOf(kAudioCodecs, entry.type);
    if (track.codec == kRawAudio)
        MatchTimescale(track, sound);
    if (track.codec == kIn24)
        sound.bits = 24;
    track.swapBytes = track.codec == kTwos || (track.codec == kRawAudio && sound.bits > 8);
    TakeConfiguration(track, entry);
    BuildWaveFormat(track, sound, entry);
    track.samplesPerPacket = sound.samplesPerPacket;
    track.bytesPerFrame = sound.bytesPerFrame;
    track.packing = AudioPacking(track, sound.version);
}

void SetupVideo(Mp4Track& track, Mp4Box& entry)
{
    const Mp4VideoEntry video = ReadVideoEntry(entry.data);
    track.codec = CodecOf(kVideoCodecs, entry.type);
    TakeConfiguration(track, entry);
    track.flipRaw = track.codec == kRawVideo;
    track.bitmap = MakeBitmapHeader(video.width != 0 ? video.width : track.width,
                                    video.height != 0 ? video.height : track.height, video.depth, 0);
    track.bitmap.biSize += static_cast<DWORD>(track.extra.size());
    if (track.tables.sampleSize != 0)
        track.packing = video.version == 1 ? GMp4Packing::ChunkStart : GMp4Packing::Constant;
}

}  // namespace

bool SetupTrackFormat(Mp4Track& track, Mp4Box& sampleDescriptions)
{
    const std::uint32_t description = track.tables.description;
    if (description == 0)
        return false;
    Mp4Box* const entry = GMp4BoxTree::GetBox(sampleDescriptions, "[" + std::to_string(description - 1) + "]");
    if (!entry)
        return false;
    track.entryType = entry->type;
    const GMp4BoxKind kind = KindOfBox(entry->type);
    const bool audio = track.category == GMp4Category::Audio;
    // "raw " is what its track makes of it.
    if (kind != (audio ? GMp4BoxKind::SoundEntry : GMp4BoxKind::VideoEntry) && entry->type != FourCC("raw "))
        return false;
    if (audio)
        SetupAudio(track, *entry);
    else
        SetupVideo(track, *entry);
    // A constant size of 0 would make endless empty packets out of nothing.
    return track.tables.sampleSize != 0 || track.tables.sizes.Count() >= track.tables.sampleCount;
}

}  // namespace vex
