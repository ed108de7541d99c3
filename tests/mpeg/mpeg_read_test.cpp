// Which bytes a stream delivers, at which times, and what damage costs.
#include <gtest/gtest.h>

#include <random>

#include "formats/mpeg/pes_assembler.h"
#include "mpeg/mpeg_reading.h"
#include "support/handler_trial.h"

namespace vex::test {

std::size_t Survive(const GMpegBytes& bytes)
{
    GMpegReading reading(bytes);
    const REFERENCE_TIME duration = reading.Handler().Duration();
    return TryHandler(reading, {.targets = {duration / 2, duration, 20 * kSecond}}).packets;
}

namespace {

constexpr REFERENCE_TIME kPicture = 400'000;  // 100 ns

GTsBuilder Start()
{
    GTsBuilder film;
    film.Packet(0x1FFF, false, {}).Packet(0x1FFF, false, {});
    return film.Payload(kVideoPid, Pes(0xE0, 9000, AvcVideo(1), {.unbounded = true}));
}

TEST(MpegFraming, DeliversPayloadsFromOneTimeToTheNext)
{
    const GMpegBytes large(30'000, 5);
    GTsBuilder film = Start();
    film.Payload(kVideoPid, Pes(0xE0, {}, {6, 6, 6}));                      // continues
    film.Payload(kVideoPid, Pes(0xE0, 12'600, large));                      // bounded, larger than a read buffer
    film.Payload(kVideoPid, Pes(0xE0, 16'200, large, {.length = 60'000}));  // incomplete: dropped
    film.Payload(kVideoPid,
                 Pes(0xE0, 19'800, {7, 7, 7, 9, 9}, {.length = 11}));         // what is beyond its length is not its
    film.Payload(kVideoPid, Pes(0xE0, 23'400, {8, 8}, {.unbounded = true}));  // ends with the file
    GMpegReading reading(film.bytes);
    const auto packets = reading.ReadAll();
    ASSERT_EQ(packets.size(), 4u);
    EXPECT_EQ(packets[0].payload, Join({AvcVideo(1), {6, 6, 6}}));
    EXPECT_EQ(packets[1].payload, large);
    EXPECT_EQ(packets[2].payload, (GMpegBytes{7, 7, 7}));
    EXPECT_EQ(packets[3].payload, (GMpegBytes{8, 8}));
    EXPECT_EQ(Starts(packets), (std::vector<REFERENCE_TIME>{0, kPicture, 3 * kPicture, 4 * kPicture}));
    EXPECT_EQ(packets[3].next.stop, packets[3].next.start + 1);
    EXPECT_EQ(reading.Damage().count, 1u) << reading.Damage().first;
}

TEST(MpegFraming, DropsABoundedPacketThatTheFileCutsOff)
{
    GTsBuilder film = Start();
    film.Payload(kVideoPid, Pes(0xE0, 12'600, GMpegBytes(400, 2)))
        .Payload(kVideoPid, Pes(0xE0, 16'200, GMpegBytes(400, 3)));
    film.bytes.erase(film.bytes.end() - 188, film.bytes.end());
    GMpegReading reading(film.bytes);
    EXPECT_EQ(Marks(reading.ReadAll()), (std::vector{0, 2}));
    EXPECT_EQ(reading.Damage().count, 1u);
}

TEST(MpegFraming, SkipsPacketsThatAreMarkedBadOrScrambled)
{
    GTsBuilder film = Start();
    for (const auto flags : std::initializer_list<std::uint8_t>{0x80, 0x08, 0x0C})
        film.Packet(kVideoPid, true, Pes(0xE0, 12'600, {2}), flags);
    film.Packet(kVideoPid, true, Pes(0xE0, 16'200, {3}));
    GMpegReading reading(film.bytes);
    EXPECT_EQ(Marks(reading.ReadAll()), (std::vector{0, 3}));
    EXPECT_EQ(reading.Damage().count, 3u);
}

TEST(MpegFraming, TakesAdaptationFieldsOfEveryLength)
{
    for (std::size_t size = 1; size <= 170; ++size) {
        GTsBuilder film = Start();
        film.Packet(kVideoPid, true, Pes(0xE0, 12'600, GMpegBytes(size, 2)));
        const auto packets = GMpegReading(film.bytes).ReadAll();
        ASSERT_EQ(packets.size(), 2u) << size;
        EXPECT_EQ(packets[1].payload, GMpegBytes(size, 2));
    }
    for (unsigned length = 0; length < 256; ++length) {
        GTsBuilder film = Start();
        film.Packet(kVideoPid, true, Pes(0xE0, 12'600, GMpegBytes(100, 2)));
        film.bytes[film.bytes.size() - 184] = static_cast<std::uint8_t>(length);
        Survive(film.bytes);
    }
}

TEST(MpegFraming, SyncPointsAreHeadersOfVideoAndAllSound)
{
    EXPECT_EQ(KeyFlags(OfStream(GMpegReading(TransportFilm(7).bytes).ReadAll(), kVideoPid)),
              (std::vector{true, false, false, false, false, true, false}));
    const auto packets = GMpegReading(ProgramFilm(7).bytes).ReadAll();
    EXPECT_EQ(KeyFlags(OfStream(packets, 0xE0)), (std::vector{true, false, false, false, false, true, false}));
    EXPECT_EQ(KeyFlags(OfStream(packets, kPrivateAc3)), std::vector(7, true));
}

TEST(MpegFraming, AProgramStreamLosesTheHeadersOfItsSubStreams)
{
    for (const bool mpeg1 : {false, true}) {
        GPsBuilder film{.bytes = {}, .mpeg1 = mpeg1};
        film.Pack(mpeg1 ? 0 : 5)
            .Add(0xE0, 900, MpegVideo(1), {.stuffing = 4})
            .Add(0xBD, 900, SubStream(0x80, Ac3Frame(1)));
        film.Pack().Add(0xBD, {}, SubStream(0x80, {2, 2})).Add(0xBD, 4500, SubStream(0x80, {3}));
        film.Raw({0, 0, 0, 0, 0, 0, 0}).Pack().Add(0xE0, 4500, MpegVideo(2)).Raw({0, 0, 1, 0xB9});
        GMpegReading reading(film.bytes);
        const auto packets = reading.ReadAll();
        const auto sound = OfStream(packets, kPrivateAc3);
        ASSERT_EQ(sound.size(), 2u);
        EXPECT_EQ(sound[0].payload, Join({Ac3Frame(1), {2, 2}}));
        EXPECT_EQ(sound[1].payload, GMpegBytes{3});
        EXPECT_EQ(OfStream(packets, 0xE0).at(1).payload, MpegVideo(2));
        EXPECT_EQ(reading.Damage().count, 0u) << reading.Damage().first;
    }
}

TEST(MpegFraming, AUnitThatNoPacketCanHoldIsDeliveredInParts)
{
    GDamageLog damage;
    GPesAssembler assembler(GPesSyntax::Mpeg2, 0, damage, 1000);
    assembler.Reset(false);
    std::vector<GPesUnit> units(3);
    for (unsigned i = 0; i < 12; ++i) {
        assembler.Push(true, Pes(0xE0, i == 0 ? std::optional<std::uint64_t>(77) : std::nullopt, GMpegBytes(300, 1)),
                       i);
        if (assembler.Ready())
            units[i / 6].Swap(assembler.Take());
    }
    assembler.End(99);
    ASSERT_TRUE(assembler.Ready());
    units[2].Swap(assembler.Take());
    for (const GPesUnit& unit : units) {
        EXPECT_LE(unit.data.Size(), 1000u);
        EXPECT_EQ(unit.pts, 77u);
    }
}

TEST(MpegTimes, CountFromTheSmallestTimeAndUnwrap)
{
    constexpr std::uint64_t kLast = (std::uint64_t{1} << 33) - 1;
    const struct {
        std::vector<std::uint64_t> pts;
        std::vector<REFERENCE_TIME> starts;
    } cases[] = {
        {{9000, 16'200, 12'600}, {0, 800'000, 400'000}},
        {{16'200, 9000, 12'600}, {800'000, 0, 400'000}},                              // reordered at the start
        {{0, 3600, 7200}, {0, 400'000, 800'000}},                                     // 0 is a time
        {{kLast - 8999, 0, kLast - 3599, 3600}, {0, 1'000'000, 600'000, 1'400'000}},  // wraps, and reordered there
        {{2700, kLast - 4499, kLast - 899, 6300}, {800'000, 0, 400'000, 1'200'000}},  // reordered around the wrap
        {{5'000'000'000, 9000, 12'600}, {0, 398'882'621'333, 398'883'021'333}},       // a fall of more than 2^32
        {{9000, 5'000'000'000, 12'600}, {0, 555'554'555'555, 954'437'576'888}},       // a rise as large is none
    };
    for (const auto& one : cases) {
        GTsBuilder film;
        for (const std::uint64_t pts : one.pts)
            film.Payload(kVideoPid, Pes(0xE0, pts, AvcVideo(1), {.unbounded = true}));
        const auto starts = Starts(GMpegReading(film.bytes).ReadAll());
        ASSERT_EQ(starts.size(), one.starts.size());
        for (std::size_t i = 0; i < starts.size(); ++i)
            EXPECT_NEAR(static_cast<double>(starts[i]), static_cast<double>(one.starts[i]), 111.2)
                << one.pts[0] << " " << i;
    }
}

TEST(MpegTimes, AJoinedRecordingGoesOn)
{
    // The second part starts earlier, behind what opening looks at.
    const GTsBuilder first = TransportFilm(20'000, 900'000'000);
    GTsBuilder film = first;
    film.Raw(TransportFilm(10, 90'000).bytes);
    GMpegReading reading(film.bytes);
    const auto packets = OfStream(reading.ReadAll(), kAudioPid);
    ASSERT_EQ(packets.size(), 20'010u);
    EXPECT_EQ(packets[19'999].next.start, 19'999 * kPicture);
    EXPECT_EQ(packets[20'009].next.start, 0);
    EXPECT_EQ(reading.Damage().count, 0u);
}

TEST(MpegTimes, DataBeforeTheFirstTimeIsDeliveredAtTheStartAlone)
{
    GTsBuilder film;
    film.Payload(kVideoPid, Pes(0xE0, {}, AvcVideo(9), {.unbounded = true})).Raw(TransportFilm(3000).bytes);
    GMpegReading reading(film.bytes);
    auto packets = OfStream(reading.ReadAll(), kVideoPid);
    ASSERT_EQ(packets.size(), 3001u);
    EXPECT_EQ(packets[0].payload, AvcVideo(9));
    EXPECT_EQ(packets[0].next.start, 0);
}

TEST(MpegDamage, CostsWhatItHitsAndNothingElse)
{
    const GTsBuilder film = TransportFilm(40);
    for (const std::size_t junk : {1u, 47u, 188u, 1000u}) {
        GMpegBytes bytes = film.bytes;
        const std::ptrdiff_t at = 188 * 50;
        bytes.insert(bytes.begin() + at, junk, 0x47 ^ 0xFF);
        GMpegReading reading(bytes);
        EXPECT_EQ(reading.ReadAll().size(), 80u) << junk;
        EXPECT_EQ(reading.Damage().count, 1u) << junk;
    }
    for (const bool mpeg1 : {false, true}) {
        const GPsBuilder first = ProgramFilm(20, mpeg1);
        GPsBuilder whole = first;
        whole.Raw(GMpegBytes(777, 0x55)).Raw(ProgramFilm(20, mpeg1, 90'000 + 20 * kFrame).bytes);
        GMpegReading reading(whole.bytes);
        EXPECT_EQ(reading.ReadAll().size(), 80u);
        EXPECT_EQ(reading.Damage().count, 1u);
    }
}

TEST(MpegDamage, ALengthThatLiesCostsAPacketOrTwo)
{
    for (const auto lie : std::initializer_list<std::uint16_t>{0, 1, 5, 8, 50, 3000, 65'535}) {
        GPsBuilder film = ProgramFilm(20);
        film.Pack().Add(0xE0, 90'000 + 20 * kFrame, MpegVideo(21), {.length = lie});
        film.Raw(ProgramFilm(60, false, 90'000 + 21 * kFrame).bytes);
        GMpegReading reading(film.bytes);
        EXPECT_GE(reading.ReadAll().size(), 90u) << lie;
    }
}

TEST(MpegBroken, EveryPrefixAndEveryByteMayLie)
{
    const GMpegBytes files[] = {TransportFilm(4).bytes, TransportFilm(3, 90'000, 192).bytes, ProgramFilm(2).bytes,
                                ProgramFilm(2, true).bytes};
    for (const GMpegBytes& file : files) {
        const std::size_t whole = Survive(file);
        for (std::size_t size = 0; size < file.size(); size += size < 1200 ? 1 : 7)
            EXPECT_LE(Survive(First(file, size)), whole) << size;
        for (std::size_t i = 0; i < file.size(); i += i < 1200 ? 1 : 5) {
            for (const int lie : {0x00, 0x47, 0xFF}) {
                GMpegBytes broken = file;
                broken[i] = static_cast<std::uint8_t>(lie);
                EXPECT_LE(Survive(broken), whole + 2) << lie << " at " << i;
            }
        }
    }
}

TEST(MpegBroken, RandomPacketsLeadNowhere)
{
    std::mt19937 random(1);
    for (int file = 0; file < 20; ++file) {
        GTsBuilder film = TransportFilm(3);
        for (int i = 0; i < 400; ++i) {
            GMpegBytes packet(188);
            for (std::uint8_t& byte : packet)
                byte = static_cast<std::uint8_t>(random());
            packet[0] = 0x47;
            if (i % 3 == 0)
                packet[1] = 0x41;
            if (i % 3 == 0)
                packet[2] = static_cast<std::uint8_t>(i & 1);
            film.Raw(packet);
        }
        Survive(film.bytes);
    }
}

TEST(MpegDamage, WhatCannotBeReadIsTheEndOfTheFile)
{
    GMpegReading reading(TransportFilm(4000).bytes);
    reading.Watch().failFrom = 400'000;
    EXPECT_GT(reading.ReadAll().size(), 500u);
    reading.Watch().failFrom = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(reading.ReadFrom(0).size(), 8000u);
}

}  // namespace
}  // namespace vex::test
