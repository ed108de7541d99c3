// Durations, seeks with and without the index, files that grow.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "formats/ogg/ogg_seek.h"
#include "ogg/ogg_reading.h"

namespace vex::test {
namespace {

constexpr REFERENCE_TIME kFrame = 400'000;

TEST(OggSeek, TheIndexLeadsToTheKeyFrameBeforeTheTarget)
{
    GOggReading reading(TheoraFile(100));
    reading.WaitForIndex();
    EXPECT_EQ(reading.Handler().Duration(), 99 * kFrame);
    for (const int frame : {1, 7, 8, 9, 50, 96, 98}) {
        const auto packets = reading.ReadFrom(frame * kFrame);
        ASSERT_FALSE(packets.empty());
        EXPECT_EQ(packets[0].next.start, frame / 8 * 8 * kFrame) << frame;
        EXPECT_EQ(packets.size(), static_cast<std::size_t>(100 - frame / 8 * 8));
    }
    EXPECT_TRUE(reading.ReadFrom(99 * kFrame).empty()) << "at the duration the stream ends";
    EXPECT_EQ(reading.ReadFrom(0).size(), 100u);
}

TEST(OggSeek, AnEntryNamesThePageOnWhichALongKeyFrameBegins)
{
    GOggBytes key(3 * 255 + 10, 5);
    key[0] = 0x00;
    const auto piece = [&](int i) {
        return GOggBytes(key.begin() + i * 255, key.begin() + std::min<int>(i * 255 + 255, 775));
    };
    GOggBytes file = Join({HeaderPages(1, TheoraHeaders()), TheoraPage(0, 9)});
    const std::size_t begin = file.size();
    file = Join({file, Page({.number = 3, .granule = -1, .packets = {piece(0)}, .open = true}),
                 Page({.number = 4, .granule = -1, .packets = {piece(1)}, .continued = true, .open = true}),
                 Page({.number = 5, .granule = 2 << 6, .packets = {Join({piece(2), piece(3)})}, .continued = true}),
                 Page({.number = 6, .granule = 2 << 6 | 1, .packets = {{0x40}}})});
    GOggReading reading(file);
    reading.WaitForIndex();
    ASSERT_TRUE(reading.Handler().Index());
    const auto entry = reading.Handler().Index()->Find(kFrame);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->offset, static_cast<std::int64_t>(begin));
    const auto packets = reading.ReadFrom(kFrame);
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0].payload, key);
}

TEST(OggSeek, AlignedSeeksBeginAtTheNextKeyFrameAndKeepTheOtherStreams)
{
    GOggReading reading(TheoraFile(100, 40, true));
    reading.WaitForIndex();
    for (const int frame : {1, 8, 30, 87}) {
        const int key = (frame + 8) / 8 * 8;
        EXPECT_EQ(reading.Seek(frame * kFrame, GSeekMode::KeyFrame), key * kFrame) << frame;
        const auto packets = reading.ReadAll();
        const auto video = OfStream(packets, 1);
        ASSERT_FALSE(video.empty());
        EXPECT_EQ(video[0].next.start, key * kFrame);
        EXPECT_GE(OfStream(packets, 2).size(), static_cast<std::size_t>(100 - key));
    }
    // No key frame is left.
    EXPECT_EQ(reading.Seek(97 * kFrame, GSeekMode::KeyFrame), 97 * kFrame);
    EXPECT_TRUE(OfStream(reading.ReadAll(), 1).empty());
}

TEST(OggSeek, ASearchForAKeyFrameStopsAtTheReadInWhichItIsInterrupted)
{
    constexpr unsigned kFrames = 4000;
    constexpr unsigned kShift = 20;
    GOggBytes file = HeaderPages(1, TheoraHeaders({.granuleShift = kShift}));
    for (unsigned frame = 0; frame < kFrames; ++frame) {  // one key frame, and 4 MB without another
        const GOggBytes page = Page({.number = frame + 2,
                                     .granule = (std::int64_t{1} << kShift) + frame,
                                     .packets = {GOggBytes(1000, frame == 0 ? 0x00 : 0x40)}});
        file.insert(file.end(), page.begin(), page.end());
    }
    int reads = 0;
    int stopAt = 0;
    std::function<void()> interrupt = [] {};
    GSourceWatch watch;
    watch.refusesNew = true;  // so that there is no index
    watch.onRead = [&](bool) {
        if (++reads == stopAt)
            interrupt();
        return false;
    };
    GHandlerReading<GOGG2ReadHandler> reading(std::make_unique<GWatchedSource>(OpenInMemory(file), watch));
    interrupt = [&reading] { reading.Handler().Interrupt(true); };
    const auto readsOfASeek = [&](int stop) {
        reads = 0;
        stopAt = stop;
        EXPECT_EQ(reading.Seek(kFrames / 2 * kFrame, GSeekMode::KeyFrame), kFrames / 2 * kFrame);
        reading.Handler().Interrupt(false);
        return reads;
    };
    const int all = readsOfASeek(0);
    EXPECT_GT(all, 30);
    for (int stop = 1; stop < all; ++stop)
        EXPECT_EQ(readsOfASeek(stop), stop);
    EXPECT_EQ(reading.ReadFrom(0).size(), kFrames);
}

// The handler's own seeks may find the index already there.
TEST(OggSeek, BisectionLandsWithinEightKibibytesAndAPageInABoundedNumberOfReads)
{
    // Two hours: quiet at first, then fifty times as dense.
    GOggBytes file = HeaderPages(1, VorbisHeaders(48'000));
    for (unsigned page = 0; page < 6750; ++page) {
        const GOggBytes bytes = VorbisPage(page, 50, page < 5000 ? 4 : 200);
        file.insert(file.end(), bytes.begin(), bytes.end());
    }
    const auto disk = std::make_shared<GMemoryDisk>(file);
    GMemoryFile source(disk);
    source.Open("memory");
    GDamageLog damage;
    auto streams = ReadOggHeaders(source, damage);
    ASSERT_TRUE(streams.Ok());
    const std::atomic<bool> go{false};
    const REFERENCE_TIME duration = FindOggDuration(source, streams.Value(), go);
    EXPECT_EQ(duration, REFERENCE_TIME{6750} * 50 * 1024 * kSecond / 48'000);
    const REFERENCE_TIME pageTime = REFERENCE_TIME{50} * 1024 * kSecond / 48'000;
    for (int i = 0; i < 200; ++i) {
        const REFERENCE_TIME target = duration / 211 * (i + 3);
        GSourceWatch watch;
        GWatchedSource watched(std::make_unique<GMemoryFile>(disk), watch);
        watched.Open("memory");
        const std::int64_t position = FindOggPosition(watched, streams.Value(), target, duration, go);
        EXPECT_LE(watch.reads.load(), 100u) << i;
        GOggPageSource pages(source, nullptr, 65'536);
        pages.MoveTo(position);
        GOggPage page;
        std::int64_t budget = GOggPageSource::kNoLimit;
        ASSERT_TRUE(pages.Next(page, budget));
        const std::int64_t first = page.offset;
        EXPECT_LE(streams.Value()[0]->GranuleToTime(page.Granule()), target + pageTime) << i;
        while (streams.Value()[0]->GranuleToTime(page.Granule()) < target && pages.Next(page, budget)) {}
        EXPECT_LE(page.offset - first, 8192 + 2 * 10'300) << i;
    }
}

TEST(OggSeek, BisectionPassesOverPagesThatItCannotUse)
{
    // A stranger's pages and pages without a granule between those of the stream.
    GOggBytes file = HeaderPages(1, VorbisHeaders(48'000));
    for (unsigned page = 0; page < 40; ++page)
        file = Join({file, VorbisPage(page, 40),
                     Page({.serial = 77, .number = page, .granule = 3, .packets = {GOggBytes(30'000, 1)}})});
    file = Join({file, Page({.serial = 78, .granule = 5, .packets = {GOggBytes(9000, 2)}})});
    GMemoryFile source(std::make_shared<GMemoryDisk>(file));
    source.Open("memory");
    GDamageLog damage;
    auto streams = ReadOggHeaders(source, damage);
    ASSERT_TRUE(streams.Ok());
    const std::atomic<bool> go{false};
    const REFERENCE_TIME duration = FindOggDuration(source, streams.Value(), go);
    for (int second = 1; second < 34; ++second) {
        const std::int64_t position = FindOggPosition(source, streams.Value(), second * kSecond, duration, go);
        GOggPageSource pages(source, nullptr, 65'536);
        pages.MoveTo(position);
        GOggPage page;
        std::int64_t budget = GOggPageSource::kNoLimit;
        do {
            ASSERT_TRUE(pages.Next(page, budget));
        } while (page.Serial() != 1);
        EXPECT_NEAR(static_cast<double>(streams.Value()[0]->GranuleToTime(page.Granule())),
                    static_cast<double>(second * kSecond), 2.0 * kSecond)
            << second;
    }
}

TEST(OggSeek, ATailOfForeignPagesDoesNotHideTheDuration)
{
    GOggBytes file = TheoraFile(50);
    for (unsigned page = 0; page < 60; ++page)
        file = Join({file, Page({.serial = 9, .number = page, .granule = 1, .packets = {GOggBytes(60'000, 1)}})});
    EXPECT_EQ(GOggReading(file).Handler().Duration(), 49 * kFrame);
}

TEST(OggSeek, TimesAreTheSameFromEveryPlace)
{
    GOggReading reading(VorbisFile(60, 9));
    reading.WaitForIndex();
    const auto whole = reading.ReadAll();
    for (int target = 1; target < 11; ++target) {
        const auto packets = reading.ReadFrom(target * kSecond);
        ASSERT_FALSE(packets.empty());
        ASSERT_LE(packets.size(), whole.size());
        for (std::size_t i = 0; i < packets.size(); ++i)
            EXPECT_EQ(packets[i].next.start, whole[whole.size() - packets.size() + i].next.start);
    }
}

TEST(OggGrowth, IsReadAndIndexedAndTheDurationFollows)
{
    const GOggBytes file = TheoraFile(80);
    const auto half = file.begin() + static_cast<std::ptrdiff_t>(file.size() / 2 + 11);
    GOggReading reading({file.begin(), half});
    const std::size_t first = reading.ReadAll().size();
    reading.WaitForIndex();
    const REFERENCE_TIME before = reading.Handler().Duration();
    reading.Append({&*half, static_cast<std::size_t>(file.end() - half)});
    EXPECT_EQ(first + reading.ReadAll().size(), 80u);
    for (const GHangCheck hang("a duration that does not grow"); reading.Handler().Duration() != 79 * kFrame;
         hang.Check())
        std::this_thread::yield();
    EXPECT_LT(before, 79 * kFrame);
    EXPECT_EQ(reading.ReadFrom(75 * kFrame).size(), 8u);
}

TEST(OggGrowth, ClosingTheFileEndsTheWaitForIt)
{
    constexpr std::chrono::hours kForEver(1000);
    GHandlerReading<GOGG2ReadHandler> reading(TheoraFile(9), GOggPinNames::Second, GOggIndexPauses{kForEver, kForEver});
    for (const GHangCheck hang("an index that never catches up"); !reading.Handler().IsIndexComplete(); hang.Check())
        std::this_thread::yield();
    reading.Handler().Close();
    EXPECT_FALSE(reading.Handler().Index());
}

}  // namespace
}  // namespace vex::test
