#include "aac/aac_reading.h"

#include <gtest/gtest.h>

#include <string>

#include "support/audio_frames.h"
#include "support/handler_trial.h"

namespace vex::test {
namespace {

using GReading = GAacReading;

constexpr std::size_t kSize = 107;  // bytes of the usual frame

GAudioBytes Numbered(int count)
{
    GAudioBytes file;
    for (int i = 1; i <= count; ++i)
        file = Joined({file, AdtsFrame({.mark = static_cast<std::uint8_t>(i)})});
    return file;
}

TEST(AacType, CarriesTheConfigurationOfTheFirstFrame)
{
    struct {
        GAdtsTestFrame frame;
        WORD channels;
        DWORD rate;
        std::array<std::uint8_t, 2> config;
    } const rows[]{
        {{}, 2, 44100, {0x12, 0x10}},
        {{.channels = 7}, 2, 44100, {0x12, 0x10}},
        {{.channels = 6}, 6, 44100, {0x12, 0x30}},
        {{.channels = 0}, 0, 44100, {0x12, 0x00}},
        {{.profile = 0, .rateIndex = 0, .channels = 1}, 1, 96000, {0x08, 0x08}},
        {{.profile = 3, .rateIndex = 11}, 2, 8000, {0x25, 0x90}},
        {{.crc = true}, 2, 44100, {0x12, 0x10}},
    };
    for (const auto& row : rows) {
        GReading reading(Times(3, AdtsFrame(row.frame)));
        ASSERT_TRUE(reading.IsOpen());
        const std::span<const BYTE> block = reading.Streams()[0].mediaTypes[0].Format();
        ASSERT_EQ(block.size(), 20u);
        WAVEFORMATEX format{};
        std::memcpy(&format, block.data(), sizeof format);
        EXPECT_EQ(format.wFormatTag, 0xFF);
        EXPECT_EQ(format.nChannels, row.channels);
        EXPECT_EQ(format.nSamplesPerSec, row.rate);
        EXPECT_EQ(format.nAvgBytesPerSec, kSize * row.rate >> 11);
        EXPECT_EQ(format.nBlockAlign, kSize);
        EXPECT_EQ(format.wBitsPerSample, 0);
        EXPECT_EQ(format.cbSize, 2);
        EXPECT_EQ(block[18], row.config[0]);
        EXPECT_EQ(block[19], row.config[1]);
        const auto packets = reading.ReadAll();
        ASSERT_EQ(packets.size(), 3u);
        EXPECT_EQ(packets[2].payload, GAudioBytes(100, 1)) << "without the header, with the CRC";
        const auto length = static_cast<REFERENCE_TIME>(10'240'000'000. / row.rate);
        EXPECT_EQ(Starts(packets), (std::vector<REFERENCE_TIME>{0, length, 2 * length}));
    }
}

TEST(AacOpen, FindsTheFirstFrameAtABlockOrByTwoHeadersInARow)
{
    const GAudioBytes music = Numbered(3);
    GAudioBytes falseBlock = Text("", 25);  // a block begins with a sync that is no header
    falseBlock[10] = falseBlock[11] = 0xFF;
    struct {
        GAudioBytes file;
        std::vector<int> marks;
    } const rows[]{
        {Joined({Id3v2(1000), music}), {1, 2, 3}},
        {Joined({Id3v2(1), Id3v2(33), music}), {1, 2, 3}},
        {Joined({Id3v2(20, 5'000'000), music}), {1, 2, 3}},  // leads beyond the file: 30 bytes of junk
        {Joined({Text("ADIF", 20), music}), {1, 2, 3}},
        {Joined({Text("junk", 15), music}), {1, 2, 3}},
        {Joined({Id3v2(7), Text("", 131'000), music}), {1, 2, 3}},
        {Joined({falseBlock, music}), {1, 2, 3}},
        {AdtsFrame(), {1}},
    };
    for (const auto& row : rows) {
        GReading reading(row.file);
        EXPECT_EQ(Marks(reading.ReadAll()), row.marks) << &row - rows;
        EXPECT_EQ(reading.Damage().count, 0u) << &row - rows;
    }
}

TEST(AacOpen, WhatHoldsNoAdtsFramesIsRefusedInWords)
{
    GAudioBytes adif = Text("ADIF", 2000);
    std::ranges::copy(First(AdtsFrame({.length = 300}), 7), adif.begin() + 400);  // looks like a header
    struct {
        GAudioBytes file;
        const char* word;
    } const rows[]{
        {adif, "ADIF"},
        {Times(4, MpegFrame(1)), "no AAC"},
        {Joined({Text("", 140'001), Numbered(1)}), "no AAC"},  // too far away
        {Times(40, AdtsFrame({.rateIndex = 12})), "no AAC"},
        {Times(40, AdtsFrame({.length = 6})), "no AAC"},  // shorter than its header
        {{}, "no AAC"},
        {GAudioBytes(300'000, 0xFF), "no AAC"},
    };
    for (const auto& row : rows) {
        GReading reading(row.file);
        ASSERT_FALSE(reading.IsOpen()) << &row - rows;
        EXPECT_NE(std::string(reading.Opened().Error().what).find(row.word), std::string::npos);
        EXPECT_LE(reading.Watch().bytes, 3 * row.file.size() + 3 * GScanWindow::kDefaultBlock);
    }
}

TEST(AacDuration, CountsEveryHeaderOfTheFile)
{
    struct {
        GAudioBytes file;
        int frames;
    } const rows[]{
        {Numbered(50), 50},
        {Joined({Numbered(10), Text("junk", 1000), Numbered(10)}), 20},
        {Joined({Numbered(10), Id3v1()}), 10},
        {First(Numbered(10), 10 * kSize - 50), 10},  // one that is cut off is counted
    };
    for (const auto& row : rows) {
        GReading reading(row.file);
        EXPECT_EQ(reading.Handler().Duration(), static_cast<REFERENCE_TIME>(row.frames / (44100 / 1024.) * 1e7));
    }
}

TEST(AacFrames, NeedAnotherOneBehindThemOrTheEnd)
{
    struct {
        GAudioBytes file;
        std::vector<int> marks;
        std::uint64_t bytes;  // lost
    } const rows[]{
        {Joined({Numbered(3), Id3v1()}), {1, 2, 3}, 0},
        {Joined({Numbered(3), Ape(50, 82)}), {1, 2, 3}, 0},
        {First(Numbered(3), 3 * kSize - 1), {1, 2}, kSize - 1},
        {First(Numbered(4), 3 * kSize + 3), {1, 2, 3}, 3},  // too little of a header to be checked
        {Joined({Numbered(3), Text("junk", 50), Numbered(2)}), {1, 2, 1, 2}, kSize + 50},
        {Joined({Numbered(2), AdtsFrame({.length = 5}), Numbered(2)}), {1, 1, 2}, 2 * kSize},
        {Joined({Numbered(2), Id3v2(40), Numbered(2)}), {1, 1, 2}, kSize + 50},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        GReading reading(row.file);
        const auto packets = reading.ReadAll();
        EXPECT_EQ(Marks(packets), row.marks);
        for (std::size_t i = 0; i < packets.size(); ++i)
            EXPECT_EQ(packets[i].next.start, static_cast<REFERENCE_TIME>(i) * 232'199);
        EXPECT_EQ(reading.Damage().bytes, row.bytes);
    }
}

TEST(AacSeek, LandsInProportionAndOnTheNextFrame)
{
    GReading reading(Joined({Id3v2(3), Numbered(100), Id3v1()}));
    const REFERENCE_TIME duration = reading.Handler().Duration();
    struct {
        REFERENCE_TIME time;
        int mark;
    } const rows[]{{0, 1}, {duration / 2, 52}, {duration / 4, 27}, {1, 1}, {duration * 97 / 100, 100}};
    for (const auto& row : rows) {
        ASSERT_EQ(reading.Seek(row.time), row.time);
        const auto next = reading.Next();
        ASSERT_TRUE(next);
        EXPECT_EQ(next->payload[0], row.mark);
        EXPECT_EQ(next->next.start, row.time);
    }
    ASSERT_TRUE(reading.Seek(duration));
    EXPECT_FALSE(reading.Next());
    EXPECT_EQ(reading.Damage().count, 0u);
}

TEST(AacHostile, NoSingleByteDoesHarm)
{
    const GAudioBytes file = Joined({Id3v2(5), Numbered(3), Ape(10, 42), Id3v1()});
    for (std::size_t i = 0; i < file.size(); ++i) {
        for (const int value : {0x00, 0x7F, 0xFF}) {
            GAudioBytes changed = file;
            changed[i] = static_cast<std::uint8_t>(value);
            GReading reading(changed);
            const GTrialPlan plan{.targets = {reading.Handler().Duration() / 2, reading.Handler().Duration()}};
            EXPECT_NO_THROW(TryHandler(reading, plan)) << i;
        }
    }
}

TEST(AacHostile, EveryPrefixAndEveryInterruptEnds)
{
    const GAudioBytes file = Joined({Id3v2(20), Numbered(4), Id3v1()});
    for (std::size_t size = 0; size <= file.size(); ++size) {
        GReading reading(First(file, size));
        std::size_t whole = size < 30 ? 0 : std::min<std::size_t>((size - 30) / kSize, 4);
        if (whole == 4 && size >= 30 + 4 * kSize + 7 && size < file.size())
            whole = 3;  // what is there of the tag is junk
        EXPECT_EQ(reading.ReadAll().size(), whole) << size;
    }
    GReading reading(Numbered(200));
    reading.Handler().Interrupt(true);
    EXPECT_EQ(reading.Handler().Open("memory").Error().kind, GErrorKind::Aborted);
}

}  // namespace
}  // namespace vex::test
