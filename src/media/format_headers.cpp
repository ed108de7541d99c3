#include "media/format_headers.h"

#include <algorithm>

#include "io/byte_reader.h"

namespace vex {

std::optional<BITMAPINFOHEADER> ReadBitmapHeader(GBytes bytes)
{
    GByteReader reader(bytes);
    BITMAPINFOHEADER header{};
    header.biSize = reader.U32LE();
    header.biWidth = reader.I32LE();
    header.biHeight = reader.I32LE();
    header.biPlanes = reader.U16LE();
    header.biBitCount = reader.U16LE();
    header.biCompression = reader.U32LE();
    header.biSizeImage = reader.U32LE();
    header.biXPelsPerMeter = reader.I32LE();
    header.biYPelsPerMeter = reader.I32LE();
    header.biClrUsed = reader.U32LE();
    header.biClrImportant = reader.U32LE();
    if (!reader.Ok())
        return std::nullopt;
    return header;
}

GWaveFormat ReadWaveFormat(GBytes bytes)
{
    GByteReader reader(bytes);
    GWaveFormat format;
    format.header.wFormatTag = reader.U16LE();
    format.header.nChannels = reader.U16LE();
    format.header.nSamplesPerSec = reader.U32LE();
    format.header.nAvgBytesPerSec = reader.U32LE();
    format.header.nBlockAlign = reader.U16LE();
    format.header.wBitsPerSample = reader.U16LE();
    format.whole = reader.Ok();
    format.header.cbSize = reader.U16LE();
    format.extra = reader.Bytes(std::min<std::size_t>(format.header.cbSize, reader.Left()));
    return format;
}

}  // namespace vex
