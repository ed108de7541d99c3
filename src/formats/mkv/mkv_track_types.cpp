#include "formats/mkv/mkv_track_types.h"

#include <algorithm>

#include "media/language.h"
#include "platform/fonts.h"
#include "platform/trace.h"

namespace vex {

namespace {

// An attachment is read whole to be registered as a font; the largest in use, with all of Unicode, have some 50 MB.
constexpr std::uint64_t kMaxFontSize = 128u << 20;

const char* EncodingName(const GMkvContentEncoding& encoding)
{
    if (encoding.contentEncodingType.value == GMkvContentEncoding::kEncryption)
        return "encryption";
    if (encoding.contentEncodingType.value != GMkvContentEncoding::kCompression)
        return "unknown";
    switch (encoding.contentCompAlgo.value) {
    case GMkvContentEncoding::kZlib:
        return "zlib";
    case GMkvContentEncoding::kHeaderStripping:
        return "header stripping";
    default:
        return "unknown compression";
    }
}

// A code that the table does not name is shown as it is: it tells more than a wrong name.
std::string LanguageOf(const GMkvTrack& track)
{
    if (track.language.empty())
        return "English";
    std::string name = LanguageNameFrom3(track.language);
    const bool twoLetters = track.language.size() == 2 || (track.language.size() > 2 && track.language[2] == '-');
    if (name.empty() && twoLetters)
        name = LanguageNameFrom2(track.language);
    return name.empty() ? track.language : name;
}

std::vector<GProperty> PropertiesOf(const GMkvTrack& track)
{
    using Type = GProperty::Type;
    std::vector<GProperty> facts;
    const auto flag = [&](const char* name, const CUInt& value) {
        facts.push_back({name, Type::Boolean, value.value != 0 ? "true" : "false"});
    };
    facts.push_back({"track_number", Type::Integer, std::to_string(track.trackNumber.value)});
    facts.push_back({"codec_id", Type::Text, std::string(MkvCodecId(track))});
    if (!track.name.empty())
        facts.push_back({"track_name", Type::Text, Utf8FromWide(track.name)});
    facts.push_back({"language_code", Type::Text, track.language.empty() ? "eng" : track.language});
    flag("default", track.flagDefault);
    flag("forced", track.flagForced);
    flag("enabled", track.flagEnabled);
    std::string encodings;
    for (const GMkvContentEncoding& encoding : track.contentEncodings)
        encodings += (encodings.empty() ? "" : ", ") + std::string(EncodingName(encoding));
    if (!encodings.empty())
        facts.push_back({"encodings", Type::Text, encodings});
    return facts;
}

void RegisterFonts(GMkvFile& file)
{
    for (const GMkvAttachment& attachment : file.attachments) {
        if (attachment.fileMimeType != "application/x-truetype-font" || attachment.dataSize == 0 ||
            attachment.dataSize > kMaxFontSize)
            continue;
        GBuffer font;
        font.Resize(static_cast<std::size_t>(attachment.dataSize));
        file.reader->Seek(attachment.dataPos);
        if (file.reader->Read(font.Data(), font.Size()) == 0)
            AddProcessFont(font.Span());
    }
}

// Numbers pins within their kind.
struct GKindCounts {
    int video = 0;
    int audio = 0;
    int subtitle = 0;
};

WString PinName(const GMkvTrack& track, const std::string& language, const char* kind, int number)
{
    WString name = WideFromUtf8(language);
    if (!track.name.empty())
        name += WString(VEX_W(", ")) + track.name;
    return name + WideFromUtf8(" (" + std::string(kind) + " " + std::to_string(number) + ")");
}

}  // namespace

std::string_view MkvCodecId(const GMkvTrack& track)
{
    std::string_view id(reinterpret_cast<const char*>(track.codecId.data()), track.codecId.size());
    return id.substr(0, id.find('\0'));  // strings may be padded with NULs (RFC 8794 clause 7.4)
}

std::vector<GMkvDescribedTrack> DescribeMkvTracks(GMkvFile& file)
{
    std::vector<GMkvDescribedTrack> described;
    GKindCounts counts;
    bool fontsRegistered = false;
    for (const GMkvTrack& track : file.tracks) {
        GMkvDescribedTrack entry;
        entry.track = &track;
        entry.decodedPrivate.Assign(track.codecPrivate);
        if (!entry.decodedPrivate.Empty() &&
            !file.contentDecoder.Decode(track, GMkvContentEncoding::kPrivate, entry.decodedPrivate))
            continue;

        const char* kind = nullptr;
        int* count = nullptr;
        switch (track.trackType.value) {
        case GMkvTrack::kVideo:
            entry.info.mediaTypes = MkvVideoTypes(track, entry.decodedPrivate.Span());
            kind = "Video";
            count = &counts.video;
            break;
        case GMkvTrack::kAudio:
            entry.info.mediaTypes = MkvAudioTypes(track, entry.decodedPrivate.Span());
            kind = "Audio";
            count = &counts.audio;
            break;
        case GMkvTrack::kSubtitle:
            if (!std::exchange(fontsRegistered, true))
                RegisterFonts(file);
            entry.info.mediaTypes = MkvSubtitleTypes(track, entry.decodedPrivate.Span());
            kind = "Subtitle";
            count = &counts.subtitle;
            break;
        default:
            Trace("CMatroskaSourceFilter: Unsupported TrackType %s (%lld)\n", std::string(MkvCodecId(track)).c_str(),
                  static_cast<long long>(track.trackNumber.value));
            continue;
        }
        if (entry.info.mediaTypes.empty())
            continue;
        entry.info.number = static_cast<std::uint32_t>(track.trackNumber.value);
        entry.info.language = LanguageOf(track);
        entry.info.pinName = PinName(track, entry.info.language, kind, ++*count);
        entry.info.properties = PropertiesOf(track);
        described.push_back(std::move(entry));
    }
    return described;
}

}  // namespace vex
