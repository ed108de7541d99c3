#include "formats/mp4/mp4_sample_tables.h"

#include <algorithm>
#include <optional>

#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::uint32_t kCountLimit = 0x8000'0000;  // no table can have as many entries
constexpr std::uint64_t kLastPosition = std::numeric_limits<std::int64_t>::max();

// A table that is missing is empty; nothing when its count is out of range.
std::optional<GMp4Table> TakeTable(Mp4Box& stbl, std::string_view type, std::size_t entrySize)
{
    Mp4Box* const box = GMp4BoxTree::GetBox(stbl, type);
    if (!box)
        return GMp4Table{};
    GByteReader reader(box->data);
    reader.Skip(4);
    const std::uint32_t count = reader.U32BE();
    if (count >= kCountLimit)
        return {};
    return GMp4Table(std::move(box->data), 8, count, entrySize);
}

// The number of samples that "stsz" describes; nothing when it is missing.
std::optional<std::uint32_t> TakeSizes(Mp4Box& stbl, Mp4SampleTables& tables)
{
    Mp4Box* const box = GMp4BoxTree::GetBox(stbl, "stsz");
    if (!box)
        return {};
    GByteReader reader(box->data);
    reader.Skip(4);
    tables.sampleSize = reader.U32BE();
    const std::uint32_t count = reader.U32BE();
    if (!reader.Ok() || count >= kCountLimit)
        return {};
    if (tables.sampleSize != 0)
        return count;
    tables.sizes = GMp4Table(std::move(box->data), 12, count, 4);
    return tables.sizes.Count();
}

std::uint64_t SamplesIn(const GMp4Table& durations)
{
    std::uint64_t samples = 0;
    for (std::uint32_t run = 0; run < durations.Count(); ++run)
        samples += durations.U32(run);
    return samples;
}

// Walks "stsc" from its end. Entries that go backwards may fill a chunk several times, the first entry for it counts;
// how often is limited, since each of them could fill all chunks.
bool FillChunkSizes(const GMp4Table& runs, std::vector<std::uint32_t>& samples, std::uint32_t& description)
{
    std::uint64_t budget = 4 * std::uint64_t{samples.size()};
    std::uint64_t last = samples.size();
    for (std::uint32_t entry = runs.Count(); entry-- > 0 && last <= samples.size();) {
        const std::uint32_t first = runs.U32(entry);
        if (first == 0)
            continue;
        const std::uint64_t begin = first - 1;
        if (begin < last) {
            if (last - begin > budget)
                return false;
            budget -= last - begin;
            std::fill(samples.begin() + static_cast<std::ptrdiff_t>(begin),
                      samples.begin() + static_cast<std::ptrdiff_t>(last), runs.U32(entry, 4));
            if (begin == 0)
                description = runs.U32(entry, 8);
        }
        last = begin;
    }
    return true;
}

void BuildChunks(const GMp4Table& offsets, bool wide, std::uint64_t shift, const std::vector<std::uint32_t>& samples,
                 std::uint32_t limit, Mp4SampleTables& tables)
{
    const auto used =
        static_cast<std::size_t>(std::ranges::count_if(samples, [](std::uint32_t count) { return count != 0; }));
    tables.chunks.reserve(std::min<std::size_t>(used, limit));
    GMp4TimeCursor time;
    std::uint32_t next = 0;
    for (std::uint32_t i = 0; i < samples.size() && next < limit; ++i) {
        if (samples[i] == 0)
            continue;
        Mp4Chunk& chunk = tables.chunks.emplace_back();
        const std::uint64_t offset = wide ? offsets.U64(i) : offsets.U32(i);
        chunk.offset = offset > kLastPosition - shift ? kLastPosition : offset + shift;
        chunk.start = time;
        chunk.firstSample = next;
        chunk.sampleCount = std::min(samples[i], limit - next);
        next = chunk.EndSample();
        time.Advance(tables.durations, chunk.sampleCount);
    }
    tables.sampleCount = next;
}

}  // namespace

bool BuildSampleTables(Mp4Box& stbl, std::uint64_t shift, Mp4SampleTables& tables, GDamageLog& damage)
{
    const bool wide = !GMp4BoxTree::GetBox(stbl, "stco");
    const std::optional<GMp4Table> offsets = TakeTable(stbl, wide ? "co64" : "stco", wide ? 8 : 4);
    const std::optional<GMp4Table> runs = TakeTable(stbl, "stsc", 12);
    std::optional<GMp4Table> durations = TakeTable(stbl, "stts", 8);
    std::optional<GMp4Table> syncSamples = TakeTable(stbl, "stss", 4);
    const std::optional<std::uint32_t> sizes = TakeSizes(stbl, tables);
    const auto position = static_cast<std::int64_t>(stbl.pos);
    if (!offsets || !runs || !durations || !syncSamples || !sizes) {
        damage.Add("sample tables have impossible counts, or none for the sizes", position);
        return false;
    }
    if (offsets->Count() == 0 || runs->Count() == 0 || !GMp4BoxTree::GetBox(stbl, "stts"))
        return false;
    tables.durations = std::move(*durations);
    tables.syncSamples = std::move(*syncSamples);
    tables.hasSyncTable = GMp4BoxTree::GetBox(stbl, "stss") != nullptr;
    tables.chunkCount = offsets->Count();

    std::vector<std::uint32_t> samples(tables.chunkCount);
    if (!FillChunkSizes(*runs, samples, tables.description)) {
        damage.Add("chunk runs go backwards over and over", position);
        return false;
    }
    std::uint64_t declared = 0;
    for (const std::uint32_t count : samples)
        declared += count;
    const std::uint64_t timed = SamplesIn(tables.durations);
    const auto limit = static_cast<std::uint32_t>(std::min<std::uint64_t>(*sizes, timed));
    BuildChunks(*offsets, wide, shift, samples, limit, tables);
    if (declared > tables.sampleCount || *sizes > tables.sampleCount) {
        Trace("stts gives %llu --> %u (sample number)\n", static_cast<unsigned long long>(timed), *sizes);
        damage.Add("sample tables end before the data does", position);
    }
    return true;
}

std::uint32_t Mp4SampleTables::ChunkOf(std::uint32_t sample) const
{
    const auto after = std::ranges::upper_bound(chunks, sample, {}, &Mp4Chunk::firstSample);
    return static_cast<std::uint32_t>(after - chunks.begin()) - 1;
}

std::uint32_t Mp4SampleTables::ChunkAt(std::uint64_t dts) const
{
    const auto after = std::ranges::upper_bound(chunks, dts, {}, &Mp4Chunk::FirstDts);
    return static_cast<std::uint32_t>(after - chunks.begin()) - 1;  // the first one starts at 0
}

std::uint32_t Mp4SampleTables::FirstSyncNotBelow(std::uint32_t sample) const
{
    std::uint32_t index = 0;
    while (index < syncSamples.Count() && SyncSample(index) < sample)
        ++index;
    return index;
}

}  // namespace vex
