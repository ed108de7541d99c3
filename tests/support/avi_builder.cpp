#include "support/avi_builder.h"

#include <algorithm>
#include <stdexcept>

namespace vex::test {
namespace {

struct GPlacedChunk {
    const GAviTestChunk* chunk;
    std::size_t position;  // of the header
};

struct GPart {
    std::size_t moviCode = 0;  // position of "movi"
    std::vector<GPlacedChunk> chunks;
};

std::string StreamPrefix(std::size_t stream)
{
    return {static_cast<char>('0' + stream / 10), static_cast<char>('0' + stream % 10)};
}

class GAviWriter {
public:
    explicit GAviWriter(const GAviTestFile& description) : file(description) {}

    std::vector<std::uint8_t> Write()
    {
        for (std::size_t part = 0; part < file.parts.size(); ++part) {
            const auto scope = riff.Riff(part == 0 ? "AVI " : "AVIX");
            if (part == 0)
                WriteHeaders();
            const GPart placed = WriteData(part);
            if (part == 0)
                WriteIdx1(placed);
        }
        return riff.Bytes();
    }

private:
    bool HasOpenDml() const
    {
        return file.index == GAviTestIndex::OpenDml || file.index == GAviTestIndex::OpenDmlFields;
    }

    void WriteHeaders()
    {
        const auto hdrl = riff.List("hdrl");
        {
            const auto avih = riff.Chunk("avih");
            riff.U32LE(file.microSecPerFrame);
            riff.Zeros(12);
            riff.U32LE(file.totalFrames);
            riff.Zeros(36);
        }
        for (std::size_t i = 0; i < file.streams.size(); ++i)
            WriteStream(i);
    }

    void WriteStream(std::size_t number)
    {
        const GAviTestStream& stream = file.streams[number];
        const auto strl = riff.List("strl");
        {
            const auto strh = riff.Chunk("strh");
            riff.Text(stream.type);
            riff.Zeros(16);
            riff.U32LE(stream.scale);
            riff.U32LE(stream.rate);
            riff.Zeros(8);
            riff.U32LE(stream.suggestedBufferSize);
            riff.U32LE(0);
            riff.U32LE(stream.sampleSize);
            riff.Zeros(8);
        }
        {
            const auto strf = riff.Chunk("strf");
            riff.Append(stream.format);
        }
        if (!HasOpenDml())
            return;
        const auto indx = riff.Chunk("indx");
        riff.U16LE(4);
        riff.U16LE(0);  // an index of indexes
        riff.U32LE(static_cast<std::uint32_t>(file.parts.size()));
        riff.Text(StreamPrefix(number) + "dc");
        riff.Zeros(12);
        superEntries.push_back(riff.Position());
        riff.Zeros(16 * file.parts.size());
    }

    GPart WriteData(std::size_t part)
    {
        GPart placed;
        const auto movi = riff.List("movi");
        placed.moviCode = movi.Position() + 8;
        if (file.junkBeforeData > 0) {
            const auto junk = riff.Chunk("JUNK");
            riff.Zeros(file.junkBeforeData);
        }
        for (const GAviTestChunk& chunk : file.parts[part]) {
            if (file.recLists) {
                const auto rec = riff.List("rec ");
                WriteChunk(chunk, placed);
            } else {
                WriteChunk(chunk, placed);
            }
        }
        for (std::size_t i = 0; HasOpenDml() && i < file.streams.size(); ++i)
            WriteStandardIndex(part, i, placed);
        return placed;
    }

    void WriteChunk(const GAviTestChunk& chunk, GPart& placed)
    {
        const auto scope = riff.Chunk(chunk.code);
        riff.Append(chunk.payload);
        placed.chunks.push_back({&chunk, scope.Position()});
    }

    void WriteStandardIndex(std::size_t part, std::size_t stream, const GPart& placed)
    {
        const std::string prefix = StreamPrefix(stream);
        const bool fields = file.index == GAviTestIndex::OpenDmlFields;
        std::vector<GPlacedChunk> own;
        std::ranges::copy_if(placed.chunks, std::back_inserter(own),
                             [&](const GPlacedChunk& c) { return c.chunk->code.starts_with(prefix); });
        const std::size_t start = riff.Position();
        {
            const auto ix = riff.Chunk("ix" + prefix);
            riff.U16LE(fields ? 3 : 2);
            riff.U8(fields ? 1 : 0);
            riff.U8(1);  // an index of chunks
            riff.U32LE(static_cast<std::uint32_t>(own.size()));
            riff.Text(prefix + "dc");
            riff.U64LE(placed.moviCode);
            riff.U32LE(0);
            for (const GPlacedChunk& c : own) {
                riff.U32LE(static_cast<std::uint32_t>(c.position + 8 - placed.moviCode));
                riff.U32LE(static_cast<std::uint32_t>(c.chunk->payload.size()) | (c.chunk->keyFrame ? 0 : 0x80000000u));
                if (fields)
                    riff.U32LE(0);
            }
        }
        const std::size_t entry = superEntries[stream] + 16 * part;
        riff.PatchU64LE(entry, start);
        riff.PatchU32LE(entry + 8, static_cast<std::uint32_t>(riff.Position() - start));
        riff.PatchU32LE(entry + 12, static_cast<std::uint32_t>(own.size()));
    }

    void WriteIdx1(const GPart& placed)
    {
        if (file.index == GAviTestIndex::None)
            return;
        const std::size_t base = file.index == GAviTestIndex::Idx1Absolute ? 0 : placed.moviCode;
        const auto idx1 = riff.Chunk("idx1");
        for (const GPlacedChunk& c : placed.chunks) {
            riff.Text(c.chunk->code);
            riff.U32LE(c.chunk->keyFrame ? 0x10 : 0);
            riff.U32LE(static_cast<std::uint32_t>(c.position - base));
            riff.U32LE(static_cast<std::uint32_t>(c.chunk->payload.size()));
        }
    }

    const GAviTestFile& file;
    GRiffBuilder riff;
    std::vector<std::size_t> superEntries;  // per stream, where its super index has its entries
};

}  // namespace

std::vector<std::uint8_t> BitmapFormat(const std::string& fourCC, std::int32_t width, std::int32_t height)
{
    GRiffBuilder format;
    format.U32LE(40);
    format.U32LE(static_cast<std::uint32_t>(width));
    format.U32LE(static_cast<std::uint32_t>(height));
    format.U16LE(1);
    format.U16LE(24);
    format.Text(fourCC);
    format.Zeros(20);
    return format.Bytes();
}

std::vector<std::uint8_t> WaveFormat(std::uint16_t tag, std::uint16_t channels, std::uint32_t samplesPerSecond,
                                     std::uint32_t bytesPerSecond, std::uint16_t blockAlign)
{
    GRiffBuilder format;
    format.U16LE(tag);
    format.U16LE(channels);
    format.U32LE(samplesPerSecond);
    format.U32LE(bytesPerSecond);
    format.U16LE(blockAlign);
    format.U16LE(16);
    format.U16LE(0);
    return format.Bytes();
}

GAviTestStream VideoStream(const std::string& fourCC, std::uint32_t rate)
{
    return {.rate = rate, .format = BitmapFormat(fourCC, 320, 240)};
}

GAviTestStream PcmStream(std::uint32_t samplesPerSecond)
{
    return {.type = "auds",
            .rate = samplesPerSecond,
            .sampleSize = 4,
            .format = WaveFormat(1, 2, samplesPerSecond, samplesPerSecond * 4, 4)};
}

GAviTestChunk Chunk(const std::string& code, std::size_t size, std::uint8_t fill, bool keyFrame)
{
    return {code, std::vector<std::uint8_t>(size, fill), keyFrame};
}

GAviTestChunk Mpeg4Chunk(const std::string& code, std::size_t size, bool keyFrame)
{
    GAviTestChunk chunk = Chunk(code, std::max<std::size_t>(size, 5), 0x11, keyFrame);
    const std::uint8_t vop[] = {0x00, 0x00, 0x01, 0xB6, static_cast<std::uint8_t>(keyFrame ? 0x10 : 0x50)};
    std::ranges::copy(vop, chunk.payload.begin());
    return chunk;
}

std::vector<std::uint8_t> GAviTestFile::Build() const { return GAviWriter(*this).Write(); }

std::size_t PositionOf(const std::vector<std::uint8_t>& file, const std::string& code, std::size_t from)
{
    const auto found =
        std::search(file.begin() + static_cast<std::ptrdiff_t>(from), file.end(), code.begin(), code.end());
    if (found == file.end())
        throw std::runtime_error("no " + code + " in the file");
    return static_cast<std::size_t>(found - file.begin());
}

}  // namespace vex::test
