#include "support/avi_builder.h"

#include <algorithm>
#include <stdexcept>

namespace vex::test {
namespace {

class GAviWriter {
public:
    explicit GAviWriter(const GAviTestFile& description)
        : file(description),
          fields(file.index == GAviTestIndex::OpenDmlFields),
          openDml(fields || file.index == GAviTestIndex::OpenDml)
    {
    }

    std::vector<std::uint8_t> Write()
    {
        riff.List(
            "AVI ", [&] { WriteFirstPart(); }, "RIFF");
        for (std::size_t part = 1; part < file.parts.size(); ++part)
            riff.List(
                "AVIX", [&] { WriteData(part); }, "RIFF");
        return riff.Bytes();
    }

private:
    struct GPlacedChunk {
        const GAviTestChunk* chunk;
        std::size_t position;  // of the header
    };

    void WriteFirstPart()
    {
        riff.List("hdrl", [&] {
            riff.Chunk("avih", [&] {
                riff.U32LE(40'000, 0, 0, 0, file.totalFrames);
                riff.Zeros(36);
            });
            for (std::size_t i = 0; i < file.streams.size(); ++i)
                riff.List("strl", [&] { WriteStream(i); });
        });
        WriteData(0);
        if (file.index != GAviTestIndex::None)
            riff.Chunk("idx1", [&] { WriteIdx1(); });
    }

    void WriteStream(std::size_t number)
    {
        const GAviTestStream& stream = file.streams[number];
        riff.Chunk("strh", [&] {
            riff.Text(stream.type);
            riff.Zeros(16);
            riff.U32LE(stream.scale, stream.rate, 0, 0, stream.suggestedBufferSize, 0, stream.sampleSize, 0, 0);
        });
        riff.Chunk("strf", [&] { riff.Append(stream.format); });
        if (!openDml)
            return;
        riff.Chunk("indx", [&] {
            riff.U32LE(4, file.parts.size());  // 4: an index of indexes
            riff.Text(AviStreamCode(number) + "dc");
            riff.Zeros(12);
            superEntries.push_back(riff.Position());
            riff.Zeros(16 * file.parts.size());
        });
    }

    void WriteData(std::size_t part)
    {
        placed.clear();
        moviCode = riff.Position() + 8;
        riff.List("movi", [&] {
            if (file.junkBeforeData > 0)
                riff.Chunk("JUNK", [&] { riff.Zeros(file.junkBeforeData); });
            for (const GAviTestChunk& chunk : file.parts[part])
                WriteChunk(chunk);
            for (std::size_t i = 0; openDml && i < file.streams.size(); ++i)
                WriteStandardIndex(part, i);
        });
    }

    void WriteChunk(const GAviTestChunk& chunk)
    {
        const auto write = [&] {
            placed.push_back({&chunk, riff.Chunk(chunk.code, [&] { riff.Append(chunk.payload); })});
        };
        if (file.recLists)
            riff.List("rec ", write);
        else
            write();
    }

    void WriteStandardIndex(std::size_t part, std::size_t stream)
    {
        const std::string prefix = AviStreamCode(stream);
        std::uint32_t count = 0;
        const std::size_t start = riff.Chunk("ix" + prefix, [&] {
            riff.U32LE(fields ? 0x01010003 : 0x01000002, 0);  // an index of chunks; their number
            riff.Text(prefix + "dc");
            riff.U64LE(moviCode);
            riff.U32LE(0);
            for (const auto& [chunk, position] : placed) {
                if (!chunk->code.starts_with(prefix))
                    continue;
                riff.U32LE(position + 8 - moviCode, chunk->payload.size() | (chunk->keyFrame ? 0 : 1u << 31));
                riff.Zeros(fields ? 4 : 0);
                ++count;
            }
        });
        Put(riff.Bytes(), start + 12, count);
        const std::size_t entry = superEntries[stream] + 16 * part;
        Put(riff.Bytes(), entry, start, 8);
        Put(riff.Bytes(), entry + 8, riff.Position() - start);
        Put(riff.Bytes(), entry + 12, count);
    }

    void WriteIdx1()
    {
        const std::size_t base = file.index == GAviTestIndex::Idx1Absolute ? 0 : moviCode;
        for (const auto& [chunk, position] : placed) {
            riff.Text(chunk->code);
            riff.U32LE(chunk->keyFrame ? 0x10 : 0, position - base, chunk->payload.size());
        }
    }

    const GAviTestFile& file;
    const bool fields;
    const bool openDml;
    GRiffBuilder riff;
    std::vector<std::size_t> superEntries;  // per stream, where its super index has its entries
    // Of the part that was written last.
    std::size_t moviCode = 0;  // position of "movi"
    std::vector<GPlacedChunk> placed;
};

}  // namespace

std::string AviStreamCode(std::size_t stream)
{
    return {static_cast<char>('0' + stream / 10), static_cast<char>('0' + stream % 10)};
}

std::vector<std::uint8_t> BitmapFormat(const std::string& fourCC, std::int32_t width, std::int32_t height)
{
    GRiffBuilder format;
    format.U32LE(40, width, height, 24 << 16 | 1);
    format.Text(fourCC);
    format.Zeros(20);
    return format.Bytes();
}

std::vector<std::uint8_t> WaveFormat(std::uint16_t tag, std::uint16_t channels, std::uint32_t samplesPerSecond,
                                     std::uint32_t bytesPerSecond, std::uint16_t blockAlign)
{
    GRiffBuilder format;
    format.U16LE(tag, channels);
    format.U32LE(samplesPerSecond, bytesPerSecond);
    format.U16LE(blockAlign, 16, 0);
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
    Put(chunk.payload, 0, 0xB6010000);
    Put(chunk.payload, 4, keyFrame ? 0x10 : 0x50, 1);
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
