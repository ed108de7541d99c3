#include "host/filter_catalog.h"

#include <algorithm>
#include <array>
#include <string>

#include "framework/media/media_type_text.h"
#include "module/class_ids.h"

namespace vex {

namespace {

constexpr GFilterEntry kFilters[] = {
    {"avi", "Orvane AVI Source Filter", CLSID_VexAvi, "AVI", "AVI with OpenDML extensions", " avi divx "},
    {"ogg1", "Orvane OGG Source Filter", CLSID_VexOgg, "", "Ogg (older filter)", ""},
    {"mpeg1", "Orvane MPEG Source Filter", CLSID_VexMpeg, "", "MPEG program and transport streams (older filter)", ""},
    {"mkv", "Orvane MKV Source Filter", CLSID_VexMkv, "Matroska", "Matroska, WebM", " mkv mka mks mk3d webm "},
    {"mp4", "Orvane MP4 Source Filter", CLSID_VexMp4, "MP4", "MP4, QuickTime, 3GP",
     " mp4 m4v m4a m4b m4r f4v mov qt 3gp 3gpp 3g2 "},
    {"asf1", "Orvane ASF Source Filter", CLSID_VexAsf, "", "ASF through the platform's reader", ""},
    {"flv", "Orvane FLV Source Filter", CLSID_VexFlv, "FLV", "Flash video", " flv "},
    {"asf", "Orvane AsfEx Source Filter", CLSID_VexAsfEx, "ASF", "ASF, Windows Media", " asf wmv wma dvr-ms "},
    {"ogg", "Orvane OGG Source Filter2", CLSID_VexOgg2, "Ogg", "Ogg with Vorbis, Theora and OGM streams",
     " ogg ogv oga ogm ogx spx "},
    {"mp3", "Orvane MP3 Source Filter", CLSID_VexMp3, "MP3", "MPEG audio layer III", " mp3 "},
    {"aac", "Orvane AAC Source Filter", CLSID_VexAac, "AAC", "AAC in ADTS frames", " aac adts "},
    {"mpeg", "Orvane MPEG Source Filter2", CLSID_VexMpeg2, "MPEG", "MPEG program and transport streams",
     " mpg mpeg m2p vob evo mod ts m2ts mts m2t tp trp "},
};

char Lower(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; }

bool SameText(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return Lower(x) == Lower(y); });
}

const GFilterEntry* ByShortName(std::string_view name)
{
    const auto* found = std::find_if(std::begin(kFilters), std::end(kFilters),
                                     [&](const GFilterEntry& entry) { return entry.shortName == name; });
    return found == std::end(kFilters) ? nullptr : found;
}

using GBytes = std::span<const std::uint8_t>;

bool HasText(GBytes bytes, std::size_t offset, std::string_view text)
{
    return bytes.size() >= offset && bytes.size() - offset >= text.size() &&
           std::equal(text.begin(), text.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                      [](char expected, std::uint8_t byte) { return static_cast<std::uint8_t>(expected) == byte; });
}

// The four letters at offset 4 of a QuickTime or MP4 file name its first box.
bool IsMp4(GBytes bytes)
{
    static constexpr std::string_view kFirstBoxes[] = {"ftyp", "moov", "mdat", "moof", "styp",
                                                       "sidx", "free", "skip", "wide", "pnot"};
    return std::any_of(std::begin(kFirstBoxes), std::end(kFirstBoxes),
                       [&](std::string_view box) { return HasText(bytes, 4, box); });
}

// Sync bytes at a packet's distance from each other: five in a row, or as many as a shorter file has room for.
bool IsTransportStream(GBytes bytes)
{
    constexpr std::size_t kPackets = 5;
    constexpr struct {
        std::size_t packetBytes;
        std::size_t offset;
    } kLayouts[] = {{188, 0}, {192, 4}, {204, 0}};
    for (const auto& layout : kLayouts) {
        std::size_t seen = 0;
        bool all = true;
        for (std::size_t at = layout.offset; seen < kPackets && at < bytes.size(); at += layout.packetBytes, ++seen)
            all = all && bytes[at] == 0x47;
        if (all && seen >= 2)
            return true;
    }
    return false;
}

bool IsProgramStream(GBytes bytes) { return HasText(bytes, 0, std::string_view("\0\0\1\xBA", 4)); }

// The bytes behind the ID3v2 tags at the start. What the tags' lengths do not leave in `bytes` is empty.
GBytes BehindId3(GBytes bytes)
{
    while (bytes.size() >= 10 && HasText(bytes, 0, "ID3")) {
        std::size_t length = 10;
        length += static_cast<std::size_t>(bytes[6] & 0x7F) << 21 | static_cast<std::size_t>(bytes[7] & 0x7F) << 14 |
                  static_cast<std::size_t>(bytes[8] & 0x7F) << 7 | static_cast<std::size_t>(bytes[9] & 0x7F);
        bytes = bytes.subspan(std::min(length, bytes.size()));
    }
    return bytes;
}

// ADTS (ISO/IEC 13818-7): twelve sync bits and layer 00. With a defined sampling frequency.
bool IsAdts(GBytes bytes)
{
    return bytes.size() >= 4 && bytes[0] == 0xFF && (bytes[1] & 0xF6) == 0xF0 && (bytes[2] >> 2 & 15) < 13;
}

// MPEG audio (ISO/IEC 11172-3): eleven sync bits, a version that exists, layer III, defined bit rate and frequency.
bool IsLayer3(GBytes bytes)
{
    return bytes.size() >= 4 && bytes[0] == 0xFF && (bytes[1] & 0xE6) == 0xE2 && (bytes[1] & 0x18) != 0x08 &&
           (bytes[2] & 0xF0) != 0xF0 && (bytes[2] & 0xF0) != 0 && (bytes[2] & 0x0C) != 0x0C;
}

}  // namespace

std::span<const GFilterEntry> FilterCatalog() { return kFilters; }

std::string ClsidText(REFCLSID clsid) { return GuidText(clsid); }

const GFilterEntry* FindByName(std::string_view name)
{
    for (const GFilterEntry& entry : kFilters) {
        const std::string braced = ClsidText(entry.clsid);
        const std::string_view bare = std::string_view(braced).substr(1, braced.size() - 2);
        if (SameText(name, entry.shortName) || SameText(name, entry.displayName) || SameText(name, braced) ||
            SameText(name, bare))
            return &entry;
    }
    return nullptr;
}

const GFilterEntry* FindByContent(std::span<const std::uint8_t> start)
{
    static constexpr std::string_view kAsfHeader("\x30\x26\xB2\x75\x8E\x66\xCF\x11\xA6\xD9\x00\xAA\x00\x62\xCE\x6C",
                                                 16);
    if (HasText(start, 0, "RIFF") && (HasText(start, 8, "AVI ") || HasText(start, 8, "AVIX")))
        return ByShortName("avi");
    if (HasText(start, 0, "\x1A\x45\xDF\xA3"))
        return ByShortName("mkv");
    if (HasText(start, 0, "OggS"))
        return ByShortName("ogg");
    if (HasText(start, 0, "FLV"))
        return ByShortName("flv");
    if (HasText(start, 0, kAsfHeader))
        return ByShortName("asf");
    if (IsMp4(start))
        return ByShortName("mp4");
    if (IsProgramStream(start) || IsTransportStream(start))
        return ByShortName("mpeg");
    const GBytes audio = BehindId3(start);
    if (IsAdts(audio))
        return ByShortName("aac");
    // A tag longer than the probe hides what follows it; far more often than not that is layer III.
    if (IsLayer3(audio) || (audio.empty() && HasText(start, 0, "ID3")))
        return ByShortName("mp3");
    return nullptr;
}

const GFilterEntry* FindByExtension(std::string_view path)
{
    const std::size_t dot = path.find_last_of('.');
    if (dot == std::string_view::npos || path.find_first_of("/\\", dot) != std::string_view::npos)
        return nullptr;
    std::string wanted = " ";
    for (const char letter : path.substr(dot + 1))
        wanted += Lower(letter);
    wanted += ' ';
    for (const GFilterEntry& entry : kFilters)
        if (wanted.size() > 2 && entry.extensions.find(wanted) != std::string_view::npos)
            return &entry;
    return nullptr;
}

}  // namespace vex
