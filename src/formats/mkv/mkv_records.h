// What a Segment says about itself, as plain records. Members carry the names of the elements they come from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "formats/mkv/mkv_values.h"
#include "platform/text.h"

namespace vex {

inline constexpr std::uint64_t kDefaultTimecodeScale = 1'000'000;  // ns per tick

struct GMkvHeader {
    CUInt ebmlVersion, ebmlReadVersion, ebmlMaxIdLength, ebmlMaxSizeLength;
    CUInt docTypeVersion, docTypeReadVersion;
    std::string docType;
};

struct GMkvInfo {
    CUInt timecodeScale{kDefaultTimecodeScale};  // ns per tick; never 0
    CFloat duration;                             // ticks; as stored, any number
    CInt dateUtc;                                // ns since 2001-01-01T00:00Z
    WString title, muxingApp, writingApp;
    WString segmentFilename, prevFilename, nextFilename;
    GMkvBytes segmentUid, prevUid, nextUid;
};

struct GMkvSeekHead {
    struct Entry {
        std::uint32_t seekId = 0;
        std::uint64_t seekPosition = 0;  // relative to the Segment's data
    };
    std::vector<Entry> entries;
};

struct GMkvVideo {
    CUInt pixelWidth, pixelHeight, displayWidth, displayHeight;
    CUInt displayUnit, aspectRatioType, flagInterlaced, stereoMode, colourSpace;
    CFloat gammaValue;
    CFloat frameRate;  // 1/s
};

struct GMkvAudio {
    CFloat samplingFrequency{8000.0};  // Hz
    CFloat outputSamplingFrequency;    // Hz
    CUInt channels{1};
    GMkvBytes channelPositions;
    CUInt bitDepth;
};

struct GMkvContentEncoding {
    static constexpr std::uint64_t kFrames = 1;  // bits of contentEncodingScope
    static constexpr std::uint64_t kPrivate = 2;
    static constexpr std::uint64_t kCompression = 0;  // values of contentEncodingType
    static constexpr std::uint64_t kEncryption = 1;
    static constexpr std::uint64_t kZlib = 0;  // values of contentCompAlgo
    static constexpr std::uint64_t kHeaderStripping = 3;

    CUInt contentEncodingOrder{0};
    CUInt contentEncodingScope{kFrames};
    CUInt contentEncodingType{kCompression};
    CUInt contentCompAlgo;
    GMkvBytes contentCompSettings;
};

struct GMkvTrack {
    static constexpr std::uint64_t kVideo = 1;  // values of trackType
    static constexpr std::uint64_t kAudio = 2;
    static constexpr std::uint64_t kSubtitle = 0x11;
    static constexpr std::uint32_t kVideoDamaged = 1;  // bits of parseErrors
    static constexpr std::uint32_t kAudioDamaged = 2;

    CUInt trackNumber, trackUid, trackType;
    CUInt flagEnabled{1}, flagDefault{1}, flagForced{0}, flagLacing{1};
    CUInt minCache, maxCache;
    CUInt defaultDuration;  // ns
    CUInt trackOverlay, codecDecodeAll;
    CFloat trackTimecodeScale;
    WString name, codecName, codecSettings;
    std::string language, codecInfoUrl, codecDownloadUrl;  // language: empty when the file has none
    GMkvBytes codecId;                                     // compared byte for byte
    GMkvBytes codecPrivate;                                // as stored, still under its content encodings
    GMkvVideo video;
    GMkvAudio audio;
    std::vector<GMkvContentEncoding> contentEncodings;  // in the order they are taken off
    std::uint32_t parseErrors = 0;
};

struct GMkvCueTrackPositions {
    std::uint64_t cueTrack = 0;
    std::uint64_t cueClusterPosition = 0;  // relative to the Segment's data
    GMkvBytes cueReference;
};

struct GMkvCuePoint {
    std::uint64_t cueTime = 0;  // ticks
    std::vector<GMkvCueTrackPositions> positions;
};

struct GMkvCues {
    std::vector<GMkvCuePoint> points;  // in file order
    std::size_t entries = 0;           // points and positions
};

struct GMkvChapterDisplay {
    WString chapString;
    std::string chapLanguage;
};

struct GMkvChapterAtom {
    CUInt chapterUid;
    CUInt chapterTimeStart;  // ns
    CUInt chapterFlagHidden{0}, chapterFlagEnabled{1};
    std::vector<GMkvChapterDisplay> displays;
    std::vector<GMkvChapterAtom> atoms;  // at most kMaxNestingDepth deep
};

struct GMkvEdition {
    std::vector<GMkvChapterAtom> atoms;
};

// The data stay in the file, where the range below lies inside it.
struct GMkvAttachment {
    WString fileName, fileDescription;
    std::string fileMimeType;
    CUInt fileUid;
    std::int64_t dataPos = 0;    // absolute
    std::uint64_t dataSize = 0;  // bytes
};

// Entries kept of one list; later ones are dropped. Every entry costs up to a hundred times the two bytes it may take
// in the file, so a list is not believed beyond what a long film needs.
inline constexpr std::size_t kMaxMkvTracks = 1024;
inline constexpr std::size_t kMaxMkvEncodings = 32;  // of one track
inline constexpr std::size_t kMaxMkvSeekEntries = 1 << 16;
inline constexpr std::size_t kMaxMkvCueEntries = 1 << 21;  // points and positions; two a second for 6 days
inline constexpr std::size_t kMaxMkvCuesElements = 256;
inline constexpr std::size_t kMaxMkvChapters = 1 << 16;  // editions, atoms and displays together
inline constexpr std::size_t kMaxMkvAttachments = 1 << 12;

}  // namespace vex
