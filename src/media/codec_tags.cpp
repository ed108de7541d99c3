#include "media/codec_tags.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "io/bit_reader.h"
#include "io/byte_reader.h"
#include "io/fourcc.h"
#include "media/codec_guids.h"
#include "platform/guids.h"

namespace vex {

namespace {

// How a key frame shows in the first bytes of a payload.
enum class Coding : std::uint8_t {
    Mpeg4,          // a VOP start code, then vop_coding_type in the top two bits
    PictureType,    // the picture type in the top two bits of the first byte
    Mpeg4Version1,  // a start code of its own, then two bits that are clear in a key frame
    WindowsMedia9,  // one bit of the first byte
    H264,           // NAL units behind start codes
};

struct CodingRow {
    std::uint32_t fourCC;
    Coding coding;
};

constexpr auto kCodings = [] {
    auto rows = std::to_array<CodingRow>({
        {FourCC("mp4v"), Coding::Mpeg4},         {FourCC("MP4V"), Coding::Mpeg4},
        {FourCC("mp4s"), Coding::Mpeg4},         {FourCC("MP4S"), Coding::Mpeg4},
        {FourCC("divx"), Coding::Mpeg4},         {FourCC("DIVX"), Coding::Mpeg4},
        {FourCC("xvid"), Coding::Mpeg4},         {FourCC("XVID"), Coding::Mpeg4},
        {FourCC("dx50"), Coding::Mpeg4},         {FourCC("DX50"), Coding::Mpeg4},
        {FourCC("m4s2"), Coding::Mpeg4},         {FourCC("M4S2"), Coding::Mpeg4},
        {FourCC("3iv2"), Coding::Mpeg4},         {FourCC("3IV2"), Coding::Mpeg4},
        {FourCC("div3"), Coding::PictureType},   {FourCC("DIV3"), Coding::PictureType},
        {FourCC("3vid"), Coding::PictureType},   {FourCC("3VID"), Coding::PictureType},
        {FourCC("3ivd"), Coding::PictureType},   {FourCC("3IVD"), Coding::PictureType},
        {FourCC("div4"), Coding::PictureType},   {FourCC("DIV4"), Coding::PictureType},
        {FourCC("div5"), Coding::PictureType},   {FourCC("DIV5"), Coding::PictureType},
        {FourCC("div6"), Coding::PictureType},   {FourCC("DIV6"), Coding::PictureType},
        {FourCC("div2"), Coding::PictureType},   {FourCC("DIV2"), Coding::PictureType},
        {FourCC("mp42"), Coding::PictureType},   {FourCC("MP42"), Coding::PictureType},
        {FourCC("mp43"), Coding::PictureType},   {FourCC("MP43"), Coding::PictureType},
        {FourCC("mpg3"), Coding::PictureType},   {FourCC("MPG3"), Coding::PictureType},
        {FourCC("3iv1"), Coding::PictureType},   {FourCC("3IV1"), Coding::PictureType},
        {FourCC("ap41"), Coding::PictureType},   {FourCC("AP41"), Coding::PictureType},
        {FourCC("wmv1"), Coding::PictureType},   {FourCC("WMV1"), Coding::PictureType},
        {FourCC("mp41"), Coding::Mpeg4Version1}, {FourCC("MP41"), Coding::Mpeg4Version1},
        {FourCC("mpg4"), Coding::Mpeg4Version1}, {FourCC("MPG4"), Coding::Mpeg4Version1},
        {FourCC("div1"), Coding::Mpeg4Version1}, {FourCC("DIV1"), Coding::Mpeg4Version1},
        {FourCC("wmv3"), Coding::WindowsMedia9}, {FourCC("WMV3"), Coding::WindowsMedia9},
        {FourCC("h264"), Coding::H264},          {FourCC("H264"), Coding::H264},
        {FourCC("x264"), Coding::H264},          {FourCC("X264"), Coding::H264},
        {FourCC("4000"), Coding::Mpeg4},
    });
    std::ranges::sort(rows, {}, &CodingRow::fourCC);
    return rows;
}();

// Payloads shorter than this are not looked into. Bytes.
constexpr std::size_t kShortestPayload = 8;

// Requires kShortestPayload bytes.
bool IsH264KeyFrame(std::uint32_t startCode, std::span<const std::uint8_t> payload)
{
    constexpr std::uint8_t kNonIdrSlice = 1;
    constexpr std::uint32_t kSliceI = 2;  // 5 more says that all slices of the picture are such
    if (startCode != 1 || (payload[4] & 0x1F) != kNonIdrSlice)
        return (payload[0] & 0x20) == 0;
    GBitReader bits(payload.subspan(5));
    bits.ue();  // first_mb_in_slice
    const std::uint32_t type = bits.ue();
    return type == kSliceI || type == kSliceI + 5;
}

// Where the bitmap header lies in a format block of this type, or nowhere.
constexpr std::size_t kNoBitmap = SIZE_MAX;

std::size_t BitmapOffset(REFGUID formatType)
{
    if (formatType == FORMAT_VideoInfo || formatType == FORMAT_MPEGVideo)
        return offsetof(VIDEOINFOHEADER, bmiHeader);
    if (formatType == FORMAT_VideoInfo2 || formatType == FORMAT_MPEG2Video)
        return offsetof(VIDEOINFOHEADER2, bmiHeader);
    return kNoBitmap;
}

struct ColourMasks {
    std::uint32_t red;
    std::uint32_t green;
    std::uint32_t blue;

    bool operator==(const ColourMasks&) const = default;
};

constexpr ColourMasks kMasks555{0x7C00, 0x03E0, 0x001F};
constexpr ColourMasks kMasks565{0xF800, 0x07E0, 0x001F};
constexpr ColourMasks kMasks888{0xFF0000, 0x00FF00, 0x0000FF};
constexpr std::uint32_t kAlphaMask = 0xFF000000;

// From this header size on, the masks belong to the header and the fourth one is alpha. Bytes.
constexpr DWORD kHeaderWithAlpha = 56;

}  // namespace

bool GetBitmapHeader(const AM_MEDIA_TYPE* type, BITMAPINFOHEADER* header)
{
    if (!type || !header || !type->pbFormat)
        return false;
    const std::size_t offset = BitmapOffset(type->formattype);
    if (offset == kNoBitmap || type->cbFormat < offset + sizeof(*header))
        return false;
    std::memcpy(header, type->pbFormat + offset, sizeof(*header));
    return true;
}

GUID SubtypeFromBitmap(const BITMAPINFOHEADER& header)
{
    if (header.biCompression != BI_RGB && header.biCompression != BI_BITFIELDS)
        return SubtypeFromFourCC(static_cast<std::uint32_t>(header.biCompression));
    switch (header.biBitCount) {
    case 1:
        return MEDIASUBTYPE_RGB1;
    case 4:
        return MEDIASUBTYPE_RGB4;
    case 8:
        return MEDIASUBTYPE_RGB8;
    // Masks that nobody can see are most likely those that BI_RGB could not have said.
    case 16:
        return header.biCompression == BI_RGB ? MEDIASUBTYPE_RGB555 : MEDIASUBTYPE_RGB565;
    case 24:
        return MEDIASUBTYPE_RGB24;
    case 32:
        return MEDIASUBTYPE_RGB32;
    default:
        return GUID_NULL;
    }
}

GUID SubtypeFromBitmap(const BITMAPINFOHEADER& header, std::span<const std::uint8_t> behind)
{
    GByteReader reader(behind);
    ColourMasks masks{};
    masks.red = reader.U32LE();
    masks.green = reader.U32LE();
    masks.blue = reader.U32LE();
    if (header.biCompression != BI_BITFIELDS || !reader.Ok())
        return SubtypeFromBitmap(header);
    if (header.biBitCount == 16)
        return masks == kMasks555 ? MEDIASUBTYPE_RGB555 : masks == kMasks565 ? MEDIASUBTYPE_RGB565 : GUID_NULL;
    if (header.biBitCount == 32) {
        const bool alpha = header.biSize >= kHeaderWithAlpha && reader.U32LE() == kAlphaMask;
        return masks != kMasks888 ? GUID_NULL : alpha ? MEDIASUBTYPE_ARGB32 : MEDIASUBTYPE_RGB32;
    }
    return SubtypeFromBitmap(header);
}

bool IsKeyFrame(std::uint32_t fourCC, std::span<const std::uint8_t> payload)
{
    if (payload.size() < kShortestPayload)
        return true;
    const auto row = std::ranges::lower_bound(kCodings, fourCC, {}, &CodingRow::fourCC);
    if (row == kCodings.end() || row->fourCC != fourCC)
        return true;
    const std::uint32_t startCode = GByteReader(payload).U32BE();
    switch (row->coding) {
    case Coding::Mpeg4:
        return startCode != 0x000001B6 || payload[4] < 0x40;
    case Coding::PictureType:
        return payload[0] < 0x40;
    case Coding::Mpeg4Version1:
        return startCode != 0x00000100 || (payload[4] & 6) == 0;
    case Coding::WindowsMedia9:
        return (payload[0] & 0x20) == 0;
    case Coding::H264:
        return IsH264KeyFrame(startCode, payload);
    }
    return true;
}

}  // namespace vex
