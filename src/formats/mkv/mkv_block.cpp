#include "formats/mkv/mkv_block.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "formats/mkv/mkv_file.h"
#include "io/byte_reader.h"
#include "io/limits.h"
#include "media/xiph_headers.h"

namespace vex {
namespace {

// Values of the lacing bits.
constexpr unsigned kNoLace = 0;
constexpr unsigned kXiphLace = 1;
constexpr unsigned kFixedLace = 2;

// Children looked at in one BlockGroup; honest ones have a handful.
constexpr int kMaxGroupChildren = 1024;

// As in an element's size field, but with every pattern a plain number; nothing at the end of the bytes.
std::optional<GMkvCodedNumber> ReadLaceNumber(GByteReader& reader)
{
    return ReadMkvCodedNumber([&](std::uint8_t& byte) {
        byte = reader.U8();
        return reader.Ok();
    });
}

// The sizes of a lace as they are read; Add refuses what its payload cannot hold.
class GLaceSizes {
public:
    GLaceSizes(std::vector<std::uint32_t>& target, std::uint64_t claimedBytes) : sizes(target), claimed(claimedBytes) {}

    bool Add(std::uint64_t size)
    {
        if (size > claimed || sum > claimed - size)
            return false;
        sum += size;
        // A frame of more than 4 GiB can only be one that was cut off, and is dropped for that.
        sizes.push_back(static_cast<std::uint32_t>(std::min<std::uint64_t>(size, 0xFFFFFFFFu)));
        return true;
    }
    // The last frame takes what the others and the `used` bytes of the lace leave.
    bool AddRest(std::uint64_t used) { return used <= claimed && sum <= claimed - used && Add(claimed - used - sum); }

private:
    std::vector<std::uint32_t>& sizes;
    const std::uint64_t claimed;
    std::uint64_t sum = 0;
};

bool ReadXiphSizes(GByteReader& reader, unsigned count, GLaceSizes& sizes)
{
    for (unsigned i = 0; i < count; ++i) {
        const auto size = ReadXiphSize(reader);
        if (!size || !sizes.Add(*size))
            return false;
    }
    return true;
}

bool ReadEbmlSizes(GByteReader& reader, unsigned count, GLaceSizes& sizes)
{
    std::uint64_t size = 0;
    for (unsigned i = 0; i < count; ++i) {
        const auto coded = ReadLaceNumber(reader);
        if (!coded)
            return false;
        if (i == 0) {
            size = coded->value;
        } else {
            // Both are below 2^56, so that neither the difference nor the sum overflows; below zero is refused as huge.
            const std::uint64_t bias = (std::uint64_t{1} << (7 * coded->length - 1)) - 1;
            size += coded->value - bias;
        }
        if (!sizes.Add(size))
            return false;
    }
    return true;
}

bool ReadLace(GByteReader& reader, unsigned lacing, std::uint64_t claimed, std::vector<std::uint32_t>& frameSizes)
{
    GLaceSizes sizes(frameSizes, claimed);
    const unsigned count = reader.U8();  // frames less one
    if (!reader.Ok())
        return false;
    if (lacing == kFixedLace) {
        const std::uint64_t each = (claimed - 1) / (count + 1);
        for (unsigned i = 0; i <= count; ++i)
            sizes.Add(each);
        return true;
    }
    if (!(lacing == kXiphLace ? ReadXiphSizes(reader, count, sizes) : ReadEbmlSizes(reader, count, sizes)))
        return false;
    return sizes.AddRest(reader.Pos());
}

// Keeps the frames that are whole within the `there` bytes behind the lace.
void DropCutFrames(std::uint64_t there, std::vector<std::uint32_t>& frameSizes)
{
    std::size_t whole = 0;
    while (whole < frameSizes.size() && frameSizes[whole] <= there)
        there -= frameSizes[whole++];
    frameSizes.resize(whole);
}

}  // namespace

GMkvBlockRead ParseBlock(const GMkvElement& element, GMkvBlock& block, GMkvPayload& payload)
{
    GMkvReader& reader = *element.reader;
    CLength track;
    CShort timecode;
    CByte flags;
    reader.Seek(element.dataPos);
    if (track.Read(element) != S_OK || timecode.Read(element) != S_OK || flags.Read(element) != S_OK) {
        reader.Damage().Add("an unreadable Block header", element.headerPos);
        return GMkvBlockRead::Unreadable;
    }
    block.track = track.value;
    block.timecode = timecode.value;
    block.flags = flags.value;

    const std::uint64_t available = element.Available();
    const auto used = static_cast<std::uint64_t>(reader.Tell() - element.dataPos);
    const bool fileEndsInside = element.dataPos + static_cast<std::int64_t>(available) >= reader.FileSize();
    if (used > available || (available < element.size.value && !fileEndsInside)) {
        reader.Damage().Add("Block larger than its parent", element.headerPos, available);
        return GMkvBlockRead::NoBlock;
    }
    payload.headerPos = element.headerPos;
    payload.position = reader.Tell();
    payload.claimed = element.size.value - used;
    payload.available = available - used;
    if (payload.available > kMaxPacketSize) {
        reader.Damage().Add("a Block that is too large", element.headerPos, available);
        return GMkvBlockRead::NoBlock;
    }
    if (payload.available < payload.claimed)
        reader.Damage().Add("a Block that is cut off", element.headerPos, payload.claimed - payload.available);
    return GMkvBlockRead::Done;
}

GMkvBlockRead ParseBlockGroup(GMkvElement& element, GMkvBlock& block, GMkvPayload& payload)
{
    GMkvBlockRead read = GMkvBlockRead::NoBlock;
    bool found = false;
    auto child = element.FirstChild();
    for (int seen = 0; child && seen < kMaxGroupChildren; ++seen) {
        switch (child->id.value) {
        case mkv_id::kBlock:
            if (!std::exchange(found, true))
                read = ParseBlock(*child, block, payload);
            if (read == GMkvBlockRead::Unreadable)
                return read;
            break;
        case mkv_id::kBlockDuration:
            block.duration.Read(*child);
            break;
        case mkv_id::kReferencePriority:
            block.referencePriority.Read(*child);
            break;
        case mkv_id::kReferenceBlock:
            block.reference.Read(*child);
            break;
        case mkv_id::kReferenceVirtual:
            block.referenceVirtual.Read(*child);
            break;
        default:
            break;
        }
        if (!child->NextSibling())
            break;
    }
    return read;
}

GMkvBlockRead ReadMkvBlock(GMkvElement& element, GMkvBlock& block, GMkvPayload& payload)
{
    block.Clear();
    payload = {};
    if (element.id.value == mkv_id::kBlockGroup)
        return ParseBlockGroup(element, block, payload);
    const GMkvBlockRead read = ParseBlock(element, block, payload);
    if ((block.flags & GMkvBlock::kKeyFlag) == 0)
        block.reference = CInt(0);
    return read;
}

std::optional<std::size_t> SplitMkvLace(std::span<const std::uint8_t> payload, std::uint64_t claimed,
                                        std::uint8_t flags, std::vector<std::uint32_t>& frameSizes)
{
    const unsigned lacing = (flags & GMkvBlock::kLacingMask) >> 1;
    frameSizes.clear();
    GByteReader reader(payload);
    if (lacing == kNoLace) {
        frameSizes.push_back(static_cast<std::uint32_t>(payload.size()));
        return 0;
    }
    if (claimed < payload.size() || !ReadLace(reader, lacing, claimed, frameSizes)) {
        frameSizes.clear();
        return std::nullopt;
    }
    DropCutFrames(payload.size() - reader.Pos(), frameSizes);
    return reader.Pos();
}

bool ReadMkvFrames(GMkvReader& reader, const GMkvPayload& payload, GMkvBlock& block, GBuffer& data)
{
    block.frameSizes.clear();
    data.Resize(static_cast<std::size_t>(payload.available));
    reader.Seek(payload.position);
    if (reader.Read(data.Data(), payload.available) != S_OK) {
        reader.Damage().Add("a Block that cannot be read", payload.headerPos, payload.available);
        data.Clear();
        return false;
    }
    const auto before = SplitMkvLace(data.Span(), payload.claimed, block.flags, block.frameSizes);
    if (!before || block.frameSizes.empty()) {
        if (!before)
            reader.Damage().Add("a Block with damaged lacing", payload.headerPos, payload.available);
        data.Clear();
        return false;
    }
    if (*before == 0)
        return true;
    std::size_t size = 0;
    for (const std::uint32_t frame : block.frameSizes)
        size += frame;
    std::memmove(data.Data(), data.Data() + *before, size);
    data.Truncate(size);
    return true;
}

void GMkvClusterWalk::Enter(GMkvElement& walked, const std::optional<GMkvElement>& startBlock)
{
    cluster = &walked;
    stepped = false;
    ticksKnown = false;
    ticks = 0;
    if (startBlock) {
        ReadClusterTicks();
        child = startBlock;
        child->parent = cluster;
    } else {
        child = cluster->FirstChild();
    }
}

GMkvClusterWalk::GAt GMkvClusterWalk::Step()
{
    if (!child)
        return GAt::End;
    if (std::exchange(stepped, true) && !child->NextSibling()) {
        child.reset();
        return GAt::End;
    }
    const std::uint32_t id = child->id.value;
    if (mkv_id::IsBlock(id)) {
        if (!ticksKnown)
            ReadClusterTicks();
        return GAt::Block;
    }
    if (mkv_id::IsLevel1(id)) {
        const auto length = static_cast<std::uint64_t>(child->headerPos - cluster->dataPos);
        cluster->reader->Damage().Add("a Cluster that claims what follows it", cluster->headerPos);
        cluster->size.value = length;
        child.reset();
        return GAt::End;
    }
    if (id == mkv_id::kTimecode && !ticksKnown)
        ReadClusterTicks();
    return GAt::Other;
}

// Wherever it stands; nearly always it is the first child.
void GMkvClusterWalk::ReadClusterTicks()
{
    ticks = GMkvFile::ClusterTicks(*cluster);
    ticksKnown = true;
}

}  // namespace vex
