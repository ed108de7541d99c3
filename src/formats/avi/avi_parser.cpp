#include "formats/avi/avi_parser.h"

#include <algorithm>
#include <utility>

#include "formats/avi/avi_coverage.h"
#include "formats/avi/idx1_index.h"
#include "io/byte_reader.h"
#include "io/limits.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::uint32_t kMainHeaderSize = 56;          // bytes of "avih"
constexpr std::uint32_t kMaxExtendedHeaderSize = 248;  // bytes of "dmlh"
// Bytes of "indx": a super index of this size covers a terabyte.
constexpr std::uint32_t kMaxIndexSize = 16u << 20;

}  // namespace

GAviParser::GAviParser(GFileBase& file, GDamageLog& damageLog)
    : source(file),
      damage(damageLog),
      fileSize(file.GetSize()),
      headerBudget(fileSize / kRiffHeaderSize + 1),
      bodyBudget(fileSize),
      odml(file, layout, damageLog)
{
}

GResult<GAviLayout> GAviParser::Parse()
{
    GRiffChunk first;
    std::uint32_t type = 0;
    if (!ReadRiffHeader(source, 0, first) || !ReadListType(source, first, type))
        return GError{GErrorKind::NeedMoreData, "the file is too short for a RIFF header", 0};
    if (first.code != kRiffCode || type != FourCC("AVI "))
        return GError{GErrorKind::Malformed, "not an AVI file", 0};

    layout.firstRiffEnd = RiffEnd(0, first.size);
    layout.singleRiff = fileSize <= layout.firstRiffEnd;
    G_TRY_STATUS(WalkRiff({kRiffListHeaderSize, layout.firstRiffEnd}));
    if (!layout.singleRiff)
        WalkContinuations(layout.firstRiffEnd);
    if (layout.streams.empty())
        return GError{GErrorKind::Malformed, "the file has no stream", 0};
    SettleIndex();
    return std::move(layout);
}

// Cameras leave an idx1 of a few entries beside a complete OpenDML index. One that names less than half of the data is
// not believed; what no index names is found by a scan.
void GAviParser::SettleIndex()
{
    if (layout.index == GAviIndex::None)
        return;
    GAviCoverage coverage = MeasureCoverage(source, layout);
    if (layout.index == GAviIndex::Idx1 && layout.singleRiff && coverage.unnamed > coverage.named)
        coverage = ReplaceIndex(coverage.named) ? MeasureCoverage(source, layout) : GAviCoverage{};
    layout.unnamedBytes = coverage.unnamed;
}

// True when the OpenDML index names more; else no table has an entry any more.
bool GAviParser::ReplaceIndex(std::int64_t namedSoFar)
{
    const auto clear = [&] {
        for (const auto& stream : layout.streams)
            stream->Clear();
        layout.index = GAviIndex::None;
    };
    clear();
    std::int64_t named = 0;
    for (const auto& stream : layout.streams) {
        const auto spare = std::ranges::find(spareIndexes, stream.get(), &GSpareIndex::stream);
        if (spare != spareIndexes.end())
            odml.Load(*stream, GByteReader(spare->body, static_cast<std::uint64_t>(spare->position)));
        named += stream->NamedBytes();
    }
    if (named <= namedSoFar || layout.indexRefused) {
        clear();
        return false;
    }
    layout.index = GAviIndex::OpenDml;
    return true;
}

void GAviParser::WalkContinuations(std::int64_t position)
{
    while (position < source.GetSize()) {
        GRiffChunk next;
        std::uint32_t type = 0;
        if (!ReadRiffHeader(source, position, next) || next.code != kRiffCode || !ReadListType(source, next, type) ||
            type != FourCC("AVIX"))
            return;
        const std::int64_t end = RiffEnd(position, next.size);
        if (const GStatus walked = WalkRiff({position + kRiffListHeaderSize, end}); !walked.Ok()) {
            damage.Add(walked.Error().what, static_cast<std::int64_t>(walked.Error().filePos));
            return;
        }
        position = end;
    }
}

GStatus GAviParser::WalkRiff(const GRiff& riff)
{
    GRiffWalker walker(source, riff.start, riff.end);
    GRiffChunk chunk;
    while (NextChunk(walker, chunk)) {
        if (chunk.code == kListCode) {
            if (GStatus read = ReadList(riff, chunk, 1); !read.Ok()) {
                Trace("Error, Fail to Read_LIST()");
                return read;
            }
        } else if (chunk.code == FourCC("idx1")) {
            ReadIdx1(chunk);
            Trace("idx1 : %d\n", static_cast<int>(chunk.size));
        } else {
            Trace(chunk.code == kJunkCode ? "junk : %d\n" : "avi_etc : %d\n", static_cast<int>(chunk.size));
        }
    }
    return {};
}

GStatus GAviParser::ReadList(const GRiff& riff, const GRiffChunk& list, int depth)
{
    std::uint32_t type = 0;
    if (!ReadListType(source, list, type))
        return GError{GErrorKind::NeedMoreData, "a list ends before its type",
                      static_cast<std::uint64_t>(list.position)};
    if (depth > kMaxNestingDepth) {
        damage.Add("lists are nested too deep", list.position, list.size);
        return {};
    }
    switch (type) {
    case FourCC("hdrl"):
        Trace("[hdrl]\n");
        return WalkHeader(riff, list, depth);
    case FourCC("strl"):
        Trace("[strl]\n");
        return ReadStreamList(riff, list, depth);
    case FourCC("odml"):
        Trace("[odml]");
        return ReadOdmlList(list);
    case FourCC("movi"):
        Trace("[movi]\n");
        layout.moviRanges.push_back(MoviRangeOf(source, list, riff.end));
        return {};
    case FourCC("rec "):
        Trace("[rec ]\n");
        return {};
    default:
        Trace("[list_etc]\n");
        return {};
    }
}

GStatus GAviParser::WalkHeader(const GRiff& riff, const GRiffChunk& list, int depth)
{
    GRiffWalker walker(source, list.Body() + 4, list.BodyEnd());
    GRiffChunk chunk;
    while (NextChunk(walker, chunk)) {
        if (chunk.code == kListCode)
            G_TRY_STATUS(ReadList(riff, chunk, depth + 1));
        else if (chunk.code == FourCC("avih") && chunk.size <= kMainHeaderSize)
            ReadMainHeader(chunk);
        else
            Trace("hdrl_etc : %d\n", static_cast<int>(chunk.size));
    }
    return {};
}

void GAviParser::ReadMainHeader(const GRiffChunk& chunk)
{
    Trace("avih : %d\n", static_cast<int>(chunk.size));
    std::vector<std::uint8_t> body = ReadBody(chunk, kMainHeaderSize);
    body.resize(kMainHeaderSize);
    GByteReader reader(body);
    layout.microSecPerFrame = reader.U32LE();
    reader.Skip(12);  // data rate, padding, flags
    layout.totalFrames = reader.U32LE();
}

GStatus GAviParser::ReadStreamList(const GRiff& riff, const GRiffChunk& list, int depth)
{
    auto stream = std::make_unique<GAvi2ReadStream>();
    GRiffWalker walker(source, list.Body() + 4, list.BodyEnd());
    GRiffChunk chunk;
    while (NextChunk(walker, chunk)) {
        if (chunk.code == kListCode)
            G_TRY_STATUS(ReadList(riff, chunk, depth + 1));
        else
            ReadStreamChunk(*stream, chunk);
    }
    AddStream(std::move(stream), list.position);
    return {};
}

void GAviParser::ReadStreamChunk(GAvi2ReadStream& stream, const GRiffChunk& chunk)
{
    switch (chunk.code) {
    case FourCC("strh"):
        Trace("strh : %d\n", static_cast<int>(chunk.size));
        stream.EditFormat().SetHeader(ReadBody(chunk, GAviStreamFormat::kHeaderSize));
        break;
    case FourCC("strf"):
        if (chunk.size > kMaxCodecDataSize)
            damage.Add("strf is too large", chunk.position, chunk.size);
        else
            stream.EditFormat().SetFormat(ReadBody(chunk, kMaxCodecDataSize));
        break;
    case FourCC("indx"): {
        Trace("indx : %d\n", static_cast<int>(chunk.size));
        std::vector<std::uint8_t> body = ReadBody(chunk, kMaxIndexSize);
        const GByteReader reader(body, static_cast<std::uint64_t>(chunk.Body()));
        if (const auto length = GOdmlIndexLoader::AnnouncedLength(reader))
            stream.SetAnnouncedLength(*length);
        // A file of one RIFF has all its chunks in idx1 as well, and writers left "indx" unfilled there.
        if (layout.singleRiff)
            spareIndexes.push_back({&stream, std::move(body), chunk.Body()});
        else
            odml.Load(stream, reader);
        break;
    }
    default:
        Trace("strl_etc : %d\n", static_cast<int>(chunk.size));
        break;
    }
}

void GAviParser::AddStream(std::unique_ptr<GAvi2ReadStream> stream, std::int64_t position)
{
    if (layout.streams.size() >= GAvi2ReadStream::kMaxStreams) {
        damage.Add("no chunk code is left for the stream", position);
        return;
    }
    stream->SetNumber(layout.streams.size());
    if (stream->Format().IsVideo())
        layout.referenceVideoStream = stream->Digits();
    layout.streams.push_back(std::move(stream));
}

// What "dmlh" says, the number of frames in all RIFFs, is not needed; a broken one still marks the file as broken.
GStatus GAviParser::ReadOdmlList(const GRiffChunk& list)
{
    GRiffChunk chunk;
    if (!ReadRiffHeader(source, list.Body() + 4, chunk))
        return GError{GErrorKind::NeedMoreData, "the odml list is cut off", static_cast<std::uint64_t>(list.position)};
    if (chunk.code == FourCC("dmlh") && chunk.size < list.size && chunk.size > kMaxExtendedHeaderSize)
        return GError{GErrorKind::Malformed, "dmlh is too large", static_cast<std::uint64_t>(chunk.position)};
    return {};
}

void GAviParser::ReadIdx1(const GRiffChunk& chunk)
{
    if (layout.index == GAviIndex::OpenDml || layout.index == GAviIndex::Idx1)
        return;
    if (const GStatus loaded = LoadIdx1(source, chunk, layout, damage); loaded.Ok()) {
        layout.index = GAviIndex::Idx1;
    } else {
        Trace("Error, Fail to Read_idx1()");
        damage.Add(loaded.Error().what, chunk.position);
    }
}

bool GAviParser::NextChunk(GRiffWalker& walker, GRiffChunk& chunk)
{
    if (!walker.Next(chunk))
        return false;
    if (headerBudget == 0) {
        damage.Add("lists overlap too often", chunk.position);
        return false;
    }
    --headerBudget;
    return true;
}

// The bytes of a chunk that are there, at most `limit`; nothing once more has been copied than the file holds.
std::vector<std::uint8_t> GAviParser::ReadBody(const GRiffChunk& chunk, std::uint32_t limit)
{
    const std::int64_t there = std::clamp<std::int64_t>(source.GetSize() - chunk.Body(), 0, chunk.size);
    const auto count = static_cast<std::uint32_t>(std::min<std::int64_t>(there, limit));
    if (count > bodyBudget) {
        damage.Add("lists overlap too often", chunk.position);
        return {};
    }
    bodyBudget -= count;
    std::vector<std::uint8_t> body(count);
    if (count != 0 && !ReadExactly(source, chunk.Body(), body.data(), count)) {
        damage.Add("a header chunk cannot be read", chunk.position, count);
        body.clear();
    }
    return body;
}

}  // namespace vex
