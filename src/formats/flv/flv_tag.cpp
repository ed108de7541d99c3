#include "formats/flv/flv_tag.h"

#include "formats/flv/flv_codecs.h"
#include "io/byte_reader.h"

namespace vex {
namespace {

constexpr std::uint8_t kFrameTypeCommand = 5;

// Bytes between the first payload byte and what the decoder gets.
std::uint32_t CodecHeaderSize(const FlvTag& tag)
{
    if (tag.IsAudio())
        return FlvSoundFormat(tag.header) == flv_sound::kAac ? 1 : 0;
    switch (FlvCodecId(tag.header)) {
    case flv_codec::kVp6:
        return 1;  // how much of the picture's border is cut off
    case flv_codec::kVp6Alpha:
        return 4;  // the same, and the offset of the alpha picture
    case flv_codec::kAvc:
        return 4;  // packet type, composition time
    default:
        return 0;
    }
}

std::int32_t Signed24(std::uint32_t value)
{
    return static_cast<std::int32_t>(value) - ((value & 0x800000) != 0 ? 0x1000000 : 0);
}

void Withhold(FlvTag& tag)
{
    tag.type = kFlvScript;
    tag.header = 0;
}

}  // namespace

GFlvUnit ReadFlvUnit(GBytes bytes)
{
    GByteReader reader(bytes);
    GFlvUnit unit;
    unit.previousTagSize = reader.U32BE();
    unit.type = reader.U8();
    unit.dataSize = reader.U24BE();
    unit.timeMs = reader.U24BE();
    unit.timeMs |= std::uint32_t{reader.U8()} << 24;
    unit.streamId = reader.U24BE();
    return unit;
}

bool FlvFollows(const GFlvUnit& next, std::uint32_t dataSize)
{
    if (FlvSizesAgree(next.previousTagSize, dataSize))
        return next.streamId == 0 || next.IsMedia() || next.type == kFlvScript;
    return next.previousTagSize == 0 && next.IsWellFormed();
}

bool FillFromPayload(FlvTag& tag, const GFlvUnit& unit, std::uint32_t dataSize, GBytes start)
{
    tag.type = unit.type;
    tag.header = 0;
    tag.time = unit.Time();
    tag.size = dataSize > 0 ? dataSize - 1 : 0;
    tag.payloadPos = tag.unitPos + static_cast<std::int64_t>(kFlvUnitSize) + 1;
    if (!unit.IsMedia())
        return true;
    GByteReader reader(start);
    tag.header = reader.U8();
    if (!reader.Ok() || dataSize == 0) {
        Withhold(tag);
        return true;
    }
    if (tag.IsVideo() && FlvFrameType(tag.header) == kFrameTypeCommand) {
        Withhold(tag);
        return true;
    }
    const std::uint32_t codecHeader = CodecHeaderSize(tag);
    if (codecHeader > tag.size || codecHeader > reader.Left()) {
        tag.size = 0;
        Withhold(tag);
        return false;
    }
    tag.size -= codecHeader;
    tag.payloadPos += codecHeader;
    if (tag.IsAudio() && codecHeader != 0 && reader.U8() == kFlvSequenceHeader) {
        Withhold(tag);
    } else if (tag.IsVideo() && FlvCodecId(tag.header) == flv_codec::kAvc) {
        if (reader.U8() == kFlvSequenceHeader)
            Withhold(tag);
        else
            tag.time += REFERENCE_TIME{Signed24(reader.U24BE())} * kFlvUnitsPerMillisecond;
    }
    return true;
}

}  // namespace vex
