// The OpenDML index ("indx") of one stream: a list of index chunks elsewhere in the file, or the entries themselves.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "formats/avi/avi_layout.h"
#include "framework/contract/damage_log.h"
#include "io/byte_reader.h"
#include "io/file_base.h"

namespace vex {

class GOdmlIndexLoader {
public:
    GOdmlIndexLoader(GFileBase& file, GAviLayout& fileLayout, GDamageLog& damageLog);

    // `body` is the body of the stream's "indx" chunk. Adds its entries to the stream and tells the layout whether the
    // index can be used. Moves the source.
    void Load(GAvi2ReadStream& stream, GByteReader body);

    // The sum of the durations in a super index, in units of the stream's rate; nothing for another kind of index.
    static std::optional<std::uint64_t> AnnouncedLength(GByteReader body);

private:
    struct GHeader;
    struct GSuperEntry {
        std::uint64_t offset = 0;  // position of an index chunk
        std::uint32_t size = 0;    // bytes of it, header included
        std::uint32_t duration = 0;
    };

    static GHeader ReadHeader(GByteReader& reader);
    static GSuperEntry ReadSuperEntry(GByteReader& reader);
    static std::uint32_t EntrySize(const GHeader& header);

    void LoadSuper(GAvi2ReadStream& stream, const GHeader& header, GByteReader entries);
    void LoadChunk(GAvi2ReadStream& stream, const GSuperEntry& where);
    void AddEntries(GAvi2ReadStream& stream, const GHeader& header, GByteReader& entries, std::uint64_t count);

    GFileBase& source;
    GAviLayout& layout;
    GDamageLog& damage;
    // Index bytes still to be believed. Every honest index chunk has its own place in the file; entries that name one
    // place over and over must not make more of it.
    std::int64_t budget;
};

}  // namespace vex
