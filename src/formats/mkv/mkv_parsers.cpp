#include "formats/mkv/mkv_parsers.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>
#include <variant>

#include "io/limits.h"

namespace vex {
namespace {

using namespace mkv_id;

// One element of a master that is stored in one member of its record.
template <class Record>
struct GField {
    std::uint32_t id;
    std::variant<CUInt Record::*, CInt Record::*, CFloat Record::*, WString Record::*, std::string Record::*,
                 GMkvBytes Record::*>
        member;
};

HRESULT ReadInto(const GMkvElement& element, WString& text) { return ReadUtf8Text(element, text); }
HRESULT ReadInto(const GMkvElement& element, std::string& text) { return ReadAsciiText(element, text); }
HRESULT ReadInto(const GMkvElement& element, GMkvBytes& bytes) { return ReadBinary(element, bytes); }
template <class T, class Derived>
HRESULT ReadInto(const GMkvElement& element, GSimpleVar<T, Derived>& variable)
{
    return variable.Read(element);
}

template <class Value>
HRESULT ReadValue(const GMkvElement& element, Value& value)
{
    const HRESULT result = ReadInto(element, value);
    if (result != S_OK)
        element.reader->Damage().Add(result < 0 ? "an unreadable value" : "a value cut short", element.headerPos);
    return result;
}

template <class Visit>
HRESULT ForEachChild(GMkvElement& element, Visit&& visit)
{
    std::optional<GMkvElement> child = element.FirstChild();
    if (!child)
        return S_FALSE;
    HRESULT result = S_OK;
    do {
        if (visit(*child) < 0)
            result = E_FAIL;
    } while (child->NextSibling());
    return result;
}

// Fills `record` from the children that `fields` lists and gives the others to `other`.
template <class Record, class Fields, class Other>
HRESULT ParseFields(GMkvElement& element, Record& record, const Fields& fields, Other&& other)
{
    return ForEachChild(element, [&](GMkvElement& child) -> HRESULT {
        const auto field = std::ranges::find(fields, child.id.value, &GField<Record>::id);
        if (field == std::end(fields))
            return other(child);
        return std::visit([&](auto member) { return ReadValue(child, record.*member); }, field->member);
    });
}

template <class Record, class Fields>
HRESULT ParseFields(GMkvElement& element, Record& record, const Fields& fields)
{
    return ParseFields(element, record, fields, [](GMkvElement&) { return S_OK; });
}

constexpr GField<GMkvHeader> kHeaderFields[] = {
    {kEbmlVersion, &GMkvHeader::ebmlVersion},
    {kEbmlReadVersion, &GMkvHeader::ebmlReadVersion},
    {kEbmlMaxIdLength, &GMkvHeader::ebmlMaxIdLength},
    {kEbmlMaxSizeLength, &GMkvHeader::ebmlMaxSizeLength},
    {kDocType, &GMkvHeader::docType},
    {kDocTypeVersion, &GMkvHeader::docTypeVersion},
    {kDocTypeReadVersion, &GMkvHeader::docTypeReadVersion},
};

constexpr GField<GMkvInfo> kInfoFields[] = {
    {kTimecodeScale, &GMkvInfo::timecodeScale},
    {kDuration, &GMkvInfo::duration},
    {kDateUtc, &GMkvInfo::dateUtc},
    {kTitle, &GMkvInfo::title},
    {kMuxingApp, &GMkvInfo::muxingApp},
    {kWritingApp, &GMkvInfo::writingApp},
    {kSegmentUid, &GMkvInfo::segmentUid},
    {kSegmentFilename, &GMkvInfo::segmentFilename},
    {kPrevUid, &GMkvInfo::prevUid},
    {kPrevFilename, &GMkvInfo::prevFilename},
    {kNextUid, &GMkvInfo::nextUid},
    {kNextFilename, &GMkvInfo::nextFilename},
};

constexpr GField<GMkvTrack> kTrackFields[] = {
    {kTrackNumber, &GMkvTrack::trackNumber},
    {kTrackUid, &GMkvTrack::trackUid},
    {kTrackType, &GMkvTrack::trackType},
    {kFlagEnabled, &GMkvTrack::flagEnabled},
    {kFlagDefault, &GMkvTrack::flagDefault},
    {kFlagForced, &GMkvTrack::flagForced},
    {kFlagLacing, &GMkvTrack::flagLacing},
    {kMinCache, &GMkvTrack::minCache},
    {kMaxCache, &GMkvTrack::maxCache},
    {kDefaultDuration, &GMkvTrack::defaultDuration},
    {kDefaultDurationSwapped, &GMkvTrack::defaultDuration},
    {kTrackTimecodeScale, &GMkvTrack::trackTimecodeScale},
    {kTrackOverlay, &GMkvTrack::trackOverlay},
    {kName, &GMkvTrack::name},
    {kLanguage, &GMkvTrack::language},
    {kCodecId, &GMkvTrack::codecId},
    {kCodecPrivate, &GMkvTrack::codecPrivate},
    {kCodecName, &GMkvTrack::codecName},
    {kCodecSettings, &GMkvTrack::codecSettings},
    {kCodecInfoUrl, &GMkvTrack::codecInfoUrl},
    {kCodecDownloadUrl, &GMkvTrack::codecDownloadUrl},
    {kCodecDecodeAll, &GMkvTrack::codecDecodeAll},
};

constexpr GField<GMkvVideo> kVideoFields[] = {
    {kPixelWidth, &GMkvVideo::pixelWidth},         {kPixelHeight, &GMkvVideo::pixelHeight},
    {kDisplayWidth, &GMkvVideo::displayWidth},     {kDisplayHeight, &GMkvVideo::displayHeight},
    {kDisplayUnit, &GMkvVideo::displayUnit},       {kAspectRatioType, &GMkvVideo::aspectRatioType},
    {kFlagInterlaced, &GMkvVideo::flagInterlaced}, {kStereoMode, &GMkvVideo::stereoMode},
    {kColourSpace, &GMkvVideo::colourSpace},       {kGammaValue, &GMkvVideo::gammaValue},
    {kFrameRate, &GMkvVideo::frameRate},
};

constexpr GField<GMkvAudio> kAudioFields[] = {
    {kSamplingFrequency, &GMkvAudio::samplingFrequency},
    {kOutputSamplingFrequency, &GMkvAudio::outputSamplingFrequency},
    {kChannels, &GMkvAudio::channels},
    {kChannelPositions, &GMkvAudio::channelPositions},
    {kBitDepth, &GMkvAudio::bitDepth},
};

constexpr GField<GMkvContentEncoding> kEncodingFields[] = {
    {kContentEncodingOrder, &GMkvContentEncoding::contentEncodingOrder},
    {kContentEncodingScope, &GMkvContentEncoding::contentEncodingScope},
    {kContentEncodingType, &GMkvContentEncoding::contentEncodingType},
};

constexpr GField<GMkvContentEncoding> kCompressionFields[] = {
    {kContentCompAlgo, &GMkvContentEncoding::contentCompAlgo},
    {kContentCompSettings, &GMkvContentEncoding::contentCompSettings},
};

constexpr GField<GMkvAttachment> kAttachmentFields[] = {
    {kFileName, &GMkvAttachment::fileName},
    {kFileDescription, &GMkvAttachment::fileDescription},
    {kFileMimeType, &GMkvAttachment::fileMimeType},
    {kFileUid, &GMkvAttachment::fileUid},
};

constexpr GField<GMkvChapterAtom> kChapterFields[] = {
    {kChapterUid, &GMkvChapterAtom::chapterUid},
    {kChapterTimeStart, &GMkvChapterAtom::chapterTimeStart},
    {kChapterFlagHidden, &GMkvChapterAtom::chapterFlagHidden},
    {kChapterFlagEnabled, &GMkvChapterAtom::chapterFlagEnabled},
};

constexpr GField<GMkvChapterDisplay> kDisplayFields[] = {
    {kChapString, &GMkvChapterDisplay::chapString},
    {kChapLanguage, &GMkvChapterDisplay::chapLanguage},
};

HRESULT ParseEncodings(GMkvElement& element, std::vector<GMkvContentEncoding>& encodings)
{
    return ForEachChild(element, [&](GMkvElement& child) -> HRESULT {
        if (child.id.value != kContentEncoding || encodings.size() >= kMaxMkvEncodings)
            return S_OK;
        GMkvContentEncoding& encoding = encodings.emplace_back();
        return ParseFields(child, encoding, kEncodingFields, [&](GMkvElement& inner) -> HRESULT {
            return inner.id.value == kContentCompression ? ParseFields(inner, encoding, kCompressionFields) : S_OK;
        });
    });
}

HRESULT ParseTrack(GMkvElement& element, GMkvTrack& track)
{
    const HRESULT result = ParseFields(element, track, kTrackFields, [&](GMkvElement& child) -> HRESULT {
        HRESULT parsed = S_OK;
        switch (child.id.value) {
        case kVideo:
            parsed = ParseFields(child, track.video, kVideoFields);
            track.parseErrors |= parsed < 0 ? GMkvTrack::kVideoDamaged : 0;
            break;
        case kAudio:
            parsed = ParseFields(child, track.audio, kAudioFields);
            track.parseErrors |= parsed < 0 ? GMkvTrack::kAudioDamaged : 0;
            break;
        case kContentEncodings:
            parsed = ParseEncodings(child, track.contentEncodings);
            break;
        default:
            break;
        }
        return parsed;
    });
    // What was put on last has the highest order and comes off first.
    std::ranges::stable_sort(track.contentEncodings, {},
                             [](const GMkvContentEncoding& e) { return e.contentEncodingOrder.value; });
    std::ranges::reverse(track.contentEncodings);
    return result;
}

HRESULT ParseCuePositions(GMkvElement& element, GMkvCueTrackPositions& positions)
{
    CUInt track;
    CUInt cluster;
    const HRESULT result = ForEachChild(element, [&](GMkvElement& child) -> HRESULT {
        switch (child.id.value) {
        case kCueTrack:
            return ReadValue(child, track);
        case kCueClusterPosition:
            return ReadValue(child, cluster);
        case kCueReference:
            return ReadValue(child, positions.cueReference);
        default:
            return S_OK;
        }
    });
    positions.cueTrack = track.value;
    positions.cueClusterPosition = cluster.value;
    return result;
}

// Chapters nest, and a list of them may be long: both are counted while one Chapters element is read.
class GChapterParser {
public:
    HRESULT ParseEdition(GMkvElement& element, GMkvEdition& edition)
    {
        return ForEachChild(element, [&](GMkvElement& child) -> HRESULT {
            return child.id.value == kChapterAtom ? ParseAtomInto(child, edition.atoms, 1) : S_OK;
        });
    }

    bool Take()
    {
        if (left == 0)
            return false;
        --left;
        return true;
    }

private:
    HRESULT ParseAtomInto(GMkvElement& element, std::vector<GMkvChapterAtom>& atoms, int depth)
    {
        if (depth > kMaxNestingDepth) {
            element.reader->Damage().Add("chapters nested too deep", element.headerPos, element.size.value);
            return S_OK;
        }
        if (!Take())
            return S_OK;
        GMkvChapterAtom& atom = atoms.emplace_back();
        return ParseFields(element, atom, kChapterFields, [&](GMkvElement& child) -> HRESULT {
            if (child.id.value == kChapterAtom)
                return ParseAtomInto(child, atom.atoms, depth + 1);
            if (child.id.value == kChapterDisplay && Take())
                return ParseFields(child, atom.displays.emplace_back(), kDisplayFields);
            return S_OK;
        });
    }

    std::size_t left = kMaxMkvChapters;
};

}  // namespace

HRESULT ParseMkvHeader(GMkvElement& element, GMkvHeader& header) { return ParseFields(element, header, kHeaderFields); }

HRESULT ParseMkvInfo(GMkvElement& element, GMkvInfo& info)
{
    const HRESULT result = ParseFields(element, info, kInfoFields);
    if (info.timecodeScale.value == 0)  // no clock at all; writers that leave it empty mean the default
        info.timecodeScale.value = kDefaultTimecodeScale;
    return result;
}

HRESULT ParseMkvSeekHead(GMkvElement& element, GMkvSeekHead& seekHead)
{
    return ForEachChild(element, [&](GMkvElement& child) -> HRESULT {
        if (child.id.value != kSeek || seekHead.entries.size() >= kMaxMkvSeekEntries)
            return S_OK;
        CUInt seekId;
        CUInt seekPosition;
        const HRESULT result = ForEachChild(child, [&](GMkvElement& inner) -> HRESULT {
            if (inner.id.value == kSeekId)
                return ReadValue(inner, seekId);
            return inner.id.value == kSeekPosition ? ReadValue(inner, seekPosition) : S_OK;
        });
        if (seekId.valid != 0 && seekPosition.valid != 0 && seekId.value <= 0xFFFFFFFFu)
            seekHead.entries.push_back({static_cast<std::uint32_t>(seekId.value), seekPosition.value});
        return result;
    });
}

HRESULT ParseMkvTracks(GMkvElement& element, std::vector<GMkvTrack>& tracks)
{
    return ForEachChild(element, [&](GMkvElement& child) -> HRESULT {
        if (child.id.value != kTrackEntry || tracks.size() >= kMaxMkvTracks)
            return S_OK;
        return ParseTrack(child, tracks.emplace_back());
    });
}

HRESULT ParseMkvCues(GMkvElement& element, std::vector<GMkvCues>& cues)
{
    if (cues.size() >= kMaxMkvCuesElements)
        return S_OK;
    std::size_t left = kMaxMkvCueEntries;
    for (const GMkvCues& earlier : cues)
        left -= earlier.entries;
    GMkvCues read;
    const HRESULT result = ForEachChild(element, [&](GMkvElement& child) -> HRESULT {
        if (child.id.value != kCuePoint || read.entries >= left)
            return S_OK;
        ++read.entries;
        GMkvCuePoint& point = read.points.emplace_back();
        CUInt time;
        const HRESULT parsed = ForEachChild(child, [&](GMkvElement& inner) -> HRESULT {
            if (inner.id.value == kCueTime)
                return ReadValue(inner, time);
            if (inner.id.value != kCueTrackPositions || read.entries >= left)
                return S_OK;
            ++read.entries;
            return ParseCuePositions(inner, point.positions.emplace_back());
        });
        point.cueTime = time.value;
        return parsed;
    });
    if (!read.points.empty())
        cues.push_back(std::move(read));
    return result;
}

HRESULT ParseMkvChapters(GMkvElement& element, std::vector<GMkvEdition>& editions)
{
    GChapterParser parser;
    return ForEachChild(element, [&](GMkvElement& child) -> HRESULT {
        if (child.id.value != kEditionEntry || !parser.Take())
            return S_OK;
        return parser.ParseEdition(child, editions.emplace_back());
    });
}

HRESULT ParseMkvAttachments(GMkvElement& element, std::vector<GMkvAttachment>& attachments)
{
    return ForEachChild(element, [&](GMkvElement& child) -> HRESULT {
        if (child.id.value != kAttachedFile || attachments.size() >= kMaxMkvAttachments)
            return S_OK;
        GMkvAttachment& attachment = attachments.emplace_back();
        return ParseFields(child, attachment, kAttachmentFields, [&](GMkvElement& inner) -> HRESULT {
            if (inner.id.value == kFileData) {
                attachment.dataPos = inner.dataPos;
                attachment.dataSize = inner.Available();
            }
            return S_OK;
        });
    });
}

}  // namespace vex
