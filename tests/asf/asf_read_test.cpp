// Which objects the packets give, when, and what damage costs.
#include <gtest/gtest.h>

#include <numeric>

#include "asf/asf_reading.h"

namespace vex::test {
namespace {

using GData = std::vector<std::uint8_t>;

GAsfReading Reading(const GAsfBytes& packets, GAsfTestFile file = {})
{
    file.packets = packets;
    return GAsfReading(file.Bytes());
}

GAsfTestPayload Part(std::uint32_t timeMs, std::uint32_t objectSize, std::uint32_t offset, GData data)
{
    GAsfTestPayload part = Whole(2, timeMs, std::move(data));
    part.objectSize = objectSize;
    part.offset = offset;
    return part;
}

TEST(AsfPacket, EveryCombinationOfLengthTypesGivesTheSameObjects)
{
    for (unsigned types = 0; types < 4 * 4 * 4 * 4; ++types) {
        for (const bool correction : {true, false}) {
            GAsfPacketShape shape{.correction = correction, .packetType = types & 3, .sequenceType = types >> 2 & 3};
            shape.objectType = types >> 4 & 3;
            shape.payloadType = types >> 6 == 0 ? 1 : types >> 6;
            shape.paddingType = types % 3 + 1;
            shape.replicatedType = types % 3 + 1;
            shape.offsetType = types & 3;  // none reads as 0
            GAsfPacketShape single = shape;
            single.multiple = false;
            GAsfBytes packets = Packet({Whole(1, 1'000, {1, 2}), Whole(2, 1'040, {3})}, 100, shape);
            packets.Raw(Packet({Whole(1, 1'050, GData(40, 9))}, 100, single).bytes);
            auto reading = Reading(packets);
            const auto read = reading.ReadAll();
            ASSERT_EQ(Marks(read), (std::vector{1, 3, 9})) << types;
            EXPECT_EQ(read[2].payload, GData(40, 9)) << types;
            EXPECT_EQ(Starts(read), (std::vector<REFERENCE_TIME>{0, 400'000, 500'000}));
            EXPECT_EQ(reading.Damage().count, 0u) << reading.Damage().first;
        }
    }
}

TEST(AsfPacket, OneShorterThanThePacketSizeIsFollowedByFiller)
{
    GAsfBytes packets = Packet({Whole(1, 1'000, {1})}, 60, {.packetType = 2}).Zeros(40);
    packets.Raw(Packet({Whole(1, 1'020, {2})}).bytes);
    EXPECT_EQ(Marks(Reading(packets).ReadAll()), (std::vector{1, 2}));
}

TEST(AsfPacket, OfFourMegabytesIsReadInSeveralCalls)
{
    constexpr std::uint32_t kSize = (4u << 20) + 100;
    auto reading = Reading(Packet({Whole(2, 1'000, GData(4u << 20, 7))}, kSize, {.multiple = false, .paddingType = 1}),
                           {.packetSize = kSize});
    EXPECT_EQ(Marks(reading.ReadAll()), (std::vector{7}));
    EXPECT_GE(reading.Calls(), 4u) << "a command is heard between them";
}

TEST(AsfTimes, CountFromThePrerollWithTheStreamsOffsetAndNeverFallBelow0)
{
    GAsfTestFile file{.streams = {{.number = 1, .timeOffset = 70'000}, {.number = 2, .video = true}}};
    const auto packets = Packet({Whole(2, 400, {1}), Whole(1, 1'500, {2}), Whole(2, 1'500, {3}, false)});
    const auto read = Reading(packets, file).ReadAll();
    EXPECT_EQ(Starts(read), (std::vector<REFERENCE_TIME>{0, 5'070'000, 5'000'000}));
    EXPECT_EQ(KeyFlags(read), (std::vector{true, true, false}));
    EXPECT_EQ(GAsfReading(file.Bytes()).Handler().Duration(), 4 * kSecond);
    file.playDurationMs = 500;
    EXPECT_EQ(GAsfReading(file.Bytes()).Handler().Duration(), 0);
}

TEST(AsfCompressed, SubPayloadsAreObjectsADeltaApart)
{
    const GAsfTestPayload payload{
        .stream = 1, .timeMs = 1'100, .data = {1, 7, 0, 3, 8, 8, 8}, .replicated = 1, .deltaMs = 40};
    for (const bool multiple : {true, false}) {
        const auto read = Reading(Packet({payload}, 100, {.multiple = multiple})).ReadAll();
        EXPECT_EQ(Marks(read), (std::vector{7, 8}));
        EXPECT_EQ(Starts(read), (std::vector<REFERENCE_TIME>{1'000'000, 1'800'000})) << "the empty one counts";
    }
    GAsfTestPayload lie = payload;
    lie.data = {1, 7, 9, 3};
    auto reading = Reading(Packet({lie, Whole(2, 1'200, {4})}));
    EXPECT_EQ(Marks(reading.ReadAll()), (std::vector{7, 4}));
    EXPECT_EQ(reading.Damage().count, 1u);
}

TEST(AsfObjects, AreJoinedAcrossPacketsAmongOthers)
{
    GAsfBytes packets = Packet({Part(1'000, 6, 0, {1, 2}), Whole(1, 1'000, {9})});
    packets.Raw(Packet({{.stream = 2, .data = {3, 4}, .replicated = 0}, Whole(1, 1'020, {8})}).bytes);
    packets.Raw(Packet({Part(1'000, 6, 4, {5, 6}), Whole(2, 1'040, {7})}).bytes);
    auto reading = Reading(packets);
    const auto read = reading.ReadAll();
    EXPECT_EQ(Marks(read), (std::vector{9, 8, 1, 7}));
    EXPECT_EQ(read[2].payload, (GData{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(reading.Damage().count, 0u);
}

TEST(AsfObjects, ThatContradictTheOneInProgressAreDroppedOrReplaceIt)
{
    const GAsfTestPayload first = Part(1'100, 4, 0, {1, 1});
    const GAsfTestPayload rest = Part(1'100, 4, 2, {1, 1});
    const struct {
        const char* what;
        std::vector<GAsfTestPayload> payloads;
        std::vector<int> marks;
        std::uint64_t damage;
    } cases[] = {
        {"the object in progress is earlier", {first, Whole(2, 1'200, {2}), rest}, {2}, 0},
        {"the object in progress is later", {first, Whole(2, 1'000, {2}), rest}, {1}, 1},
        {"more bytes than the object has", {first, Part(1'100, 4, 2, {1, 1, 1}), rest}, {1}, 1},
        {"a payload that is larger than its object", {Part(1'100, 1, 0, {1, 1}), Whole(2, 1'200, {2})}, {2}, 1},
        {"a part twice", {first, first, rest}, {1}, 1},
        {"a part is missing", {first, Part(1'100, 9, 5, {1}), Whole(2, 1'200, {2})}, {2}, 1},
        {"a part beyond the object", {Part(1'100, 4, 9, {1}), Whole(2, 1'200, {2})}, {2}, 1},
        {"the head lies before the start", {rest, Whole(2, 1'200, {2})}, {2}, 0},
        {"nothing to continue", {{.stream = 2, .data = {3}, .replicated = 0}, Whole(2, 1'200, {2})}, {2}, 0},
        {"replicated data of 2 bytes", {{.stream = 2, .data = {3}, .replicated = 2}, Whole(2, 1'200, {2})}, {2}, 1},
        {"replicated data of 7 bytes", {{.stream = 2, .data = {3}, .replicated = 7}, Whole(2, 1'200, {2})}, {2}, 1},
        {"replicated data of 20 bytes",
         {{.stream = 2, .timeMs = 1'100, .objectSize = 1, .data = {3}, .replicated = 20}},
         {3},
         0},
        {"larger than the data", {Part(1'100, 500, 0, {1}), Whole(2, 1'200, {2})}, {2}, 1},
        {"behind the duration", {Whole(2, 6'001, {1}), Whole(2, 6'000, {2})}, {2}, 1},
        {"a stream that there is not", {Whole(5, 1'100, {1}), Whole(2, 1'200, {2})}, {2}, 0},
    };
    for (const auto& one : cases) {
        auto reading = Reading(Packet(one.payloads, 200), {.packetSize = 200});
        EXPECT_EQ(Marks(reading.ReadAll()), one.marks) << one.what;
        EXPECT_EQ(reading.Damage().count, one.damage) << one.what << ": " << reading.Damage().first;
    }
}

TEST(AsfSpread, IsUndoneRowByRowAndKeepsEveryByte)
{
    const auto ordered = [](GData spread, std::size_t size) {
        GData data(size);
        std::iota(data.begin(), data.end(), std::uint8_t{0});
        GAsfTestFile file{.streams = {{.number = 1, .spread = std::move(spread)}}};
        const auto read = Reading(Packet({Whole(1, 1'000, data)}), file).ReadAll();
        return read.size() == 1 ? read[0].payload : GData();
    };
    const auto length = [](std::uint8_t span, std::uint8_t packet, std::uint8_t chunk) {
        return GData{span, packet, 0, chunk, 0, 1, 0, 0};
    };
    EXPECT_EQ(ordered(length(3, 4, 2), 12), (GData{0, 1, 4, 5, 8, 9, 2, 3, 6, 7, 10, 11}));
    EXPECT_EQ(ordered(length(3, 4, 2), 9), (GData{0, 1, 4, 5, 8, 2, 3, 6, 7}));
    EXPECT_EQ(ordered(length(2, 4, 2), 10), (GData{0, 1, 4, 5, 2, 3, 6, 7, 8, 9}));
    for (const GData& same : {length(1, 4, 2), length(0, 4, 2), length(3, 4, 4), length(3, 0, 2), length(3, 4, 0),
                              length(3, 2, 4), GData{3, 4, 0, 2, 0, 1, 0}})
        EXPECT_EQ(ordered(same, 6), (GData{0, 1, 2, 3, 4, 5}));
}

TEST(AsfData, EndsWhereItsObjectSaysAndWithTheFileOfABroadcast)
{
    GAsfTestFile film = AsfFilm(4, 2);
    film.behindData = GAsfBytes().Raw(Packet({Whole(1, 1'100, {99})}).bytes);
    EXPECT_EQ(GAsfReading(film.Bytes()).ReadAll().size(), 8u);
    film.dataSize = 0;
    film.flags = 1;
    film.playDurationMs = 0;
    GAsfReading broadcast(film.Bytes());
    EXPECT_EQ(broadcast.ReadAll().size(), 9u);
    EXPECT_EQ(broadcast.Damage().count, 0u);
}

TEST(AsfData, OfStreamsThatNobodyWantsIsNotJoined)
{
    GAsfReading reading(AsfFilm(4, 2).Bytes());
    reading.Want({2});
    EXPECT_EQ(Marks(reading.ReadAll()), (std::vector{0, 1, 2, 3}));
}

TEST(AsfDamage, CostsThePacketItIsIn)
{
    const GAsfTestFile film = AsfFilm(12, 4);
    const struct {
        const char* what;
        std::ptrdiff_t offset;  // in the sixth packet
        std::ptrdiff_t removed;
        GData inserted;
        std::size_t least;  // objects left
    } cases[] = {
        {"opaque correction data", 0, 1, {0x92}, 22},         {"a correction type of 3", 1, 1, {3}, 22},
        {"a packet of noise", 0, 100, GData(100, 0xEE), 22},  {"two packets of noise", 0, 200, GData(200, 0xEE), 20},
        {"a payload beyond its packet", 30, 1, {0xFF}, 22},   {"63 payloads", 13, 1, {0xBF}, 23},
        {"bytes between packets", 0, 0, GData(37, 0xEE), 22}, {"bytes lost", 0, 30, {}, 18},
    };
    for (const auto& one : cases) {
        GData bytes = film.Bytes();
        const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(film.DataStart()) + 500 + one.offset;
        bytes.insert(bytes.erase(at, at + one.removed), one.inserted.begin(), one.inserted.end());
        GAsfReading reading(bytes);
        const auto read = reading.ReadAll();
        EXPECT_GE(read.size(), one.least) << one.what;
        EXPECT_GE(reading.Damage().count, 1u) << one.what;
    }
}

TEST(AsfDamage, OfEverySecondPacketCostsNoMoreButBehindThreePacketSizesReadingEnds)
{
    GAsfTestFile every = AsfFilm(20, 4);
    for (const int packet : {5, 7, 9, 11, 13, 15})
        std::fill_n(every.packets.bytes.begin() + 100 * packet, 100, std::uint8_t{0xEE});
    EXPECT_EQ(GAsfReading(every.Bytes()).ReadAll().size(), 28u);
    for (const std::size_t hole : {200u, 400u}) {
        GAsfTestFile film = AsfFilm(3, 4);
        film.packets.Raw(GData(hole, 0xEE)).Raw(AsfFilm(5, 4).packets.bytes);
        EXPECT_EQ(GAsfReading(film.Bytes()).ReadAll().size(), hole == 200 ? 16u : 6u);
    }
}

}  // namespace
}  // namespace vex::test
