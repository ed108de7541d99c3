// Which bytes a tag delivers, when, and what damage costs.
#include <gtest/gtest.h>

#include <tuple>

#include "flv/flv_reading.h"
#include "support/handler_trial.h"

namespace vex::test {
namespace {

// The last payload byte of every packet in order: the fill of the builder's payloads.
std::vector<int> Fills(const std::vector<GFlvReadPacket>& packets)
{
    std::vector<int> fills;
    for (const GFlvReadPacket& packet : packets)
        fills.push_back(packet.payload.empty() ? -1 : packet.payload.back());
    return fills;
}

// Mp3Frame 1 to `count`, 26 ms apart.
GFlvBuilder& AddSound(GFlvBuilder& file, std::uint8_t first, std::uint8_t count)
{
    for (std::uint8_t i = first; i < first + count; ++i)
        file.Audio(26u * i, Mp3Frame(i));
    return file;
}

TEST(FlvTimes, AreTheTagsIn32BitsWithTheCompositionTimeAdded)
{
    const std::tuple<std::uint32_t, std::int32_t, REFERENCE_TIME> cases[] = {
        {1'000, 40, 10'400'000}, {0x01123456, 0, 0x01123456LL * 10'000},  {0xFFFFFFFF, 0, 0xFFFFFFFFLL * 10'000},
        {0, -40, -400'000},      {0x01000000, -1, 0x00FFFFFFLL * 10'000}, {0, -0x800000, -0x800000LL * 10'000},
    };
    for (const auto& [timeMs, compositionMs, start] : cases) {
        GFlvBuilder file;
        file.Video(0, AvcConfiguration()).Video(timeMs, AvcPicture(true, 1, compositionMs));
        const auto packets = GFlvReading(file.bytes).ReadAll();
        ASSERT_EQ(packets.size(), 1u);
        EXPECT_EQ(packets[0].next.start, start);
        EXPECT_EQ(packets[0].next.stop, start + 1);
    }
}

TEST(FlvPayload, LacksTheCodecHeaderAndIsNeverEmpty)
{
    const struct {
        std::uint8_t type;
        GFlvBytes payload;
        GFlvBytes delivered;
        std::uint64_t damage = 0;
    } cases[] = {
        {kFlvAudio, {0xAF, 1, 2, 3}, {2, 3}},
        {kFlvAudio, {0xAF, 0, 0x12, 0x10, 0x56, 0xE5}, {}},
        {kFlvAudio, {0xAF}, {}, 1},
        {kFlvAudio, {0x2F}, {}},
        {kFlvAudio, {}, {}},
        {kFlvVideo, {0x24, 9, 1, 2}, {1, 2}},
        {kFlvVideo, {0x25, 9, 0, 0, 7, 1, 2}, {1, 2}},
        {kFlvVideo, {0x25, 9, 0, 0}, {}, 1},
        {kFlvVideo, {0x27, 1, 0, 0, 0, 5}, {5}},
        {kFlvVideo, {0x27, 1, 0, 0}, {}, 1},
        {kFlvVideo, {0x17, 2, 0, 0, 0}, {}},  // end of sequence
        {kFlvVideo, {0x17, 0, 0, 0, 0, 1, 2, 3}, {}},
        {kFlvVideo, {0x52, 0}, {}},  // a command to the player
        {kFlvScript, {2, 0, 1}, {}},
        {15, {2, 0, 1}, {}, 1},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(testing::PrintToString(one.payload));
        GFlvBuilder file;
        file.Audio(0, Mp3Frame(1)).Video(0, SorensonPicture(true, 2)).Tag(one.type, 7, one.payload);
        file.Audio(9, Mp3Frame(3));
        GFlvReading reading(file.bytes);
        auto packets = reading.ReadAll();
        ASSERT_EQ(packets.size(), one.delivered.empty() ? 3u : 4u);
        if (!one.delivered.empty()) {
            EXPECT_EQ(packets[2].payload, one.delivered);
        }
        EXPECT_EQ(packets.back().next.start, 90'000);
        EXPECT_EQ(reading.Damage().count, one.damage);
    }
}

TEST(FlvPayload, SyncPointsAreAllAudioAndVideoByTheLowBitsOfTheFrameType)
{
    GFlvBuilder file;
    file.Video(0, SorensonPicture(true, 1)).Audio(0, Mp3Frame(1));
    for (const int first : {0x12, 0x22, 0x32, 0x42, 0x92})
        file.Video(0, {static_cast<std::uint8_t>(first), 1, 2});
    EXPECT_EQ(KeyFlags(GFlvReading(file.bytes).ReadAll()), (std::vector{true, true, true, false, false, false, true}));
}

TEST(FlvUnits, FilesOfCarelessWritersAreNotDamaged)
{
    const std::pair<GFlvLies, std::size_t> cases[] = {
        {{.previousTagSize = 0}, 0},
        {{.previousTagSize = 11}, 0},
        {{.streamId = 7}, 0},
        {{}, 4},  // the last size is missing
        {{}, 3},  // a part of it
    };
    for (const auto& [lies, cut] : cases) {
        GFlvBuilder file;
        for (std::uint8_t i = 1; i <= 4; ++i)
            file.Tag(kFlvAudio, 26u * i, Mp3Frame(i), lies);
        GFlvReading reading(file.Cut(cut));
        EXPECT_EQ(Fills(reading.ReadAll()), (std::vector{1, 2, 3, 4}));
        EXPECT_EQ(reading.Damage().count, 0u);
        EXPECT_EQ(reading.Handler().Duration(), 104 * kMillisecond);
    }
}

TEST(FlvDamage, CostsTheTagItIsInAndNoOther)
{
    constexpr std::ptrdiff_t kSecondUnit = 9 + 26;  // 15 bytes of unit, 11 of payload
    const GFlvBytes junk = Payload({}, 1000, 0x42);
    GFlvBuilder whole;
    GFlvBuilder behindSize;
    AddSound(behindSize, 1, 2).Raw(junk);
    GFlvBytes beforeSize = AddSound(whole, 1, 4).bytes;
    GFlvBytes unknown = beforeSize;
    beforeSize.insert(beforeSize.begin() + kSecondUnit, junk.begin(), junk.end());
    unknown[kSecondUnit + 4] = 0x77;
    std::vector<std::pair<GFlvBytes, std::vector<int>>> cases{
        {whole.Cut(4 + 6), {1, 2, 3, 4}},
        {AddSound(behindSize, 3, 2).bytes, {1, 2, 3, 4}},
        {beforeSize, {1, 2, 3, 4}},
        {unknown, {1, 3, 4}},
    };
    for (const std::uint32_t lie : {0u, 3u, 12u, 30u, 0xFFFFFFu}) {
        GFlvBuilder file;
        AddSound(file, 1, 1).Tag(kFlvAudio, 52, Mp3Frame(2), {.dataSize = lie});
        cases.emplace_back(AddSound(file, 3, 2).bytes, std::vector{1, 2, 3, 4});
    }
    for (std::size_t i = 0; i < cases.size(); ++i) {
        GFlvReading reading(cases[i].first);
        const auto packets = reading.ReadAll();
        EXPECT_EQ(Fills(packets), cases[i].second) << i;
        EXPECT_EQ(packets.back().payload.size(), i == 0 ? 4u : 10u) << i;
        EXPECT_EQ(packets[1].payload.size(), 10u) << i;
        EXPECT_EQ(reading.Damage().count, 1u) << i << ": " << reading.Damage().first;
    }
}

TEST(FlvDamage, BehindAHoleOfFiveMegabytesReadingEnds)
{
    for (const std::size_t hole : {0x4FFFF0u, 0x500010u}) {
        GFlvBuilder file;
        AddSound(file, 1, 2).Tag(kFlvAudio, 78, Mp3Frame(3), {.dataSize = 99});
        file.Raw(Payload({}, hole, 0x42));
        const auto packets = GFlvReading(AddSound(file, 4, 2).bytes).ReadAll();
        EXPECT_EQ(packets.size(), hole < 0x500000 ? 5u : 2u);
    }
}

TEST(FlvDamage, ACutOffTagDoesNotTakeInWhatIsAppendedWhileItIsSearched)
{
    GFlvBuilder file;
    GFlvReading reading(AddSound(file, 1, 2).Cut(4 + 6));
    ASSERT_EQ(reading.Next()->payload.size(), 10u);
    GNextPacket next;
    ASSERT_EQ(reading.Handler().ReadPacket(next), GReadStatus::Again);
    reading.Append(Payload({}, 1000, 0x42));
    EXPECT_EQ(reading.Next()->payload.size(), 4u);
}

// Whatever is broken, a file ends, and nothing in it is made more of than it is.
std::size_t Survive(const GFlvBytes& bytes)
{
    GFlvReading reading(bytes);
    const auto use = TryHandler(reading, {.targets = {reading.Handler().Duration() - 1, 100 * kMillisecond, 1}});
    EXPECT_LE(use.packets, bytes.size() / kFlvUnitSize + 1);
    return use.packets;
}

TEST(FlvBroken, APrefixLosesOnlyItsEndAndALyingByteOnlyItsTags)
{
    const GFlvBytes film = Film(5, 3).bytes;
    EXPECT_EQ(TryPrefixes(film, Survive), 10u);
    for (std::size_t i = 0; i < film.size(); ++i) {
        GFlvBytes broken = film;
        for (const std::uint8_t lie : GFlvBytes{0x00, 0x01, 0x09, 0x7F, 0xFF}) {
            broken[i] = lie;
            EXPECT_GE(Survive(broken), i > 200 ? 8u : 0u) << int{lie} << " at " << i;
        }
    }
}

}  // namespace
}  // namespace vex::test
