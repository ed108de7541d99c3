// Vorbis packets in an Ogg file. The positions on its pages are counted from the packets' own block sizes, which is
// exact where the times of a container are rounded.
#include <array>
#include <optional>
#include <vector>

#include "media/audio_types.h"
#include "media/xiph_headers.h"
#include "tools/vex/framers.h"
#include "tools/vex/ogg_writer.h"

namespace vex {

namespace {

constexpr std::size_t kHeaders = 3;
constexpr std::size_t kMostModes = 64;

// Bits of a Vorbis packet from its end: the last fields of the setup header can be read without those before them.
class GBackwardBits {
public:
    explicit GBackwardBits(GBytes packet) : bytes(packet), left(packet.size() * 8) {}

    std::size_t Left() const { return left; }
    // The `count` bits before the position, as a number; zeros from before the start. At most 16.
    unsigned Take(unsigned count)
    {
        const unsigned value = Peek(count);
        left -= std::min<std::size_t>(count, left);
        return value;
    }
    unsigned Peek(unsigned count) const
    {
        unsigned value = 0;
        for (std::size_t i = 1; i <= count && i <= left; ++i)
            value = value << 1 | (bytes[(left - i) / 8] >> ((left - i) % 8) & 1u);
        return value;
    }

private:
    const GBytes bytes;
    std::size_t left;
};

// Which modes use the long block, in their order (Vorbis I, 4.2.4: modes are the last thing in the setup header, each a
// block flag, two 16-bit zeros and a mapping below 64, preceded by their count less one). Nothing when none fit.
std::vector<bool> LongModes(GBytes setup)
{
    GBackwardBits bits(setup);
    while (bits.Left() > 0 && bits.Take(1) == 0) {}  // behind the framing bit there is padding only
    std::vector<bool> backward;
    std::size_t found = 0;
    while (backward.size() < kMostModes && bits.Left() >= 8 + 16 + 16 + 1 + 6) {
        if (bits.Take(8) >= 64 || bits.Take(16) != 0 || bits.Take(16) != 0)
            break;
        backward.push_back(bits.Take(1) != 0);
        if (bits.Peek(6) + 1 == backward.size())
            found = backward.size();
    }
    backward.resize(found);
    return {backward.rbegin(), backward.rend()};
}

class GVorbisFramer final : public GFramer {
public:
    // Headers that are not known yet are empty.
    explicit GVorbisFramer(const GVorbisHeaders& known)
    {
        for (std::size_t i = 0; i < kHeaders; ++i)
            headers[i].assign(known[i].begin(), known[i].end());
    }

    void Begin(const GByteSink& out) override { begun = Start(out); }

    void Sample(const GSampleView& sample, const GByteSink& out) override
    {
        if (HasTextAt(sample.data, 1, "vorbis")) {
            TakeHeader(sample.data);
            return;
        }
        begun = begun || Start(out);
        const unsigned block = BlockSamples(sample.data);
        if (block == 0) {
            ++misshapen;
            return;
        }
        // The last packet is kept back: the page it ends says that it is the last.
        if (held)
            ogg.Packet(*held, granule, out);
        held.emplace(sample.data.begin(), sample.data.end());
        if (previousBlock > 0)
            granule += previousBlock / 4 + block / 4;
        previousBlock = block;
    }

    void Finish(const GByteSink& out) override
    {
        if (held)
            ogg.Packet(*held, granule, out);
        ogg.EndPage(GOggWriter::GLast::Yes, out);
    }

private:
    // Every start sends the headers again.
    void TakeHeader(GBytes packet)
    {
        const std::size_t slot = packet[0] / 2u;
        if (!begun && slot < kHeaders)
            headers[slot].assign(packet.begin(), packet.end());
    }

    // False as long as a header is missing or damaged.
    bool Start(const GByteSink& out)
    {
        const auto identification = ReadVorbisIdentification(headers[0]);
        longModes = LongModes(headers[2]);
        if (!identification || headers[1].empty() || longModes.empty())
            return false;
        blockSamples = {identification->shortBlock, identification->longBlock};
        while ((1u << modeBits) < longModes.size())
            ++modeBits;
        ogg.Packet(headers[0], 0, out);
        ogg.EndPage(GOggWriter::GLast::No, out);
        ogg.Packet(headers[1], 0, out);
        ogg.Packet(headers[2], 0, out);
        ogg.EndPage(GOggWriter::GLast::No, out);
        return true;
    }

    // 0 for a packet without audio.
    unsigned BlockSamples(GBytes packet) const
    {
        if (!begun || packet.empty() || (packet[0] & 1) != 0)
            return 0;
        const unsigned mode = packet[0] >> 1 & ((1u << modeBits) - 1);
        return mode < longModes.size() ? blockSamples[longModes[mode] ? 1 : 0] : 0;
    }

    std::array<std::vector<std::uint8_t>, kHeaders> headers;
    std::vector<bool> longModes;
    std::array<std::uint32_t, 2> blockSamples{};
    bool begun = false;
    unsigned modeBits = 0;
    unsigned previousBlock = 0;
    std::int64_t granule = 0;
    std::optional<std::vector<std::uint8_t>> held;
    GOggWriter ogg;
};

}  // namespace

std::unique_ptr<GFramer> MakeVorbisFramer(const CMediaType& type)
{
    const GVorbisHeaders headers = VorbisHeaders(type);
    if (!ReadVorbisIdentification(headers[0]) || LongModes(headers[2]).empty())
        return nullptr;
    return std::make_unique<GVorbisFramer>(headers);
}

std::unique_ptr<GFramer> MakeInBandVorbisFramer(const CMediaType&)
{
    return std::make_unique<GVorbisFramer>(GVorbisHeaders());
}

}  // namespace vex
