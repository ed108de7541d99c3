// Reads the RIFF structure of an AVI file into a GAviLayout: headers, stream lists, indexes, and where the data lies.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "formats/avi/avi_layout.h"
#include "formats/avi/odml_index.h"
#include "framework/contract/damage_log.h"
#include "io/file_base.h"
#include "io/result.h"

namespace vex {

// Used once per file, by one thread. The data itself is not read.
class GAviParser {
public:
    GAviParser(GFileBase& file, GDamageLog& damageLog);

    // A layout with at least one stream.
    GResult<GAviLayout> Parse();

private:
    struct GRiff {
        std::int64_t start;  // of the chunks
        std::int64_t end;    // kRiffEndUnknown: as far as the file goes
    };

    GStatus WalkRiff(const GRiff& riff);
    void WalkContinuations(std::int64_t position);
    GStatus ReadList(const GRiff& riff, const GRiffChunk& list, int depth);
    GStatus WalkHeader(const GRiff& riff, const GRiffChunk& list, int depth);
    GStatus ReadStreamList(const GRiff& riff, const GRiffChunk& list, int depth);
    void ReadStreamChunk(GAvi2ReadStream& stream, const GRiffChunk& chunk);
    void AddStream(std::unique_ptr<GAvi2ReadStream> stream, std::int64_t position);
    GStatus ReadOdmlList(const GRiffChunk& list);
    void ReadIdx1(const GRiffChunk& chunk);
    void ReadMainHeader(const GRiffChunk& chunk);
    void SettleIndex();
    bool ReplaceIndex(std::int64_t namedSoFar);

    bool NextChunk(GRiffWalker& walker, GRiffChunk& chunk);
    std::vector<std::uint8_t> ReadBody(const GRiffChunk& chunk, std::uint32_t limit);

    GFileBase& source;
    GDamageLog& damage;
    GAviLayout layout;
    std::int64_t fileSize;
    // Lists that outgrow the lists around them are read as they are, but what they make the parser read again is
    // counted: in headers, and in bytes copied. An honest file holds each only once.
    std::int64_t headerBudget;
    std::int64_t bodyBudget;
    GOdmlIndexLoader odml;

    // The "indx" chunks of a file of one RIFF, whose idx1 goes first.
    struct GSpareIndex {
        const GAvi2ReadStream* stream;  // not to be followed: it may have been dropped
        std::vector<std::uint8_t> body;
        std::int64_t position;
    };
    std::vector<GSpareIndex> spareIndexes;
};

}  // namespace vex
