// Where seeks land: by the simple index, by the user index, and with neither.
#include <gtest/gtest.h>

#include "asf/asf_reading.h"

namespace vex::test {
namespace {

constexpr REFERENCE_TIME kFrame = 40 * kMillisecond;

// The number of the packet that a seek lands on; -1 behind the last one.
int Landed(GAsfReading& reading, REFERENCE_TIME target)
{
    EXPECT_EQ(reading.Seek(target), target);
    const auto first = reading.Next();
    return first ? first->payload[0] : -1;
}

TEST(AsfSimpleIndex, IsAskedForTheFirstEntryBehindTheTarget)
{
    GAsfTestFile film = AsfFilm(100, 10);
    film.behindData = SimpleIndex(10'000'000, {0, 1, 2, 3, 4, 5});  // entry 2 is 1 s behind the preroll
    GAsfReading reading(film.Bytes());
    reading.WaitForIndex();
    EXPECT_EQ(Landed(reading, 1'500 * kMillisecond), 3);
    EXPECT_EQ(Landed(reading, 2'000 * kMillisecond), 4) << "an entry at the target is not behind it";
    EXPECT_EQ(Landed(reading, 0), 0);
}

TEST(AsfSimpleIndex, ThatCannotAnswerLeavesItToTheUserIndex)
{
    GAsfTestFile film = AsfFilm(100, 11);
    const GAsfBytes empty = SimpleIndex(10'000'000, {});
    const std::pair<const char*, GAsfBytes> cases[] = {
        {"none", {}},
        {"no entry", empty},
        {"an interval of 0", SimpleIndex(0, {1, 1, 1, 1, 1})},
        {"beyond the file", SimpleIndex(10'000'000, {0, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 101})},
        {"too few entries", SimpleIndex(10'000'000, {1, 1})},
        {"cut off", GAsfBytes().Raw({empty.bytes.begin(), empty.bytes.end() - 1})},
        {"an impossible size", GAsfBytes().Object(GAsfId::SimpleIndex, GAsfBytes().Zeros(32), 3)},
    };
    for (const auto& [what, behind] : cases) {
        film.behindData = behind;
        GAsfReading reading(film.Bytes());
        reading.WaitForIndex();
        EXPECT_EQ(Landed(reading, 50 * kFrame), 44) << what;
        EXPECT_EQ(Landed(reading, 44 * kFrame), 44) << what;
        EXPECT_EQ(Landed(reading, 44 * kFrame - 1), 33) << what;
        EXPECT_EQ(Landed(reading, 99 * kFrame + 1), 99) << what;
    }
}

TEST(AsfSimpleIndex, OfTheReferenceStreamIsTheOneOfItsRankAmongVideoStreams)
{
    GAsfTestFile film = AsfFilm(100, 10);
    film.streams = {{.number = 3, .video = true}, {.number = 1}, {.number = 2, .video = true}};
    film.extension.Object(GAsfId::ExtendedStreamProperties, ExtendedStream(2, 9'000, 0));
    film.behindData = SimpleIndex(10'000'000, {7, 7, 7, 7, 7}).Object(GAsfId::Unknown, GAsfBytes().Zeros(3));
    film.behindData.Raw(SimpleIndex(10'000'000, {9, 9, 9, 9, 9}).bytes);
    for (const int rank : {0, 1}) {
        if (rank == 1)
            film.streams[0].number = 0;  // ahead of 2
        GAsfReading reading(film.Bytes());
        reading.WaitForIndex();
        EXPECT_EQ(Landed(reading, kSecond), rank == 0 ? 7 : 9);
    }
}

TEST(AsfSimpleIndex, IsNotTrustedBehindTheLastKeyFrame)
{
    GAsfTestFile film = AsfFilm(100, 80);
    film.behindData = SimpleIndex(10'000'000, {1, 1, 1, 1, 1, 1});
    GAsfReading reading(film.Bytes());
    reading.WaitForIndex();
    EXPECT_EQ(Landed(reading, 80 * kFrame), 1);
    EXPECT_EQ(Landed(reading, 80 * kFrame + 1), 80);
}

TEST(AsfUserIndex, OfSoundPassesTenPacketsBehindEachEntry)
{
    GAsfTestFile film = AsfFilm(35, 100);
    film.streams = {{.number = 1}};
    film.behindData = {};
    GAsfReading reading(film.Bytes());
    reading.WaitForIndex();
    for (const auto& [target, landed] : {std::pair(1, 0), {9, 0}, {10, 10}, {29, 20}, {34, 30}})
        EXPECT_EQ(Landed(reading, target * kFrame), landed);
    EXPECT_EQ(Landed(reading, 36 * kFrame + kSecond), -1) << "behind the duration";
}

TEST(AsfUserIndex, ThatFindsNothingSendsSeeksToTheEnd)
{
    GAsfTestFile film = AsfFilm(20, 5);
    film.packets = {};
    for (unsigned i = 0; i < 20; ++i)  // the scan takes packets with correction data alone
        film.packets.Raw(Packet({Whole(2, 1'000 + 40 * i, {1})}, 100, {.correction = false}).bytes);
    GAsfReading reading(film.Bytes());
    reading.WaitForIndex();
    EXPECT_EQ(Landed(reading, 10 * kFrame), -1);
    EXPECT_EQ(reading.ReadFrom(0).size(), 20u);
}

TEST(AsfUserIndex, PassesWhatIsNoPacketAndTimesThatGoBack)
{
    GAsfTestFile film = AsfFilm(40, 10);
    film.behindData = {};
    film.packets.bytes[2'000] = 0;            // the header of packet 20
    film.packets.bytes[3'000 + 14 + 12] = 0;  // the time of the key frame in packet 30, now 152 ms
    GAsfReading reading(film.Bytes());
    reading.WaitForIndex();
    EXPECT_EQ(Landed(reading, 39 * kFrame), 10);
}

TEST(AsfUserIndex, PassesWhatOneObjectFillsUnreadButNotMuchOfALie)
{
    for (const std::uint32_t lie : {0u, 1'990'000u, 0xFFFFFFFFu}) {  // what object 3 says of its size, of 2 MB of data
        GAsfTestFile film{.playDurationMs = 50'000, .packetSize = 1'000};
        for (std::uint32_t part = 0; part < 40 * 50; ++part) {
            const std::uint32_t object = part / 50;
            const std::vector data(950, static_cast<std::uint8_t>(object));
            GAsfTestPayload payload = Whole(2, 1'000 * (object + 1), data);
            payload.objectSize = lie != 0 && object == 3 ? lie : 50 * 950;
            payload.offset = part % 50 * 950;
            film.packets.Raw(Packet({payload}, 1'000).bytes);
        }
        GAsfReading reading(film.Bytes());
        reading.WaitForIndex();
        EXPECT_TRUE(lie != 0 || reading.Watch().bytes < film.packets.Size() / 2);
        EXPECT_EQ(Landed(reading, 2 * kSecond), 2);
        EXPECT_EQ(reading.Handler().UserIndex()->IndexedUpTo(), 39 * kSecond) << lie;
    }
}

TEST(AsfSeek, RightAfterOpenWaitsForTheScanUnlessAStopWaitsForTheSeek)
{
    const GWatchdog watchdog("a seek that waits for an index");
    GSourceWatch watch;
    watch.holdsNew = true;
    GAsfTestFile film = AsfFilm(100, 50);
    film.behindData = {};
    GAsfExReadHandler handler(std::make_unique<GWatchedSource>(OpenInMemory(film.Bytes()), watch),
                              {.indexWait = 2 * kHangBound});
    ASSERT_TRUE(handler.Open("memory").Ok());
    GNextPacket next;
    handler.Interrupt(true);
    EXPECT_EQ(handler.Seek(60 * kFrame, GSeekMode::Independent), 60 * kFrame);
    handler.Interrupt(false);
    EXPECT_EQ(handler.ReadPacket(next), GReadStatus::End) << "nothing is indexed";
    watch.holdsNew = false;
    EXPECT_EQ(handler.Seek(50 * kFrame, GSeekMode::Independent), 50 * kFrame);
    EXPECT_EQ(handler.ReadPacket(next), GReadStatus::Packet);
    EXPECT_EQ(next.start, 50 * kFrame);
}

TEST(AsfSeek, ReadsABoundedPartOfTheFile)
{
    GAsfReading reading(AsfFilm(50'000, 50).Bytes());
    reading.WaitForIndex();
    const std::uint64_t before = reading.Watch().bytes;
    for (int i = 1; i <= 10; ++i)
        Landed(reading, i * 4'000 * kFrame);
    EXPECT_LE(reading.Watch().bytes - before, 10u * (128u << 10));
}

TEST(AsfGrowth, TheIndexAndTheReaderFollowAFileThatIsStillWritten)
{
    const std::vector<std::uint8_t> whole = AsfFilm(100, 10).Bytes();
    GAsfReading reading({whole.begin(), whole.begin() + 5'000});
    reading.WaitForIndex();
    EXPECT_LT(reading.ReadAll().size(), 120u);
    reading.Append(std::span(whole).subspan(5'000));
    for (const GHangCheck hang("an index that does not grow");
         reading.Handler().UserIndex()->IndexedUpTo() < 90 * kFrame; hang.Check())
        std::this_thread::yield();
    EXPECT_EQ(Landed(reading, 91 * kFrame), 90);
    EXPECT_EQ(reading.ReadFrom(0).size(), 200u);
}

}  // namespace
}  // namespace vex::test
