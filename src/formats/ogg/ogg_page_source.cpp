#include "formats/ogg/ogg_page_source.h"

#include <algorithm>
#include <new>

namespace vex {

GOggPageSource::GOggPageSource(GFileBase& byteSource, GDamageLog* damageLog, std::uint32_t readSize)
    : source(byteSource), damage(damageLog), chunk(readSize)
{
    ogg_sync_init(&sync);
}

void GOggPageSource::MoveTo(std::int64_t target, std::int64_t limit)
{
    ogg_sync_reset(&sync);
    readPosition = position = pageEnd = source.Seek(target);
    end = limit;
    seeking = target != 0;
}

void GOggPageSource::ReportSkipped(const char* what, std::int64_t until)
{
    if (damage && !seeking && until > pageEnd)
        damage->Add(what, pageEnd, static_cast<std::uint64_t>(until - pageEnd));
}

bool GOggPageSource::Take(GOggPage& page)
{
    for (;;) {
        const long result = ogg_sync_pageseek(&sync, &page.page);
        if (result == 0)
            return false;
        if (result < 0) {
            position -= result;
            continue;
        }
        ReportSkipped("no valid Ogg page", position);
        page.offset = position;
        page.afterDamage = position > pageEnd;
        position += result;
        pageEnd = position;
        seeking = false;
        return true;
    }
}

void GOggPageSource::ReportTail() { ReportSkipped("the file ends inside an Ogg page", readPosition); }

bool GOggPageSource::Fill()
{
    const auto wanted = static_cast<std::uint32_t>(std::clamp<std::int64_t>(end - readPosition, 0, chunk));
    if (wanted == 0)
        return false;
    char* const room = ogg_sync_buffer(&sync, static_cast<long>(chunk));
    if (!room)
        throw std::bad_alloc();
    const std::uint32_t got = source.ReadBulk(room, wanted);
    ogg_sync_wrote(&sync, static_cast<long>(got));
    readPosition += got;
    return got > 0;
}

bool GOggPageSource::Next(GOggPage& page, std::int64_t& budget)
{
    while (!Take(page)) {
        if (budget <= 0)
            return false;
        const std::int64_t before = readPosition;
        if (!Fill()) {
            budget = std::max<std::int64_t>(budget, 1);
            return false;
        }
        budget -= readPosition - before;
    }
    return true;
}

}  // namespace vex
