// Durations and seeks.
#include <gtest/gtest.h>

#include <random>

#include "mpeg/mpeg_reading.h"

namespace vex::test {
namespace {

constexpr REFERENCE_TIME kMargin = 10 * kSecond;
constexpr REFERENCE_TIME kPicture = 400'000;  // 100 ns

// Where the packets behind a seek begin, 100 ns.
REFERENCE_TIME Landing(GMpegReading& reading, REFERENCE_TIME target)
{
    EXPECT_EQ(reading.Seek(target), target);
    const auto packet = reading.Next();
    return packet ? packet->next.start : -1;
}

TEST(MpegDuration, IsTheLastTimeOfAKnownStream)
{
    constexpr std::uint64_t kNearWrap = (std::uint64_t{1} << 33) - 90'000;
    const struct {
        GMpegBytes bytes;
        REFERENCE_TIME duration;
    } cases[] = {
        {TransportFilm(200).bytes, 199 * kPicture},
        {TransportFilm(200, 90'000, 192).bytes, 199 * kPicture},
        {TransportFilm(200, kNearWrap).bytes, 199 * kPicture},
        {ProgramFilm(200).bytes, 199 * kPicture},
        {ProgramFilm(200, true).bytes, 199 * kPicture},
        {ProgramFilm(20).bytes, 0},  // less than a second
        {Join({TransportFilm(200).bytes, GMpegBytes(500, 1)}), 0},
        {Join({TransportFilm(200).bytes, GMpegBytes(60, 1)}), 199 * kPicture},
        {Join({GMpegBytes(100, 1), TransportFilm(200).bytes}), 199 * kPicture},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        GMpegReading reading(cases[i].bytes);
        ASSERT_TRUE(reading.IsOpen()) << i;
        EXPECT_EQ(reading.Handler().Duration(), cases[i].duration) << i;
    }
}

TEST(MpegDuration, WithoutOneAFilePlaysAndSeeksToItsStart)
{
    GMpegReading reading(ProgramFilm(20).bytes);
    EXPECT_EQ(reading.Seek(5 * kSecond), 0);
    EXPECT_EQ(reading.ReadAll().size(), 40u);
}

TEST(MpegSeek, LandsBeforeItsTargetByTheMarginAnd8KiB)
{
    // The second half has ten times the bits: a variable rate.
    GTsBuilder variable = TransportFilm(3000);
    variable.Raw(TransportFilm(3000, 90'000 + 3000 * kFrame, 188, 4000).bytes);
    GPsBuilder program = ProgramFilm(3000);
    program.Raw(ProgramFilm(1000, false, 90'000 + 3000 * kFrame, 9000).bytes);
    const std::pair<GMpegBytes, int> files[] = {
        {TransportFilm(6000).bytes, 752},
        {TransportFilm(6000, 90'000, 192).bytes, 768},
        {variable.bytes, 752},
        {ProgramFilm(6000).bytes, 1880},
        {program.bytes, 1880},
    };
    std::mt19937_64 random(7);
    for (const auto& [bytes, pictureBytes] : files) {
        GMpegReading reading(bytes);
        const REFERENCE_TIME duration = reading.Handler().Duration();
        // The longest time that 8 KiB may hold, at the lowest rate of the file, and a packet at either end.
        const REFERENCE_TIME slack = kPicture * 8192 / pictureBytes + 2 * kPicture;
        for (int i = 0; i < 200; ++i) {
            const REFERENCE_TIME target = static_cast<REFERENCE_TIME>(random() % static_cast<std::uint64_t>(duration));
            const REFERENCE_TIME start = Landing(reading, target);
            const REFERENCE_TIME early = std::max<REFERENCE_TIME>(target - kMargin, 0);
            EXPECT_LE(start, early + kPicture) << target;
            EXPECT_GE(start, early - slack) << target;
        }
    }
}

TEST(MpegSeek, ToTheSameTimeAgainCostsNoSearch)
{
    GMpegReading reading(TransportFilm(6000).bytes);
    Landing(reading, 100 * kSecond);
    const std::uint64_t before = reading.Watch().bytes;
    reading.Seek(100 * kSecond);
    EXPECT_EQ(reading.Watch().bytes, before);
    reading.Seek(101 * kSecond);
    const std::uint64_t search = reading.Watch().bytes - before;
    EXPECT_GT(search, 0u);
    EXPECT_LT(search, 800'000u);
}

TEST(MpegSeek, FirstPacketsComeWithATime)
{
    GTsBuilder film;
    for (unsigned i = 0; i < 3000; ++i) {
        film.Payload(kVideoPid, Pes(0xE0, 90'000 + i * kFrame, AvcVideo(1, i % 5 == 0), {.unbounded = true}));
        film.Payload(kVideoPid, Pes(0xE0, {}, GMpegBytes(400, 2)));
    }
    GMpegReading reading(film.bytes);
    for (const int second : {15, 40, 77, 111}) {
        reading.Seek(second * kSecond);
        const auto packet = reading.Next();
        ASSERT_TRUE(packet);
        EXPECT_NE(packet->payload.front(), 2);
        EXPECT_GT(packet->next.start, 0);
    }
    EXPECT_EQ(reading.ReadFrom(0).size(), 3000u);
}

// Nothing but stuffing behind a place, and no times at all: the search ends.
TEST(MpegSeek, EndsWhereThereAreNoTimes)
{
    GTsBuilder film = TransportFilm(500);
    for (int i = 0; i < 20'000; ++i)
        film.Packet(0x1FFF, false, {});
    film.Raw(TransportFilm(1, 90'000 + 5000 * kFrame).bytes);
    GMpegReading reading(film.bytes);
    EXPECT_EQ(reading.Handler().Duration(), 5000 * kPicture);
    const REFERENCE_TIME start = Landing(reading, 150 * kSecond);
    EXPECT_LE(start, 500 * kPicture);
    EXPECT_GE(start, 450 * kPicture);
}

TEST(MpegSeek, FollowsAWrappingClock)
{
    GMpegReading reading(TransportFilm(6000, (std::uint64_t{1} << 33) - 3000 * kFrame).bytes);
    for (const int second : {30, 119, 121, 200}) {
        const REFERENCE_TIME start = Landing(reading, second * kSecond);
        EXPECT_LE(start, (second - 10) * kSecond + kPicture);
        EXPECT_GE(start, (second - 14) * kSecond);
    }
}

TEST(MpegNavigation, PartsOfADvdAreOneTimeLine)
{
    constexpr unsigned kPictures = 500;
    GPsBuilder film;
    for (std::uint16_t part = 1; part <= 3; ++part) {
        const std::uint32_t first = 90'000u * part;
        for (unsigned i = 0; i < kPictures; i += 10) {
            film.Pack().Navigation(part, first, first + static_cast<std::uint32_t>(kPictures * kFrame));
            film.Raw(ProgramFilm(10, false, first + i * kFrame).bytes);
        }
    }
    GMpegReading reading(film.bytes);
    EXPECT_EQ(reading.Handler().Duration(), (3 * kPictures - 1) * kPicture);
    const auto pictures = OfStream(reading.ReadAll(), 0xE0);
    ASSERT_EQ(pictures.size(), 3 * kPictures);
    for (std::size_t i = 0; i < pictures.size(); ++i)
        ASSERT_EQ(pictures[i].next.start, static_cast<REFERENCE_TIME>(i) * kPicture);
    const REFERENCE_TIME start = Landing(reading, 45 * kSecond);
    EXPECT_LE(start, 35 * kSecond + kPicture);
    EXPECT_GE(start, 34 * kSecond);
}

}  // namespace
}  // namespace vex::test
