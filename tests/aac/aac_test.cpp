#include <gtest/gtest.h>

#include <tuple>

#include "aac/aac_reading.h"
#include "media/audio_types.h"
#include "support/audio_frames.h"

namespace vex::test {
namespace {

constexpr std::size_t kSize = 107;  // bytes of the usual frame

TEST(AacType, CarriesTheConfigurationOfTheFirstFrame)
{
    const std::tuple<GAdtsTestFrame, WORD, DWORD, GAudioBytes> rows[]{
        {GAdtsTestFrame{}, 2, 44100, {0x12, 0x10}},
        {GAdtsTestFrame{.channels = 7}, 2, 44100, {0x12, 0x10}},
        {GAdtsTestFrame{.channels = 6, .crc = true}, 6, 44100, {0x12, 0x30}},
        {GAdtsTestFrame{.channels = 0}, 0, 44100, {0x12, 0x00}},
        {GAdtsTestFrame{.profile = 0, .rateIndex = 0, .channels = 1}, 1, 96000, {0x08, 0x08}},
        {GAdtsTestFrame{.profile = 3, .rateIndex = 11}, 2, 8000, {0x25, 0x90}},
    };
    for (const auto& [frame, channels, rate, config] : rows) {
        GAacReading reading(Repeat(AdtsFrame(frame), 3));
        ASSERT_TRUE(reading.IsOpen());
        const WAVEFORMATEX format{0xFF, channels, rate, static_cast<DWORD>(kSize * rate >> 11), kSize, 0, 2};
        EXPECT_TRUE(reading.Streams()[0].mediaTypes[0] == MakeWaveType(format, config)) << rate;
        const auto packets = reading.ReadAll();
        const auto length = static_cast<REFERENCE_TIME>(10'240'000'000. / rate);
        ASSERT_EQ(Starts(packets), (std::vector<REFERENCE_TIME>{0, length, 2 * length}));
        EXPECT_EQ(packets[2].payload, GAudioBytes(100, 1)) << "without the header, with the CRC";
    }
}

TEST(AacFiles, PlayTheFramesThatAnotherOneOrTheEndFollows)
{
    const GAudioBytes music = AdtsFrames(3);
    GAudioBytes falseBlock = Text("", 25);  // a block begins with a sync that is no header
    falseBlock[10] = falseBlock[11] = 0xFF;
    GAudioBytes adif = Text("ADIF", 2000);
    std::ranges::copy(First(AdtsFrame({.length = 300}), 7), adif.begin() + 400);  // looks like a header
    const char* const none = "the file holds no AAC in ADTS frames";
    const std::pair<GAudioBytes, const char*> files[]{
        {Join({Id3v2(1), Id3v2(1000), music}), "1 2 3 "},
        {Join({Id3v2(20, 5'000'000), music}), "1 2 3 "},  // leads beyond the file: 30 bytes of junk
        {Join({Text("ADIF", 20), music}), "1 2 3 "},
        {Join({Text("junk", 15), music}), "1 2 3 "},
        {Join({Id3v2(7), Text("", 131'000), music}), "1 2 3 "},
        {Join({falseBlock, music}), "1 2 3 "},
        {AdtsFrame(), "1 "},
        {Join({music, Id3v1()}), "1 2 3 "},
        {Join({music, Ape(50, 82)}), "1 2 3 "},
        {First(music, 3 * kSize - 1), "1 2 -106"},
        {First(AdtsFrames(4), 3 * kSize + 3), "1 2 3 -3"},  // too little of a header to be checked
        {Join({music, Text("junk", 50), AdtsFrames(2)}), "1 2 1 2 -157"},
        {Join({AdtsFrames(2), AdtsFrame({.length = 5}), AdtsFrames(2)}), "1 1 2 -214"},
        {Join({AdtsFrames(2), Id3v2(40), AdtsFrames(2)}), "1 1 2 -157"},
        {adif, "AAC behind an ADIF header is not supported; only ADTS frames are"},
        {Repeat(MpegFrame(1), 4), none},
        {Join({Text("", 140'001), AdtsFrame()}), none},  // too far away
        {Repeat(AdtsFrame({.rateIndex = 12}), 40), none},
        {Repeat(AdtsFrame({.length = 6}), 40), none},  // shorter than its header
        {{}, none},
    };
    for (const auto& [file, played] : files)
        EXPECT_EQ(Played<GAacReading>(file), played);
    GAacReading bogus(GAudioBytes(300'000, 0xFF));
    EXPECT_FALSE(bogus.IsOpen());
    EXPECT_LE(bogus.Watch().bytes, 3u * 300'000);
}

TEST(AacDuration, CountsEveryHeaderOfTheFile)
{
    const std::pair<GAudioBytes, int> rows[]{
        {Join({AdtsFrames(10), Text("junk", 1000), AdtsFrames(10)}), 20},
        {Join({AdtsFrames(10), Id3v1()}), 10},
        {First(AdtsFrames(10), 10 * kSize - 50), 10},  // one that is cut off is counted
    };
    for (const auto& [file, frames] : rows)
        EXPECT_EQ(GAacReading(file).Handler().Duration(), static_cast<REFERENCE_TIME>(frames / (44100 / 1024.) * 1e7));
}

TEST(AacSeek, LandsInProportionAndOnTheNextFrame)
{
    GAacReading reading(Join({Id3v2(3), AdtsFrames(100), Id3v1()}));
    const REFERENCE_TIME duration = reading.Handler().Duration();
    const std::pair<REFERENCE_TIME, int> rows[]{
        {0, 1}, {duration / 2, 52}, {duration / 4, 27}, {1, 1}, {duration * 97 / 100, 100}};
    for (const auto& [time, mark] : rows) {
        ASSERT_EQ(reading.Seek(time), time);
        const auto next = reading.Next();
        ASSERT_TRUE(next);
        EXPECT_EQ(next->payload[0], mark);
        EXPECT_EQ(next->next.start, time);
    }
    EXPECT_TRUE(reading.ReadFrom(duration).empty());
    EXPECT_EQ(reading.Damage().count, 0u);
}

TEST(AacHostile, NeitherAPrefixNorAnyByteNorAnInterruptDoesHarm)
{
    EXPECT_NO_THROW(TryDamage<GAacReading>(Join({Id3v2(5), AdtsFrames(3), Ape(10, 42), Id3v1()})));
    GAacReading reading(AdtsFrames(200));
    reading.Handler().Interrupt(true);
    EXPECT_EQ(reading.Handler().Open("memory").Error().kind, GErrorKind::Aborted);
}

}  // namespace
}  // namespace vex::test
