#include "media/media_type_text.h"

#include <bit>
#include <cstdio>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "io/byte_reader.h"
#include "media/codec_guids.h"
#include "media/format_headers.h"
#include "media/wave_tags.h"
#include "platform/guids.h"
#include "platform/text.h"

namespace vex {

namespace {

// By address: on Windows the identifiers are objects of the system's library.
struct NamedGuid {
    const GUID* id;
    const char* name;
};

constexpr NamedGuid kMajorTypes[] = {
    {&GUID_NULL, "none"},      {&MEDIATYPE_Video, "video"},       {&MEDIATYPE_Audio, "audio"},
    {&MEDIATYPE_Text, "text"}, {&MEDIATYPE_Subtitle, "subtitle"}, {&MEDIATYPE_Stream, "stream"},
};

constexpr NamedGuid kSubtypes[] = {
    {&GUID_NULL, "none"},
    {&MEDIASUBTYPE_None, "none"},
    {&MEDIASUBTYPE_RGB1, "RGB1"},
    {&MEDIASUBTYPE_RGB4, "RGB4"},
    {&MEDIASUBTYPE_RGB8, "RGB8"},
    {&MEDIASUBTYPE_RGB565, "RGB565"},
    {&MEDIASUBTYPE_RGB555, "RGB555"},
    {&MEDIASUBTYPE_RGB24, "RGB24"},
    {&MEDIASUBTYPE_RGB32, "RGB32"},
    {&MEDIASUBTYPE_ARGB32, "ARGB32"},
    {&MEDIASUBTYPE_MPEG2_VIDEO, "MPEG2_VIDEO"},
    {&MEDIASUBTYPE_MPEG1Packet, "MPEG1Packet"},
    {&MEDIASUBTYPE_MPEG1Payload, "MPEG1Payload"},
    {&MEDIASUBTYPE_MPEG2_AUDIO, "MPEG2_AUDIO"},
    {&MEDIASUBTYPE_DOLBY_AC3, "DOLBY_AC3"},
    {&MEDIASUBTYPE_DOLBY_DDPLUS, "DOLBY_DDPLUS"},
    {&MEDIASUBTYPE_DTS, "DTS"},
    {&MEDIASUBTYPE_DVD_LPCM_AUDIO, "DVD_LPCM_AUDIO"},
    {&MEDIASUBTYPE_QCELP, "QCELP"},
    {&MEDIASUBTYPE_EVRC, "EVRC"},
    {&MEDIASUBTYPE_GStream, "GStream"},
    {&MEDIASUBTYPE_UTF8, "UTF8"},
    {&MEDIASUBTYPE_SSA, "SSA"},
    {&MEDIASUBTYPE_ASS, "ASS"},
    {&MEDIASUBTYPE_SSF, "SSF"},
    {&MEDIASUBTYPE_USF, "USF"},
    {&MEDIASUBTYPE_VOBSUB, "VOBSUB"},
    {&MEDIASUBTYPE_Vorbis, "Vorbis"},
    {&MEDIASUBTYPE_Vorbis2, "Vorbis2"},
    {&MEDIASUBTYPE_FlacFramed, "FlacFramed"},
};

constexpr NamedGuid kFormatTypes[] = {
    {&GUID_NULL, "none"},
    {&FORMAT_None, "none"},
    {&FORMAT_VideoInfo, "VideoInfo"},
    {&FORMAT_VideoInfo2, "VideoInfo2"},
    {&FORMAT_MPEGVideo, "MPEGVideo"},
    {&FORMAT_MPEG2Video, "MPEG2Video"},
    {&FORMAT_WaveFormatEx, "WaveFormatEx"},
    {&FORMAT_VorbisFormat, "VorbisFormat"},
    {&FORMAT_VorbisFormat2, "VorbisFormat2"},
    {&FORMAT_SubtitleInfo, "SubtitleInfo"},
};

struct NamedTag {
    std::uint16_t tag;
    const char* name;
};

constexpr NamedTag kWaveTags[] = {
    {wave_tag::kPcm, "PCM"},
    {wave_tag::kAdpcm, "ADPCM"},
    {wave_tag::kFloat, "IEEE_FLOAT"},
    {wave_tag::kALaw, "ALAW"},
    {wave_tag::kMuLaw, "MULAW"},
    {wave_tag::kImaAdpcm, "IMA_ADPCM"},
    {0x0031, "GSM610"},
    {wave_tag::kG723, "G723"},
    {wave_tag::kMpeg, "MPEG"},
    {wave_tag::kMp3, "MP3"},
    {wave_tag::kAmr, "AMR"},
    {wave_tag::kAac, "AAC"},
    {0x0160, "WMA1"},
    {0x0161, "WMA2"},
    {0x0162, "WMA3"},
    {0x0163, "WMA_LOSSLESS"},
    {wave_tag::kAc3, "AC3"},
    {wave_tag::kDts, "DTS"},
    {wave_tag::kExtensible, "EXTENSIBLE"},
};

const char* FindName(std::span<const NamedGuid> table, REFGUID id)
{
    for (const NamedGuid& row : table)
        if (*row.id == id)
            return row.name;
    return nullptr;
}

std::string NameOrText(std::span<const NamedGuid> table, REFGUID id)
{
    const char* name = FindName(table, id);
    return name ? name : GuidText(id);
}

std::string Hex(std::uint32_t value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%0*X", digits, static_cast<unsigned>(value));
    return text;
}

// The four characters of a code when all of them can be printed.
std::optional<std::string> FourCCText(std::uint32_t code)
{
    std::string text;
    for (int shift = 0; shift < 32; shift += 8) {
        const char letter = static_cast<char>(code >> shift & 0xFF);
        if (letter < ' ' || letter > '~')
            return std::nullopt;
        text += letter;
    }
    return text;
}

std::string CompressionText(std::uint32_t code)
{
    if (code == BI_RGB)
        return "RGB";
    if (code == BI_BITFIELDS)
        return "BITFIELDS";
    return FourCCText(code).value_or(Hex(code, 8));
}

// Up to the first NUL, with what is not UTF-8 replaced.
std::string CleanText(std::span<const std::uint8_t> bytes)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return Utf8FromWide(WideFromUtf8(text.substr(0, text.find('\0'))));
}

std::string WideText(std::span<const std::uint8_t> bytes)
{
    GByteReader reader(bytes);
    WString text;
    while (reader.Left() >= 2) {
        const auto letter = static_cast<WCHAR>(reader.U16LE());
        if (letter == 0)
            break;
        text += letter;
    }
    return Utf8FromWide(text);
}

// How a field lies in a block. The blocks are little-endian, as all targets are.
enum class Kind : std::uint8_t {
    U16,
    U32,
    I32,
    I64,
    Float,
    Compression,  // 32 bits
    Text,         // `size` bytes
    WideText,     // `size` bytes
    Skip,         // `size` bytes that say nothing worth showing
};

struct Field {
    const char* name;
    Kind kind;
    std::uint16_t size = 0;
};

constexpr Field kVideoHead[] = {
    {"", Kind::Skip, 32},  // source and target rectangle
    {"bit_rate", Kind::U32},
    {"", Kind::Skip, 4},
    {"avg_time_per_frame", Kind::I64},  // 100 ns
};
constexpr Field kVideo2Head[] = {
    {"interlace_flags", Kind::U32}, {"", Kind::Skip, 4},          {"aspect_x", Kind::U32},
    {"aspect_y", Kind::U32},        {"control_flags", Kind::U32}, {"", Kind::Skip, 4},
};
constexpr Field kBitmap[] = {
    {"header_size", Kind::U32}, {"width", Kind::I32},     {"height", Kind::I32},
    {"planes", Kind::U16},      {"bit_count", Kind::U16}, {"compression", Kind::Compression},
    {"image_size", Kind::U32},  {"", Kind::Skip, 16},
};
constexpr Field kMpeg1Tail[] = {
    {"start_time_code", Kind::U32},
    {"sequence_header_size", Kind::U32},
};
constexpr Field kMpeg2Tail[] = {
    {"profile", Kind::U32},
    {"level", Kind::U32},
    {"flags", Kind::U32},
};
constexpr Field kWave[] = {
    {"format_tag", Kind::U16},        {"channels", Kind::U16},    {"sample_rate", Kind::U32},
    {"avg_bytes_per_sec", Kind::U32}, {"block_align", Kind::U16}, {"bits_per_sample", Kind::U16},
    {"extra_size", Kind::U16},
};
constexpr Field kMpeg1Wave[] = {
    {"head_layer", Kind::U16},    {"head_bit_rate", Kind::U32}, {"head_mode", Kind::U16}, {"head_mode_ext", Kind::U16},
    {"head_emphasis", Kind::U16}, {"head_flags", Kind::U16},    {"pts_low", Kind::U32},   {"pts_high", Kind::U32},
};
constexpr Field kVorbis[] = {
    {"channels", Kind::U16},     {"", Kind::Skip, 2},         {"sample_rate", Kind::U32}, {"min_bit_rate", Kind::I32},
    {"avg_bit_rate", Kind::I32}, {"max_bit_rate", Kind::I32}, {"quality", Kind::Float},
};
constexpr Field kVorbis2[] = {
    {"channels", Kind::U32},      {"sample_rate", Kind::U32},   {"bit_depth", Kind::U32},
    {"header_1_size", Kind::U32}, {"header_2_size", Kind::U32}, {"header_3_size", Kind::U32},
};
constexpr Field kSubtitle[] = {
    {"offset", Kind::U32},
    {"language", Kind::Text, 4},
    {"track_name", Kind::WideText, 512},
};

// Reads the parts of a block one after the other until it ends.
class FieldList {
public:
    explicit FieldList(std::span<const std::uint8_t> block) : reader(block) {}

    FieldList& Add(std::span<const Field> part)
    {
        for (const Field& field : part) {
            GProperty property{field.name, GProperty::Type::Integer, {}};
            Read(field, property);
            if (!reader.Ok())
                break;
            if (field.kind != Kind::Skip)
                list.push_back(std::move(property));
        }
        return *this;
    }

    // The bytes behind the parts read, when the block had all of these.
    FieldList& AddRest(const char* name)
    {
        if (reader.Ok())
            list.push_back({name, GProperty::Type::Integer, std::to_string(reader.Left())});
        return *this;
    }

    std::vector<GProperty> Take() { return std::move(list); }

private:
    void Read(const Field& field, GProperty& property)
    {
        switch (field.kind) {
        case Kind::U16:
            property.value = std::to_string(reader.U16LE());
            return;
        case Kind::U32:
            property.value = std::to_string(reader.U32LE());
            return;
        case Kind::I32:
            property.value = std::to_string(reader.I32LE());
            return;
        case Kind::I64:
            property.value = std::to_string(reader.I64LE());
            return;
        case Kind::Skip:
            reader.Skip(field.size);
            return;
        case Kind::Float:
            property.value = FloatText(std::bit_cast<float>(reader.U32LE()));
            break;
        case Kind::Compression:
            property.value = CompressionText(reader.U32LE());
            break;
        case Kind::Text:
            property.value = CleanText(reader.Bytes(field.size));
            break;
        case Kind::WideText:
            property.value = WideText(reader.Bytes(field.size));
            break;
        }
        property.type = GProperty::Type::Text;
    }

    static std::string FloatText(float value)
    {
        char text[32];
        std::snprintf(text, sizeof(text), "%g", static_cast<double>(value));
        return text;
    }

    GByteReader reader;
    std::vector<GProperty> list;
};

// Whether the block is an MPEG1WAVEFORMAT: layers I and II have one behind the tag 0x50.
bool IsMpeg1Wave(const AM_MEDIA_TYPE& type)
{
    constexpr std::size_t kExtra = sizeof(MPEG1WAVEFORMAT) - sizeof(WAVEFORMATEX);
    const GWaveFormat wave = ReadWaveFormat({type.pbFormat, type.cbFormat});
    return wave.header.wFormatTag == wave_tag::kMpeg && wave.extra.size() >= kExtra;
}

}  // namespace

std::string GuidText(REFGUID id)
{
    char text[40];
    std::snprintf(text, sizeof(text), "{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}",
                  static_cast<unsigned>(id.Data1), id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2],
                  id.Data4[3], id.Data4[4], id.Data4[5], id.Data4[6], id.Data4[7]);
    return text;
}

std::string MajorTypeName(REFGUID id) { return NameOrText(kMajorTypes, id); }

std::string SubtypeName(REFGUID id)
{
    if (const char* name = FindName(kSubtypes, id))
        return name;
    const auto code = static_cast<std::uint32_t>(id.Data1);
    if (id != SubtypeFromFourCC(code))
        return GuidText(id);
    if (code > 0xFFFF)
        return FourCCText(code).value_or(GuidText(id));
    for (const NamedTag& row : kWaveTags)
        if (row.tag == code)
            return row.name;
    return Hex(code, 4);
}

std::string FormatTypeName(REFGUID id) { return NameOrText(kFormatTypes, id); }

std::vector<GProperty> FormatFields(const AM_MEDIA_TYPE& type)
{
    if (!type.pbFormat)
        return {};
    FieldList fields({type.pbFormat, type.cbFormat});
    const GUID& format = type.formattype;
    if (format == FORMAT_VideoInfo)
        return fields.Add(kVideoHead).Add(kBitmap).AddRest("extra_size").Take();
    if (format == FORMAT_VideoInfo2)
        return fields.Add(kVideoHead).Add(kVideo2Head).Add(kBitmap).AddRest("extra_size").Take();
    if (format == FORMAT_MPEGVideo)
        return fields.Add(kVideoHead).Add(kBitmap).Add(kMpeg1Tail).Take();
    if (format == FORMAT_MPEG2Video)
        return fields.Add(kVideoHead).Add(kVideo2Head).Add(kBitmap).Add(kMpeg1Tail).Add(kMpeg2Tail).Take();
    if (format == FORMAT_WaveFormatEx) {
        fields.Add(kWave);
        if (IsMpeg1Wave(type))
            fields.Add(kMpeg1Wave);
        return fields.Take();
    }
    if (format == FORMAT_VorbisFormat)
        return fields.Add(kVorbis).Take();
    if (format == FORMAT_VorbisFormat2)
        return fields.Add(kVorbis2).Take();
    if (format == FORMAT_SubtitleInfo)
        return fields.Add(kSubtitle).AddRest("extra_size").Take();
    return {};
}

}  // namespace vex
