// Element IDs as they stand in the file, marker bits included (RFC 8794 clause 5, RFC 9559).
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

namespace vex::mkv_id {

// Level 0
inline constexpr std::uint32_t kEbml = 0x1A45DFA3;
inline constexpr std::uint32_t kEbmlVersion = 0x4286;
inline constexpr std::uint32_t kEbmlReadVersion = 0x42F7;
inline constexpr std::uint32_t kEbmlMaxIdLength = 0x42F2;
inline constexpr std::uint32_t kEbmlMaxSizeLength = 0x42F3;
inline constexpr std::uint32_t kDocType = 0x4282;
inline constexpr std::uint32_t kDocTypeVersion = 0x4287;
inline constexpr std::uint32_t kDocTypeReadVersion = 0x4285;
inline constexpr std::uint32_t kSegment = 0x18538067;

// Anywhere
inline constexpr std::uint32_t kVoid = 0xEC;
inline constexpr std::uint32_t kCrc32 = 0xBF;

// Level 1
inline constexpr std::uint32_t kSeekHead = 0x114D9B74;
inline constexpr std::uint32_t kInfo = 0x1549A966;
inline constexpr std::uint32_t kTracks = 0x1654AE6B;
inline constexpr std::uint32_t kTags = 0x1254C367;
inline constexpr std::uint32_t kChapters = 0x1043A770;
inline constexpr std::uint32_t kAttachments = 0x1941A469;
inline constexpr std::uint32_t kCues = 0x1C53BB6B;
inline constexpr std::uint32_t kCluster = 0x1F43B675;

// SeekHead
inline constexpr std::uint32_t kSeek = 0x4DBB;
inline constexpr std::uint32_t kSeekId = 0x53AB;
inline constexpr std::uint32_t kSeekPosition = 0x53AC;

// Info
inline constexpr std::uint32_t kTimecodeScale = 0x2AD7B1;
inline constexpr std::uint32_t kDuration = 0x4489;
inline constexpr std::uint32_t kDateUtc = 0x4461;
inline constexpr std::uint32_t kTitle = 0x7BA9;
inline constexpr std::uint32_t kMuxingApp = 0x4D80;
inline constexpr std::uint32_t kWritingApp = 0x5741;
inline constexpr std::uint32_t kSegmentUid = 0x73A4;
inline constexpr std::uint32_t kSegmentFilename = 0x7384;
inline constexpr std::uint32_t kPrevUid = 0x3CB923;
inline constexpr std::uint32_t kPrevFilename = 0x3C83AB;
inline constexpr std::uint32_t kNextUid = 0x3EB923;
inline constexpr std::uint32_t kNextFilename = 0x3E83BB;

// Tracks
inline constexpr std::uint32_t kTrackEntry = 0xAE;
inline constexpr std::uint32_t kTrackNumber = 0xD7;
inline constexpr std::uint32_t kTrackUid = 0x73C5;
inline constexpr std::uint32_t kTrackType = 0x83;
inline constexpr std::uint32_t kFlagEnabled = 0xB9;
inline constexpr std::uint32_t kFlagDefault = 0x88;
inline constexpr std::uint32_t kFlagForced = 0x55AA;
inline constexpr std::uint32_t kFlagLacing = 0x9C;
inline constexpr std::uint32_t kMinCache = 0x6DE7;
inline constexpr std::uint32_t kMaxCache = 0x6DF8;
inline constexpr std::uint32_t kDefaultDuration = 0x23E383;
inline constexpr std::uint32_t kDefaultDurationSwapped = 0x2383E3;  // written for the above by mistake; also FrameRate
inline constexpr std::uint32_t kTrackTimecodeScale = 0x23314F;
inline constexpr std::uint32_t kTrackOverlay = 0x6FAB;
inline constexpr std::uint32_t kName = 0x536E;
inline constexpr std::uint32_t kLanguage = 0x22B59C;
inline constexpr std::uint32_t kCodecId = 0x86;
inline constexpr std::uint32_t kCodecPrivate = 0x63A2;
inline constexpr std::uint32_t kCodecName = 0x258688;
inline constexpr std::uint32_t kCodecSettings = 0x3A9697;
inline constexpr std::uint32_t kCodecInfoUrl = 0x3B4040;
inline constexpr std::uint32_t kCodecDownloadUrl = 0x26B240;
inline constexpr std::uint32_t kCodecDecodeAll = 0xAA;
inline constexpr std::uint32_t kVideo = 0xE0;
inline constexpr std::uint32_t kAudio = 0xE1;
inline constexpr std::uint32_t kContentEncodings = 0x6D80;

// Video
inline constexpr std::uint32_t kPixelWidth = 0xB0;
inline constexpr std::uint32_t kPixelHeight = 0xBA;
inline constexpr std::uint32_t kDisplayWidth = 0x54B0;
inline constexpr std::uint32_t kDisplayHeight = 0x54BA;
inline constexpr std::uint32_t kDisplayUnit = 0x54B2;
inline constexpr std::uint32_t kAspectRatioType = 0x54B3;
inline constexpr std::uint32_t kFlagInterlaced = 0x9A;
inline constexpr std::uint32_t kStereoMode = 0x53B8;
inline constexpr std::uint32_t kColourSpace = 0x2EB524;
inline constexpr std::uint32_t kGammaValue = 0x2FB523;
inline constexpr std::uint32_t kFrameRate = 0x2383E3;

// Audio
inline constexpr std::uint32_t kSamplingFrequency = 0xB5;
inline constexpr std::uint32_t kOutputSamplingFrequency = 0x78B5;
inline constexpr std::uint32_t kChannels = 0x9F;
inline constexpr std::uint32_t kChannelPositions = 0x7D7B;
inline constexpr std::uint32_t kBitDepth = 0x6264;

// ContentEncodings
inline constexpr std::uint32_t kContentEncoding = 0x6240;
inline constexpr std::uint32_t kContentEncodingOrder = 0x5031;
inline constexpr std::uint32_t kContentEncodingScope = 0x5032;
inline constexpr std::uint32_t kContentEncodingType = 0x5033;
inline constexpr std::uint32_t kContentCompression = 0x5034;
inline constexpr std::uint32_t kContentCompAlgo = 0x4254;
inline constexpr std::uint32_t kContentCompSettings = 0x4255;
inline constexpr std::uint32_t kContentEncryption = 0x5035;

// Cluster
inline constexpr std::uint32_t kTimecode = 0xE7;
inline constexpr std::uint32_t kSimpleBlock = 0xA3;
inline constexpr std::uint32_t kBlockGroup = 0xA0;
inline constexpr std::uint32_t kBlock = 0xA1;
inline constexpr std::uint32_t kBlockDuration = 0x9B;
inline constexpr std::uint32_t kReferenceBlock = 0xFB;
inline constexpr std::uint32_t kReferencePriority = 0xFA;
inline constexpr std::uint32_t kReferenceVirtual = 0xFD;
inline constexpr std::uint32_t kCodecState = 0xA4;
inline constexpr std::uint32_t kBlockAdditions = 0x75A1;

// Cues
inline constexpr std::uint32_t kCuePoint = 0xBB;
inline constexpr std::uint32_t kCueTime = 0xB3;
inline constexpr std::uint32_t kCueTrackPositions = 0xB7;
inline constexpr std::uint32_t kCueTrack = 0xF7;
inline constexpr std::uint32_t kCueClusterPosition = 0xF1;
inline constexpr std::uint32_t kCueReference = 0xDB;

// Attachments
inline constexpr std::uint32_t kAttachedFile = 0x61A7;
inline constexpr std::uint32_t kFileDescription = 0x467E;
inline constexpr std::uint32_t kFileName = 0x466E;
inline constexpr std::uint32_t kFileMimeType = 0x4660;
inline constexpr std::uint32_t kFileData = 0x465C;
inline constexpr std::uint32_t kFileUid = 0x46AE;

// Chapters
inline constexpr std::uint32_t kEditionEntry = 0x45B9;
inline constexpr std::uint32_t kChapterAtom = 0xB6;
inline constexpr std::uint32_t kChapterUid = 0x73C4;
inline constexpr std::uint32_t kChapterTimeStart = 0x91;
inline constexpr std::uint32_t kChapterFlagHidden = 0x98;
inline constexpr std::uint32_t kChapterFlagEnabled = 0x4598;
inline constexpr std::uint32_t kChapterDisplay = 0x80;
inline constexpr std::uint32_t kChapString = 0x85;
inline constexpr std::uint32_t kChapLanguage = 0x437C;

// The children of a Segment: what a damaged file is searched for.
inline constexpr std::array<std::uint32_t, 8> kLevel1 = {kChapters, kSeekHead,    kTags, kInfo,
                                                         kTracks,   kAttachments, kCues, kCluster};
static_assert(std::is_sorted(kLevel1.begin(), kLevel1.end()), "looked up by bisection");

constexpr bool IsLevel1(std::uint32_t id) { return std::binary_search(kLevel1.begin(), kLevel1.end(), id); }
constexpr bool IsBlock(std::uint32_t id) { return id == kBlockGroup || id == kSimpleBlock; }

}  // namespace vex::mkv_id
