// Durations and seeks.
#include <gtest/gtest.h>

#include <random>
#include <tuple>

#include "flv/flv_reading.h"

namespace vex::test {
namespace {

REFERENCE_TIME FirstStart(GFlvReading& reading, REFERENCE_TIME target)
{
    EXPECT_EQ(reading.Seek(target), target);
    const auto first = reading.Next();
    return first ? first->next.start : kNoTime;
}

TEST(FlvDuration, IsTheTimeOfTheLastTagOfSoundOrPictures)
{
    const GFlvBuilder film = Film(10, 5);
    const auto with = [&](const GFlvBytes& more) { return GFlvBuilder(film).Raw(more).bytes; };
    const std::pair<GFlvBytes, REFERENCE_TIME> cases[] = {
        {film.Cut(7), 360},
        {GFlvBuilder(film).Tag(kFlvScript, 999, Payload({2}, 30)).bytes, 360},
        {with(Payload({}, 5'000, 0x42)), 360},
        {with(Payload({}, 0x100010, 0x42)), 0},  // too much junk
        {Film(10, 5, 0, {.previousTagSize = 0}).bytes, 360},
        {GFlvBuilder(film).Audio(400, GFlvBuilder(0, 5).Audio(9, {1}).bytes).bytes, 400},  // looks like a tag inside
    };
    for (const auto& [bytes, ms] : cases) {
        GFlvReading reading(bytes);
        EXPECT_EQ(reading.Handler().Duration(), ms * kMillisecond) << bytes.size();
        EXPECT_GE(reading.ReadAll().size(), 20u) << bytes.size();
    }
    GFlvReading far(with(Payload({}, 3u << 20, 0x42)));
    EXPECT_LT(far.Watch().bytes, (1u << 20) + (128u << 10)) << "a megabyte is read once";
}

TEST(FlvSeek, LandsOnTheLastKeyFrameBeforeTheTargetOrTheFirstOneAfter)
{
    const std::tuple<unsigned, unsigned, REFERENCE_TIME, REFERENCE_TIME> cases[] = {
        {10, 0, 0, 0},      {10, 0, 1'000, 800}, {10, 0, 800, 400},  // exactly on one: the one before
        {10, 20, 500, 800},                                          // none before
        {100, 0, 1'900, 0},                                          // none behind the first
    };
    for (const auto& [group, firstKey, targetMs, landingMs] : cases) {
        GFlvReading reading(Film(50, group, firstKey).bytes);
        EXPECT_EQ(FirstStart(reading, targetMs * kMillisecond), landingMs * kMillisecond) << targetMs;
    }
    GFlvReading without(Film(50, 100, 60).bytes);
    EXPECT_EQ(FirstStart(without, kSecond), kNoTime) << "no key frame at all: the end";
    EXPECT_EQ(without.ReadFrom(0).size(), 100u);
}

TEST(FlvSeek, WithoutVideoLandsOnTheFirstSoundAtOrAfterTheTargetWhateverPayloadsLookLike)
{
    GFlvBytes payload{0x2F};  // full of early tags that lead nowhere
    for (int i = 0; i < 60; ++i)
        payload.insert(payload.end(), {0, 0, 0, 0, 8, 0, 0, 9, 0, 0, 1, 0, 0, 0, 0});
    GFlvBuilder file(4);
    for (std::uint32_t i = 0; i < 2'000; ++i)
        file.Audio(26 * i, payload);
    GFlvReading reading(file.bytes);
    EXPECT_EQ(FirstStart(reading, 26'000 * kMillisecond), 26'000 * kMillisecond);
    EXPECT_EQ(FirstStart(reading, 26'001 * kMillisecond), 26'026 * kMillisecond);
    EXPECT_EQ(reading.Damage().count, 0u);
}

TEST(FlvSeek, WhatIsRefusedOrInterruptedMovesNothing)
{
    GFlvReading reading(Film(500, 10).bytes);
    const REFERENCE_TIME duration = reading.Handler().Duration();
    reading.Next();
    EXPECT_FALSE(reading.Handler().AcceptsSeek(duration));
    EXPECT_FALSE(reading.Handler().Seek(duration, GSeekMode::Independent));
    reading.Handler().Interrupt(true);
    EXPECT_FALSE(reading.Handler().Seek(10 * kSecond, GSeekMode::Independent));
    reading.Handler().Interrupt(false);
    const auto next = reading.Next();
    EXPECT_TRUE(next && next->next.stream == kFlvAudio && next->next.start == 0);
}

// Half of the time takes a twentieth of the file, so estimates are far off.
TEST(FlvSeek, InALargeFileReadsLittleAndLandsAsInASmallOne)
{
    GFlvBuilder film;
    film.Video(0, AvcConfiguration());
    for (unsigned i = 0; i < 6'000; ++i)
        film.Video(40 * i, AvcPicture(i % 100 == 0, 1, 0, i < 3'000 ? 300 : 6'000)).Audio(40 * i, Mp3Frame(2));
    GFlvReading reading(film.bytes);
    std::mt19937 random(7);
    for (int i = 0; i < 60; ++i) {
        const auto target = static_cast<REFERENCE_TIME>(random() % 239'900 + 1) * kMillisecond;
        const std::uint64_t before = reading.Watch().bytes;
        ASSERT_EQ(FirstStart(reading, target), (target - 1) / (4 * kSecond) * (4 * kSecond)) << target;
        EXPECT_LT(reading.Watch().bytes - before, 3u << 20) << target;
    }
}

}  // namespace
}  // namespace vex::test
