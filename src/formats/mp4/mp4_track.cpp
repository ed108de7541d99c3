#include "formats/mp4/mp4_track.h"

#include <algorithm>

#include "formats/mp4/mp4_times.h"
#include "io/checked_math.h"
#include "platform/trace.h"

namespace vex {

std::uint32_t Mp4Track::PacketSamples() const
{
    const std::uint32_t left = tables.chunks[cursor.chunk].EndSample() - cursor.sample;
    switch (packing) {
    case GMp4Packing::Group:
        return std::min(left, kMaxGroup);
    case GMp4Packing::Block:
        return std::min(left, samplesPerPacket);
    case GMp4Packing::WholeChunk:
        return left;
    case GMp4Packing::Varying:
    case GMp4Packing::Constant:
    case GMp4Packing::ChunkStart:
        break;
    }
    return 1;
}

std::uint64_t Mp4Track::SampleSize() const
{
    switch (packing) {
    case GMp4Packing::Group:
        return std::uint64_t{PacketSamples()} * tables.sampleSize;
    case GMp4Packing::Block:
        return bytesPerFrame;
    case GMp4Packing::WholeChunk:
        return std::uint64_t{PacketSamples() / samplesPerPacket} * bytesPerFrame;
    case GMp4Packing::Varying:
    case GMp4Packing::Constant:
    case GMp4Packing::ChunkStart:
        break;
    }
    return tables.SizeOf(cursor.sample);
}

// In bytes. Varying sizes have to be added up: only for a jump.
std::uint64_t Mp4Track::OffsetInChunk(const Mp4Chunk& chunk, std::uint32_t sample) const
{
    const std::uint64_t passed = sample - chunk.firstSample;
    switch (packing) {
    case GMp4Packing::Varying: {
        std::uint64_t offset = 0;
        for (std::uint32_t i = chunk.firstSample; i < sample; ++i)
            offset += tables.SizeOf(i);
        return offset;
    }
    case GMp4Packing::Constant:
    case GMp4Packing::Group:
        return passed * tables.sampleSize;
    case GMp4Packing::Block:
        return passed / samplesPerPacket * bytesPerFrame;
    case GMp4Packing::WholeChunk:
    case GMp4Packing::ChunkStart:
        break;
    }
    return 0;
}

std::uint64_t Mp4Track::SampleOffset() const { return tables.chunks[cursor.chunk].offset + cursor.offset; }

bool Mp4Track::IsSyncSample() const
{
    if (!tables.hasSyncTable)
        return true;
    return cursor.syncIndex < tables.syncSamples.Count() && tables.SyncSample(cursor.syncIndex) == cursor.sample;
}

bool Mp4Track::AdvanceSample()
{
    const std::uint32_t samples = PacketSamples();
    const Mp4Chunk& chunk = tables.chunks[cursor.chunk];
    if (packing == GMp4Packing::Varying)
        cursor.offset += tables.SizeOf(cursor.sample);
    cursor.sample += samples;
    cursor.time.Advance(tables.durations, samples);
    cursor.time100ns = TimeFromUnits(cursor.time.Dts(), timescale);
    if (AtEnd()) {
        Trace("End of track[0x%x]\n", trackId);
        return false;
    }
    if (cursor.sample >= chunk.EndSample()) {
        ++cursor.chunk;  // there is one: the chunks hold all samples that count
        cursor.offset = 0;
    } else if (packing != GMp4Packing::Varying) {
        cursor.offset = OffsetInChunk(chunk, cursor.sample);
    }
    if (cursor.syncIndex < tables.syncSamples.Count() && cursor.sample > tables.SyncSample(cursor.syncIndex))
        ++cursor.syncIndex;
    return true;
}

void Mp4Track::Place(std::uint32_t sample, std::uint32_t chunkIndex)
{
    const Mp4Chunk& chunk = tables.chunks[chunkIndex];
    cursor.sample = sample;
    cursor.chunk = chunkIndex;
    cursor.syncIndex = tables.FirstSyncNotBelow(sample);
    cursor.offset = OffsetInChunk(chunk, sample);
    cursor.time = chunk.start;
    cursor.time.Advance(tables.durations, sample - chunk.firstSample);
    cursor.time100ns = TimeFromUnits(cursor.time.Dts(), timescale);
}

void Mp4Track::Rewind()
{
    cursor = {};
    if (!AtEnd())
        Place(0, 0);
}

namespace {

// The sync sample at or before `sample`, else the first one. There must be one.
std::uint32_t SyncSampleFor(const Mp4SampleTables& tables, std::uint32_t sample)
{
    std::uint32_t index = 0;
    while (index < tables.syncSamples.Count() && tables.SyncSample(index) <= sample)
        ++index;
    return tables.SyncSample(index > 0 ? index - 1 : 0);
}

}  // namespace

bool Mp4Track::SeekTrack(REFERENCE_TIME time)
{
    if (!ok || tables.chunks.empty())
        return false;
    const auto target = static_cast<std::uint64_t>(std::max<REFERENCE_TIME>(time, 0));
    const std::uint64_t dts = MulDivU64(target, timescale, kUnitsPerSecond).value_or(UINT64_MAX);
    const std::uint32_t at = tables.ChunkAt(dts);
    const Mp4Chunk& due = tables.chunks[at];
    std::uint32_t sample = due.firstSample + due.start.SamplesUntil(tables.durations, dts, due.sampleCount);
    if (sample < tables.sampleCount && tables.syncSamples.Count() > 0)
        sample = SyncSampleFor(tables, sample);
    if (sample >= tables.sampleCount) {
        Trace("track[Id 0x%x] will be disabled (seeking too far) chunk=%u sample=%u\n", trackId, at, sample);
        return false;
    }
    const std::uint32_t chunk = tables.ChunkOf(sample);
    const std::uint32_t first = tables.chunks[chunk].firstSample;
    if (packing == GMp4Packing::Block)
        sample -= (sample - first) % samplesPerPacket;
    else if (packing == GMp4Packing::WholeChunk)
        sample = first;
    Place(sample, chunk);
    Trace("#############  i_chunk[%u], i_sample[%u], i_index[%u]\n", chunk, sample, cursor.syncIndex);
    return true;
}

REFERENCE_TIME Mp4Track::TimeAtOffset(std::uint64_t offset) const
{
    const auto& chunks = tables.chunks;
    const Mp4Chunk* found = nullptr;
    for (std::size_t i = 0; i < chunks.size() && !found; ++i) {
        const bool last = i + 1 == chunks.size();
        if (chunks[i].offset <= offset && (last || offset < chunks[i + 1].offset))
            found = &chunks[i];
    }
    if (!found)
        return 0;
    const std::uint64_t bytes = offset - found->offset;
    std::uint64_t samples = 0;
    if (packing == GMp4Packing::Varying) {
        std::uint64_t end = 0;
        while (samples < found->sampleCount) {
            const std::uint64_t size = tables.SizeOf(found->firstSample + static_cast<std::uint32_t>(samples));
            if (size > bytes - end)
                break;
            end += size;
            ++samples;
        }
    } else {  // a chunk may claim to hold 2^31 samples
        const bool blocks = packing == GMp4Packing::Block || packing == GMp4Packing::WholeChunk;
        const std::uint32_t unitBytes = blocks ? bytesPerFrame : tables.sampleSize;
        const std::uint32_t unitSamples = blocks ? samplesPerPacket : 1;
        const std::uint64_t units = unitBytes != 0 ? bytes / unitBytes : found->sampleCount;
        samples = units < found->sampleCount / unitSamples + 1 ? units * unitSamples : found->sampleCount;
    }
    GMp4TimeCursor time = found->start;
    time.Advance(tables.durations, std::min<std::uint64_t>(samples, found->sampleCount));
    return TimeFromUnits(time.Dts(), timescale);
}

std::uint64_t Mp4Track::TableDuration() const
{
    GMp4TimeCursor time;
    time.Advance(tables.durations, tables.sampleCount);
    return time.Dts();
}

}  // namespace vex
