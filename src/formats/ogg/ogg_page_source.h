// Pages of an Ogg physical stream (RFC 3533) out of a byte source.
#pragma once

#include <ogg/ogg.h>

#include <cstdint>
#include <limits>

#include "framework/contract/damage_log.h"
#include "io/file_base.h"

namespace vex {

// A page inside the page source's buffer, valid until the source reads or moves on.
struct GOggPage {
    ogg_page page{};
    std::int64_t offset = 0;   // file position of its first byte
    bool afterDamage = false;  // what precedes it is no page

    std::uint32_t Serial() const { return static_cast<std::uint32_t>(ogg_page_serialno(&page)); }
    std::int64_t Granule() const { return ogg_page_granulepos(&page); }  // negative: no packet ends on the page
    bool BeginsStream() const { return ogg_page_bos(&page) != 0; }
};

// Pages whose checksum is wrong are passed over; reading resynchronises on the next capture pattern. One thread at a
// time. May throw std::bad_alloc.
class GOggPageSource {
public:
    static constexpr std::int64_t kNoLimit = std::numeric_limits<std::int64_t>::max();
    static constexpr std::int64_t kMaxPageSize = 65'307;  // bytes: a full header, 255 segments of 255 bytes

    // `byteSource` and `damageLog` outlive this. `damageLog`, which may be null, gets the bytes passed over.
    // `readSize`: bytes asked for at once.
    GOggPageSource(GFileBase& byteSource, GDamageLog* damageLog, std::uint32_t readSize);
    ~GOggPageSource() { ogg_sync_clear(&sync); }
    GOggPageSource(const GOggPageSource&) = delete;
    GOggPageSource& operator=(const GOggPageSource&) = delete;

    // Goes on at `target`, at the first page that starts there or behind it. What is passed over until then is not
    // damage. No byte at `limit` or behind it is read.
    void MoveTo(std::int64_t target, std::int64_t limit = kNoLimit);

    // Takes the next page that is whole; false when more bytes are needed.
    bool Take(GOggPage& page);
    // Reads once; false when nothing was there.
    bool Fill();
    // Take, with as many reads as it needs and `budget` bytes allow. False at the end of the file, or of the budget.
    bool Next(GOggPage& page, std::int64_t& budget);

    // At the end of the file: what is left of a page counts as damage.
    void ReportTail();
    // File position behind the last page taken.
    std::int64_t PageEnd() const { return pageEnd; }
    // File position behind the bytes read so far.
    std::int64_t ReadPosition() const { return readPosition; }

private:
    // The bytes from the last page to `until` are damage, unless no page was found yet since MoveTo.
    void ReportSkipped(const char* what, std::int64_t until);

    GFileBase& source;
    GDamageLog* const damage;
    const std::uint32_t chunk;
    ogg_sync_state sync{};
    std::int64_t readPosition = 0;
    std::int64_t position = 0;  // file position of the first byte that was not looked at
    std::int64_t pageEnd = 0;   // of the last page taken, or where MoveTo led
    std::int64_t end = kNoLimit;
    bool seeking = false;  // no page was found yet since MoveTo
};

}  // namespace vex
