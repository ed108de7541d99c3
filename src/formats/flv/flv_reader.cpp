#include "formats/flv/flv_reader.h"

#include <algorithm>

#include "io/byte_reader.h"
#include "io/limits.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::uint32_t kMaxProbedTags = 200;
constexpr std::int64_t kMaxDurationSteps = 1'048'575;  // bytes before the end of the file
constexpr std::int64_t kMaxResync = 0x500000;          // bytes

// What one step of a search may cost: bytes looked at, and candidates that each need a read elsewhere.
constexpr std::int64_t kStepBytes = 256 << 10;
constexpr int kStepChecks = 64;
// Candidates of a whole duration search.
constexpr int kMaxDurationChecks = 4096;

constexpr auto kUnit = static_cast<std::int64_t>(kFlvUnitSize);

constexpr std::size_t kDataOffsetAt = 5;  // in the file header

}  // namespace

GFlvReader::GFlvReader(GFileBase& byteSource, GDamageLog& damageLog, const std::atomic<bool>& interrupted)
    : source(byteSource), damage(damageLog), interrupt(interrupted), window(byteSource, &interrupted)
{
}

GStatus GFlvReader::Open()
{
    G_TRY_STATUS(ReadHeader());
    Probe();
    fileSize = source.GetSize();
    FindDuration();
    position = firstTagPos;
    if (!FillFlvTag())
        return GError{GErrorKind::Malformed, "no tag where the header says the data begins",
                      static_cast<std::uint64_t>(firstTagPos)};
    Restart();
    return {};
}

GStatus GFlvReader::ReadHeader()
{
    if (source.Seek(0) != 0 || source.Read(fileHeader.data(), kFlvHeaderSize) != kFlvHeaderSize) {
        Trace("FLV Handler Error, Can't Read Flv File Header!\n");
        return GError{GErrorKind::Malformed, "the file is shorter than an FLV header", 0};
    }
    if (!HasTextAt(fileHeader, 0, "FLV")) {
        Trace("FLV Handler Error, This File Isn't FLV File!\n");
        return GError{GErrorKind::Malformed, "not an FLV file: it does not begin with \"FLV\"", 0};
    }
    GByteReader reader(fileHeader);
    reader.Skip(kDataOffsetAt);
    firstTagPos = reader.U32BE();
    if (source.Seek(firstTagPos) != firstTagPos) {
        Trace("FLV Handler Error, FLV Header (Data Offset Field) Error!\n");
        return GError{GErrorKind::Malformed, "the data offset of the header lies beyond the end of the file",
                      kDataOffsetAt};
    }
    return {};
}

// The bytes at `from`, at most as many as `scratch` holds; valid until the next call. Leaves the window where it is.
GBytes GFlvReader::Peek(std::int64_t from, std::size_t count)
{
    const GBytes held = window.Held(from, count);
    if (held.size() == count)
        return held;
    if (source.Seek(from) != from)
        return {};
    const std::uint32_t got = source.Read(scratch.data(), static_cast<std::uint32_t>(std::min(count, scratch.size())));
    return {scratch.data(), got};
}

void GFlvReader::Probe()
{
    for (std::int64_t unitPos = firstTagPos; probedTags < kMaxProbedTags && !(audioFormat && videoFormat);
         ++probedTags) {
        if (!ProbeTag(unitPos))
            break;
    }
    hasAudio = audioFormat ? 1 : 0;
    hasVideo = videoFormat ? 1 : 0;
}

// False when no whole unit is left.
bool GFlvReader::ProbeTag(std::int64_t& unitPos)
{
    const GBytes bytes = Peek(unitPos, kFlvUnitSize);
    if (bytes.size() < kFlvUnitSize)
        return false;
    const GFlvUnit probed = ReadFlvUnit(bytes);
    ProbeFormat(probed, unitPos + kUnit);
    unitPos += kUnit + probed.dataSize;
    return true;
}

void GFlvReader::ProbeFormat(const GFlvUnit& probed, std::int64_t payloadPos)
{
    const bool wanted = (probed.type == kFlvAudio && !audioFormat) || (probed.type == kFlvVideo && !videoFormat);
    if (!wanted || probed.dataSize == 0)
        return;
    std::array<std::uint8_t, kFlvFormatBytes> first{};
    source.Seek(payloadPos);
    const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(probed.dataSize, first.size()));
    GBytes payload(first.data(), source.Read(first.data(), count));
    if (payload.empty())
        return;
    if (probed.type == kFlvAudio) {
        audioFormat = ReadFlvAudioFormat(payload);
        if (!audioFormat)
            unsupported.SeeAudio(payload[0]);
        return;
    }
    GBuffer whole;
    if (FlvCodecId(payload[0]) == flv_codec::kAvc && payload.size() == first.size()) {
        const std::int64_t there = std::clamp<std::int64_t>(source.GetSize() - payloadPos, 0, probed.dataSize);
        whole.Resize(static_cast<std::size_t>(std::min<std::int64_t>(there, kMaxCodecDataSize)));
        source.Seek(payloadPos);
        whole.Truncate(source.ReadBulk(whole.Data(), static_cast<std::uint32_t>(whole.Size())));
        payload = whole.Span();
    }
    videoFormat = ReadFlvVideoFormat(payload);
    if (!videoFormat && !payload.empty())
        unsupported.SeeVideo(payload[0]);
}

// The tag before ends where this unit begins.
bool GFlvReader::IsPrecededByTag(std::int64_t unitPos, const GFlvUnit& found)
{
    const std::int64_t before = unitPos - found.previousTagSize - static_cast<std::int64_t>(kFlvTrailerSize);
    if (found.previousTagSize < kFlvTagHeaderSize || before < firstTagPos)
        return false;
    const GBytes bytes = Peek(before, kFlvUnitSize);
    if (bytes.size() < kFlvUnitSize)
        return false;
    const GFlvUnit earlier = ReadFlvUnit(bytes);
    return FlvSizesAgree(found.previousTagSize, earlier.dataSize) && (earlier.IsMedia() || earlier.type == kFlvScript);
}

// From the end backwards. A tag that the one before leads to, or that leads on, counts before one that is merely
// well-formed: the payload of the last tag may look like one.
void GFlvReader::FindDuration()
{
    const std::int64_t last = fileSize - kUnit;
    const std::int64_t from = std::max(firstTagPos, last - kMaxDurationSteps + 1);
    std::optional<GFlvUnit> found;
    const auto looksLike = [this](GBytes bytes) {
        if (bytes.size() < kFlvUnitSize || (bytes[4] != kFlvAudio && bytes[4] != kFlvVideo))
            return false;
        const GFlvUnit unitThere = ReadFlvUnit(bytes);
        return unitThere.dataSize != 0 && unitThere.dataSize < fileSize;
    };
    std::int64_t until = last + 1;
    for (int checks = 0; checks < kMaxDurationChecks; ++checks) {
        const GScanResult result = window.FindBackward(from, until, kFlvUnitSize, looksLike);
        if (!result.Found())
            break;
        until = result.position;
        const GFlvUnit candidate = ReadFlvUnit(window.At(result.position, kFlvUnitSize));
        if (candidate.previousTagSize > result.position)
            continue;
        // Live recorders leave the size at 0; the first tag has none in any file.
        const bool sizeless =
            candidate.previousTagSize == 0 && candidate.streamId == 0 && (result.position != firstTagPos || !found);
        if ((sizeless && LeadsOn(result.position, candidate)) || IsPrecededByTag(result.position, candidate)) {
            found = candidate;
            break;
        }
        if (candidate.streamId == 0 && candidate.previousTagSize >= kFlvTagHeaderSize && !found)
            found = candidate;
    }
    if (found)
        duration = found->Time();
}

int GFlvReader::FillFlvTag()
{
    GFlvStep step = GFlvStep::Again;
    while (step == GFlvStep::Again && !IsInterrupted())
        step = Fill(GAccess::Headers);
    resync.active = false;
    return step == GFlvStep::Filled ? 1 : 0;
}

GFlvStep GFlvReader::Fill(GAccess access)
{
    if (resync.active)
        return Resync();
    if (access == GAccess::ReadAhead)
        window.At(position, scratch.size());
    const GBytes bytes = Peek(position, scratch.size());
    if (bytes.size() < kFlvUnitSize) {
        window.Forget();  // the file may grow
        return GFlvStep::Failed;
    }
    unit = ReadFlvUnit(bytes);
    startSize = std::min(bytes.size() - kFlvUnitSize, start.size());
    std::ranges::copy(bytes.subspan(kFlvUnitSize, startSize), start.begin());

    const std::int64_t next = position + kUnit + unit.dataSize;
    const GBytes nextBytes = Peek(next, kFlvUnitSize);
    if (nextBytes.size() == kFlvUnitSize && FlvFollows(ReadFlvUnit(nextBytes), unit.dataSize))
        return FinishTag(unit.dataSize, next);
    return BeginResync(nextBytes);
}

// `rest`: the last bytes of the file, from `end` on, fewer than a unit. A tag that ends there is whole when its size,
// or as much of it as is left, follows.
bool GFlvReader::EndsFile(GBytes rest, std::int64_t end, std::uint32_t dataSize)
{
    if (rest.empty())
        return source.GetSize() == end;
    std::array<std::uint8_t, kFlvTrailerSize> first{};
    std::ranges::copy(rest.first(std::min(rest.size(), first.size())), first.begin());
    const std::uint32_t size = GByteReader(first).U32BE();
    const std::uint32_t kept = rest.size() < first.size() ? ~0u << 8 * (first.size() - rest.size()) : ~0u;
    return rest.size() < kFlvUnitSize && (size == 0 || sizesLie || size == ((kFlvTagHeaderSize + dataSize) & kept));
}

// Whether the tag of a unit ends where another one begins, or the file does. Some writers get every PreviousTagSize
// wrong, so a well-formed header in the right place is enough.
bool GFlvReader::LeadsOn(std::int64_t unitPos, const GFlvUnit& found)
{
    const std::int64_t next = unitPos + kUnit + found.dataSize;
    const GBytes bytes = Peek(next, kFlvUnitSize);
    if (bytes.size() < kFlvUnitSize)
        return bytes.size() <= kFlvTrailerSize && EndsFile(bytes, next, found.dataSize);
    const GFlvUnit following = ReadFlvUnit(bytes);
    return following.IsWellFormed() || FlvFollows(following, found.dataSize);
}

// `next`: what follows the declared payload, and is no unit that fits it.
GFlvStep GFlvReader::BeginResync(GBytes next)
{
    const std::int64_t payload = position + kUnit;
    const std::int64_t declaredEnd = payload + unit.dataSize;
    if (EndsFile(next, declaredEnd, unit.dataSize))
        return FinishTag(unit.dataSize, declaredEnd);
    if (next.size() == kFlvUnitSize) {
        const GFlvUnit following = ReadFlvUnit(next);
        resync.confirmed = FlvSizesAgree(following.previousTagSize, unit.dataSize);
        if (following.IsWellFormed() && LeadsOn(declaredEnd, following)) {
            sizesLie = true;
            return FinishTag(unit.dataSize, declaredEnd);
        }
    } else {
        resync.confirmed = false;
    }
    resync.end = source.GetSize();
    resync.cutOff = declaredEnd > resync.end;
    resync.from = resync.confirmed ? declaredEnd + 1 : payload;
    resync.until = std::min(resync.from + kMaxResync, resync.end);
    resync.active = true;
    return GFlvStep::Again;
}

GFlvStep GFlvReader::Resync()
{
    const std::int64_t payload = position + kUnit;
    const std::int64_t stepEnd = std::min(resync.from + kStepBytes, resync.until);
    for (int checks = 0; checks < kStepChecks; ++checks) {
        const GScanResult result = window.FindForward(resync.from, stepEnd, kFlvUnitSize, IsWellFormedFlvUnit);
        if (result.end == GScanEnd::Interrupted)
            return GFlvStep::Again;
        if (!result.Found()) {
            resync.from = stepEnd;
            return stepEnd < resync.until ? GFlvStep::Again : EndResync(-1);
        }
        const GFlvUnit found = ReadFlvUnit(window.At(result.position, kFlvUnitSize));
        const std::int64_t passed = result.position - payload;
        resync.from = result.position + 1;
        const bool fits = passed == std::int64_t{found.previousTagSize} - kFlvTagHeaderSize;
        const bool afterJunk = passed >= unit.dataSize && FlvSizesAgree(found.previousTagSize, unit.dataSize);
        if (fits || afterJunk || LeadsOn(result.position, found)) {
            resync.confirmed = resync.confirmed || afterJunk;
            return EndResync(result.position);
        }
    }
    return GFlvStep::Again;
}

// `found`: the next unit, or -1 when there is none before the end of the file or the limit.
GFlvStep GFlvReader::EndResync(std::int64_t found)
{
    resync.active = false;
    const std::int64_t payload = position + kUnit;
    const std::int64_t end = resync.end;
    if (resync.confirmed) {
        const std::int64_t declaredEnd = payload + unit.dataSize;
        const std::int64_t next = found >= 0 ? found : end;
        damage.Add("no tag where one should follow", declaredEnd, static_cast<std::uint64_t>(next - declaredEnd));
        return FinishTag(unit.dataSize, next);
    }
    if (found >= 0) {
        damage.Add("tag has a wrong size", position);
        return FinishTag(found - payload, found);
    }
    if (resync.until < end && !resync.cutOff) {
        Trace("No tag within %lld bytes from %llx\n", static_cast<long long>(kMaxResync),
              static_cast<long long>(payload));
        damage.Add("no tag within 5 MiB", payload, static_cast<std::uint64_t>(end - payload));
        window.Forget();
        return GFlvStep::Failed;
    }
    const std::int64_t there = end - payload;
    Trace("CHANGE %x- %x\n", static_cast<unsigned>(unit.dataSize), static_cast<unsigned>(there));
    if (resync.cutOff)
        damage.Add("tag is cut off", position, static_cast<std::uint64_t>(unit.dataSize - there));
    else
        damage.Add("tag has a wrong size", position);
    return FinishTag(there, end);
}

GFlvStep GFlvReader::FinishTag(std::int64_t dataSize, std::int64_t nextPos)
{
    tag.unitPos = position;
    tag.nextPos = nextPos;
    const auto size = static_cast<std::uint32_t>(dataSize);
    if (!FillFromPayload(tag, unit, size, GBytes(start).first(std::min<std::size_t>(startSize, size))))
        damage.Add("payload is shorter than its codec header", position, size);
    else if (!unit.IsMedia() && unit.type != kFlvScript)
        damage.Add("tag of unknown type", position, size);
    return GFlvStep::Filled;
}

void GFlvReader::ReadPayload(const FlvTag& wanted, GBuffer& data)
{
    data.Resize(wanted.size);
    const GBytes held = window.Held(wanted.payloadPos, wanted.size);
    std::ranges::copy(held, data.Data());
    const auto rest = static_cast<std::uint32_t>(wanted.size - held.size());
    if (rest == 0)
        return;
    const std::int64_t from = wanted.payloadPos + static_cast<std::int64_t>(held.size());
    source.Seek(from);
    const std::uint32_t got = source.ReadBulk(data.Data() + held.size(), rest);
    data.Truncate(held.size() + got);
}

}  // namespace vex
