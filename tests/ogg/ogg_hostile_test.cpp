// Damaged files, and files built to hurt.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "ogg/ogg_reading.h"
#include "support/handler_trial.h"

namespace vex::test {
namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

// One stream of every kind, in a file short enough to damage every byte of.
GOggBytes SmallFile()
{
    return Join({HeaderPages(1, TheoraHeaders()), HeaderPages(2, VorbisHeaders(48'000)),
                 HeaderPages(3, {OgmHeader({.type = "video", .subtype = "XVID"}), CommentHeader({"LANGUAGE=fre"})}),
                 HeaderPages(4, {OgmHeader({.type = "audio", .subtype = "55"})}),
                 HeaderPages(5, {OgmHeader({.type = "text", .subtype = ""})}), TheoraPage(0, 20),
                 VorbisPage(0, 2, 10, 2), Page({.serial = 3, .number = 2, .granule = 1, .packets = {{8, 1}, {0, 2}}}),
                 Page({.serial = 4, .number = 1, .granule = 7, .packets = {{0, 1}, {0x41, 9, 2}}}),
                 Page({.serial = 5, .number = 1, .granule = 2, .packets = {{0x40, 3, 'a'}}}), TheoraPage(1, 20)});
}

GTrialResult Try(GOggBytes bytes)
{
    GOggReading reading(std::move(bytes));
    return TryHandler(reading, {.targets = {0, kSecond / 20, REFERENCE_TIME{1} << 62}});
}

TEST(OggHostile, EveryPrefixAndEveryFlippedByteIsSurvived)
{
    const GOggBytes whole = SmallFile();
    const std::size_t all = Try(whole).packets;
    EXPECT_EQ(all, 9u);
    for (std::size_t i = 0; i < whole.size(); i += 3) {
        EXPECT_LE(Try({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(i)}).packets, all);
        GOggBytes flipped = whole;
        flipped[i] ^= 0x5A;
        EXPECT_LE(Try(flipped).packets, all);
    }
}

// Right checksums around wrong contents.
TEST(OggHostile, GranulesAtTheirEndsAndBackwardsGiveTimesThatFit)
{
    for (const std::int64_t granule :
         {kMost, kMost - 1, std::numeric_limits<std::int64_t>::min(), std::int64_t{0}, kMost / 10'000}) {
        const GOggBytes file = Join(
            {HeaderPages(1, TheoraHeaders({.rateNumerator = 1, .rateDenominator = 0xFFFFFFFF, .granuleShift = 31})),
             HeaderPages(2, VorbisHeaders(1)),
             HeaderPages(3, {OgmHeader({.type = "video",
                                        .subtype = "XVID",
                                        .timeUnit = kMost,
                                        .samplesPerUnit = kMost,
                                        .defaultLength = -5})}),
             HeaderPages(4,
                         {OgmHeader({.type = "audio", .subtype = "55", .timeUnit = kMost, .samplesPerUnit = -kMost})}),
             HeaderPages(5, {OgmHeader({.type = "text", .subtype = "", .timeUnit = -1})}),
             Page({.serial = 1, .number = 2, .granule = granule, .packets = {{0x00}, {0x40}, {0xC0}}}),
             Page({.serial = 1, .number = 3, .granule = 1, .packets = {{0x00}, {0x40}}}),
             Page({.serial = 2, .number = 2, .granule = granule, .packets = {kLongBlock, {}, {0xFF}}}),
             Page({.serial = 2, .number = 3, .granule = -1, .packets = {kLongBlock, kLongBlock}}),
             Page({.serial = 3, .number = 1, .granule = granule, .packets = {{9}, {0xC8}, {}}}),
             Page({.serial = 3, .number = 2, .granule = -1, .packets = {{8, 1}, {9}}}),
             Page({.serial = 4, .number = 1, .granule = granule, .packets = {{0}, {1}}}),
             Page({.serial = 5, .number = 1, .granule = granule, .packets = {{0x40, 255, 1}}})});
        EXPECT_TRUE(Try(file).opened);
    }
}

TEST(OggHostile, DamageCostsItsPageOnceAndTheRestPlays)
{
    GOggBytes file = TheoraFile(30);
    const std::size_t headers = HeaderPages(1, TheoraHeaders()).size();
    const std::size_t page = TheoraPage(0, 40).size();
    file[headers + 20 * page + 30] ^= 1;
    GOggReading reading(file);
    EXPECT_EQ(reading.ReadAll().size(), 29u);
    reading.ReadFrom(0);
    EXPECT_EQ(reading.Damage().count, 1u);
    EXPECT_EQ(reading.Damage().bytes, page);

    // A page is missing without a trace, and a serial is used again.
    file = TheoraFile(30);
    file.erase(file.begin() + static_cast<std::ptrdiff_t>(headers + 20 * page),
               file.begin() + static_cast<std::ptrdiff_t>(headers + 21 * page));
    GOggReading gap(Join({file, TheoraFile(3)}));
    EXPECT_EQ(gap.ReadAll().size(), 32u);
    EXPECT_GE(gap.Damage().count, 1u);
}

TEST(OggHostile, CommentsThatLieCostThemselvesOnly)
{
    auto headers = TheoraHeaders({}, {"a=b"});
    for (const std::size_t at : {7u, 11u, 15u}) {  // vendor length, count, length
        auto lying = headers;
        lying[1][at + 3] = 0x7F;
        GOggReading reading(Join({HeaderPages(1, lying), TheoraPage(0, 9)}));
        ASSERT_TRUE(reading.IsOpen());
        EXPECT_TRUE(reading.Streams()[0].properties.empty());
    }
}

TEST(OggHostile, ACodeBookOfMillionsOfEntriesIsRefused)
{
    EXPECT_TRUE(GOggReading(HeaderPages(1, VorbisHeaders(48'000))).IsOpen());
    EXPECT_FALSE(GOggReading(HeaderPages(1, VorbisHeaders(48'000, {}, true))).IsOpen());
}

// They take no bytes of the limit on what is held back, but an entry in libogg's tables each.
TEST(OggHostile, EmptyPacketsAreNotHeldBackWithoutEnd)
{
    GOggBytes file = HeaderPages(1, VorbisHeaders(48'000));
    for (unsigned page = 0; page < 200; ++page)
        file = Join({file, Page({.number = page + 2, .granule = -1, .packets = std::vector<GOggBytes>(255)})});
    GMemoryFile source(std::make_shared<GMemoryDisk>(file));
    source.Open("memory");
    GDamageLog damage;
    auto streams = ReadOggHeaders(source, damage);
    ASSERT_TRUE(streams.Ok());
    GOGG2ReadStream& stream = *streams.Value()[0];
    stream.Reset();
    GOggPageSource pages(source, nullptr, 65'536);
    pages.MoveTo(0);
    GOggPage page;
    GOggPacket packet;
    std::int64_t budget = GOggPageSource::kNoLimit;
    auto peeked = GOGG2ReadStream::GPeek::None;
    while (peeked != GOGG2ReadStream::GPeek::Packet && pages.Next(page, budget)) {
        stream.PageIn(page);
        peeked = stream.Peek(packet);
    }
    EXPECT_EQ(peeked, GOGG2ReadStream::GPeek::Packet);
}

TEST(OggHostile, ThousandsOfStreamsGetNoMoreThanTheirShare)
{
    GOggBytes file;
    for (std::uint32_t serial = 0; serial < 1500; ++serial) {
        const GOggBytes page =
            Page({.serial = serial, .packets = {GOggBytes{1, 'G', 'S', 't', 'r', 'e', 'a', 'm'}}, .begins = true});
        file.insert(file.end(), page.begin(), page.end());
    }
    EXPECT_EQ(GOggReading(file).Streams().size(), 255u);
}

}  // namespace
}  // namespace vex::test
