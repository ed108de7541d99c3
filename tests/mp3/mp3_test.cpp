#include "mp3/mp3_reading.h"

#include <gtest/gtest.h>

#include <string>

#include "support/audio_frames.h"
#include "support/handler_trial.h"

namespace vex::test {
namespace {

using GReading = GMp3Reading;

constexpr std::int64_t kFrame = kUsualSize;

// A frame with a Xing header `offset` bytes from its start, whose table says 0, 2, 4 ...
GAudioBytes XingFrame(std::uint32_t frames, std::uint32_t bytes, std::size_t offset = 36, const char* code = "Xing")
{
    GAudioBytes frame = MpegFrame(0);
    const GAudioBytes text = Text(code);
    std::copy(text.begin(), text.end(), frame.begin() + static_cast<std::ptrdiff_t>(offset));
    for (std::size_t i = 0; i < 4; ++i) {
        frame[offset + 8 + i] = static_cast<std::uint8_t>(frames >> (24 - 8 * i));
        frame[offset + 12 + i] = static_cast<std::uint8_t>(bytes >> (24 - 8 * i));
    }
    for (std::size_t i = 0; i < 100; ++i)
        frame[offset + 16 + i] = static_cast<std::uint8_t>(2 * i);
    return frame;
}

GAudioBytes Numbered(int count)
{
    GAudioBytes file;
    for (int i = 1; i <= count; ++i)
        file = Joined({file, MpegFrame(static_cast<std::uint8_t>(i))});
    return file;
}

// The fill bytes of what is delivered: who came when.
std::vector<int> Fills(const std::vector<GReadPacket>& packets)
{
    std::vector<int> fills;
    for (const GReadPacket& packet : packets)
        fills.push_back(packet.delivered ? packet.payload.back() : -1);
    return fills;
}

TEST(Mp3Headers, SayRateChannelsSizeAndLengthOfAFrame)
{
    struct {
        std::uint32_t header;
        std::size_t size;
        DWORD rate;
        WORD channels;
        REFERENCE_TIME length;
    } const rows[]{
        {0xFFFB9000, 417, 44100, 2, 261'224},  // MPEG-1
        {0xFFFB9200, 418, 44100, 2, 261'224},  // padded
        {0xFFFA9440, 384, 48000, 2, 240'000},  // with a CRC, joint stereo
        {0xFFFB98C0, 576, 32000, 1, 360'000},  // mono
        {0xFFF390C0, 261, 22050, 1, 261'224},  // MPEG-2
        {0xFFF38480, 192, 24000, 2, 240'000},  // dual channel
        {0xFFE31800, 72, 8000, 2, 720'000},    // MPEG-2.5
        {0xFFEB8000, 417, 11025, 2, 522'448},  // the reserved version counts as MPEG-2.5
        {0xFFFB9C00, 835, 22050, 2, 522'448},  // the reserved rate of MPEG-1 is the first one of MPEG-2
        {0xFFF38C00, 417, 11025, 2, 522'448},  // and that of MPEG-2 the first one of MPEG-2.5
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.header);
        GReading reading(Times(3, MpegFrame(1, row.header, row.size)));
        ASSERT_TRUE(reading.IsOpen());
        const auto packets = reading.ReadAll();
        EXPECT_EQ(Starts(packets), (std::vector<REFERENCE_TIME>{0, row.length, 2 * row.length}));
        EXPECT_EQ(packets.back().payload, MpegFrame(1, row.header, row.size));
        EXPECT_EQ(packets.back().next.stop, 3 * row.length);
        const CMediaType& type = reading.Streams()[0].mediaTypes[0];
        const std::array<std::uint32_t, 5> fields{row.rate, 0, 0, 0, 0};
        WAVEFORMATEX format{};
        ASSERT_EQ(type.Format().size(), sizeof format);
        std::memcpy(&format, type.Format().data(), sizeof format);
        EXPECT_EQ(format.wFormatTag, 0x55);
        EXPECT_EQ(format.nSamplesPerSec, fields[0]);
        EXPECT_EQ(format.nChannels, row.channels);
        EXPECT_EQ(format.wBitsPerSample, 8 * row.channels);
        EXPECT_EQ(format.nBlockAlign, 4);
        EXPECT_EQ(format.nAvgBytesPerSec + format.cbSize, 0u);
        EXPECT_EQ(reading.Damage().count, 0u);
    }
}

TEST(Mp3Open, WhatIsNoLayerThreeIsRefusedInWords)
{
    struct {
        GAudioBytes file;
        const char* word;
    } const rows[]{
        {Times(4, MpegFrame(1, 0xFFFF9000, 312)), "layer I;"},   // 288 kbit/s
        {Times(4, MpegFrame(1, 0xFFFD9000, 522)), "layer II;"},  // 160 kbit/s
        {Times(4, MpegFrame(1, 0xFFFB0000, 500)), "free format"},
        {Times(4, MpegFrame(1, 0xFFFBF000, 417)), "no MPEG audio"},  // the forbidden bit rate
        {Times(4, MpegFrame(1, 0xFFE38C00, 417)), "no MPEG audio"},  // no such rate
        {Times(4, MpegFrame(1, 0xFFF99000, 417)), "no MPEG audio"},  // no such layer
        {MpegFrame(1), "no MPEG audio"},                             // nothing follows it
        {{}, "no MPEG audio"},
        {Id3v2(100), "no MPEG audio"},
    };
    for (const auto& row : rows) {
        const GReading reading(row.file);
        ASSERT_FALSE(reading.IsOpen()) << row.word;
        EXPECT_NE(std::string(reading.Opened().Error().what).find(row.word), std::string::npos)
            << reading.Opened().Error().what;
    }
}

TEST(Mp3Tags, AreNeitherFramesNorDamage)
{
    const GAudioBytes music = Numbered(3);
    const GAudioBytes files[]{
        Joined({Id3v2(300), Id3v2(0), music}),  // several in a row
        Joined({Id3v2(5, 1'000'000), music}),   // leads beyond the file: no tag
        Joined({music, Id3v1()}),
        Joined({music, Ape(50, 82)}),
        Joined({music, Ape(50, 82), Id3v1()}),
        Joined({First(music, 2 * kUsualSize), Id3v2(500), MpegFrame(3)}),  // files joined
    };
    for (const GAudioBytes& file : files) {
        GReading reading(file);
        EXPECT_EQ(Fills(reading.ReadAll()), (std::vector<int>{1, 2, 3})) << &file - files;
        EXPECT_EQ(reading.Damage().count, 0u) << &file - files;
    }
    GReading greedy(Joined({MpegFrame(1, 0xFFE31800, 72), MpegFrame(2, 0xFFE31800, 72), Ape(0, 200)}));
    EXPECT_EQ(Fills(greedy.ReadAll()), (std::vector<int>{1, 2})) << "a tag that reaches into the first frame";
}

TEST(Mp3Duration, ComesFromTheXingHeaderOrFromTheLastWholeFrame)
{
    struct {
        GAudioBytes file;
        std::int64_t frames;
    } const rows[]{
        {Joined({XingFrame(1000, 0), Numbered(4)}), 1000},
        {Joined({XingFrame(1000, 0, 21), Numbered(4)}), 5},  // where a mono file has it
        {Joined({XingFrame(1000, 0, 36, "Info"), Numbered(4)}), 5},
        {Numbered(10), 10},
        {First(Numbered(10), 10 * kUsualSize - 1), 9},
        {Joined({Numbered(10), Id3v1()}), 10},
        {Joined({Numbered(10), GAudioBytes(100'000)}), 10},          // the last frame is far from the end
        {Joined({Numbered(4), MpegFrame(5, 0xFFFBE000, 1044)}), 5},  // the last frame's size is the first one's
    };
    for (const auto& row : rows) {
        GReading reading(row.file);
        EXPECT_EQ(reading.Handler().Duration(), row.frames * 11'520'000'000 / 44'100) << &row - rows;
    }
    GReading longest(Joined({XingFrame(0xFFFFFFFF, 0xFFFFFFFF), Numbered(4)}));
    EXPECT_GT(longest.Handler().Duration(), 1'000'000'000'000'000);
}

TEST(Mp3Seek, LandsWhereTheRateOrTheTableSays)
{
    const GAudioBytes steady = Joined({Id3v2(77), Numbered(100)});
    // The table says 2 i / 256 of 100 frames.
    const GAudioBytes xing = Joined({XingFrame(101, 100 * kUsualSize), Numbered(100)});
    const REFERENCE_TIME xingDuration = std::int64_t{101} * 11'520'000'000 / 44'100;
    struct {
        const GAudioBytes& file;
        REFERENCE_TIME time;
        int fill;
    } const rows[]{
        {steady, 0, 1},
        {steady, 1, 1},
        {steady, 10 * kUsualLength + 100, 11},
        {steady, 97 * kUsualLength + 100, 98},
        {xing, xingDuration / 2, 40},           // 100 / 256 of 41700 bytes: 16289, within frame 39 of the numbered
        {xing, xingDuration / 100, 1},          // 2 / 256: 325, within the first frame
        {xing, xingDuration * 995 / 1000, 89},  // half way from 198 to 256
    };
    for (const auto& row : rows) {
        GReading reading(row.file);
        ASSERT_EQ(reading.Seek(row.time), row.time);
        const auto next = reading.Next();
        ASSERT_TRUE(next);
        EXPECT_EQ(next->payload.back(), row.fill) << row.time;
        EXPECT_EQ(next->next.start, row.time) << "times restart at the target";
        EXPECT_EQ(reading.Damage().count, 0u);
    }
    GReading uncounted(Joined({XingFrame(0, 1000), Numbered(4)}));
    EXPECT_EQ(uncounted.Handler().Duration(), 0);
    EXPECT_FALSE(uncounted.Seek(0));
}

TEST(Mp3Damage, CostsTheFramesItHitsAndNoTime)
{
    struct {
        GAudioBytes file;
        std::vector<int> fills;
        std::uint64_t bytes;
    } const rows[]{
        {Joined({GAudioBytes(700, 0xFF), Numbered(3)}), {1, 2, 3}, 0},  // ahead of the first frame
        {Joined({Numbered(2), Text("junk", 1000), Numbered(2)}), {1, 2, 1, 2}, 1000},
        {Joined({Numbered(2), MpegFrame(9, kUsualHeader, 100), Numbered(3)}), {1, 2, 1, 2, 3}, 100},
        {First(Numbered(3), 3 * kUsualSize - 1), {1, 2}, kUsualSize - 1},
        {First(Numbered(3), 2 * kUsualSize + 3), {1, 2}, 3},
        {Joined({Numbered(2), GAudioBytes(3'000'000)}), {1, 2}, 3'000'000},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        GReading reading(row.file);
        const auto packets = reading.ReadAll();
        EXPECT_EQ(Fills(packets), row.fills);
        for (std::size_t i = 0; i < packets.size(); ++i)
            EXPECT_EQ(packets[i].next.start, static_cast<std::int64_t>(i) * kUsualLength);
        EXPECT_EQ(reading.Damage().bytes, row.bytes);
        EXPECT_EQ(reading.Damage().count, row.bytes > 0 ? 1u : 0u);
    }
}

TEST(Mp3Damage, WhatCannotBeReadIsPassedOver)
{
    GReading reading(Joined({Numbered(200), Numbered(200)}));
    reading.Watch().failFrom = 100 * kFrame + 5;
    reading.Watch().failUntil = 101 * kFrame;
    const auto fills = Fills(reading.ReadFrom(0));
    EXPECT_EQ(fills.back(), 200);
    EXPECT_GE(fills.size(), 389u) << "a piece of 2048 bytes on either side";
    EXPECT_GE(reading.Damage().count, 1u);
}

TEST(Mp3Hostile, SearchesReadTheFileOnce)
{
    constexpr std::size_t kSize = 1 << 20;
    GAudioBytes lonely(kSize);  // headers that nothing follows
    for (std::size_t i = 0; i + 4 < kSize; i += 5)
        std::ranges::copy(MpegFrame(0, kUsualHeader, 4), lonely.begin() + static_cast<std::ptrdiff_t>(i));
    for (const GAudioBytes& file :
         {GAudioBytes(kSize, 0xFF), GAudioBytes(kSize), lonely, Times(kSize / 10, Id3v2(0))}) {
        GReading reading(file);
        EXPECT_FALSE(reading.IsOpen());
        EXPECT_LE(reading.Watch().bytes, kSize + 2 * GScanWindow::kDefaultBlock);
    }
}

TEST(Mp3Hostile, EveryPrefixGivesTheFramesItHolds)
{
    const GAudioBytes file = Joined({Id3v2(20), XingFrame(3, 3 * kUsualSize), Numbered(2), Id3v1()});
    for (std::size_t size = 0; size <= file.size(); ++size) {
        GReading reading(First(file, size));
        const auto packets = reading.ReadAll();
        const std::size_t whole = size < 30 ? 0 : std::min<std::size_t>((size - 30) / kUsualSize, 3);
        EXPECT_EQ(packets.size(), reading.IsOpen() ? whole : 0) << size;
        EXPECT_EQ(reading.IsOpen(), size >= 30 + kUsualSize + 4) << size;
    }
}

TEST(Mp3Hostile, NoSingleByteDoesHarm)
{
    const GAudioBytes frames = Times(3, MpegFrame(2, 0xFFE31800, 72));
    const GAudioBytes file = Joined({Id3v2(5), XingFrame(3, 500), frames, Ape(10, 42), Id3v1()});
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

TEST(Mp3Interrupt, EndsASearchAtOnce)
{
    GReading reading(Joined({Numbered(2), GAudioBytes(3'000'000), Numbered(3)}));
    reading.Handler().Interrupt(true);
    const std::uint64_t before = reading.Watch().bytes;
    GNextPacket next;
    for (int i = 0; i < 5; ++i)
        reading.Handler().ReadPacket(next);
    EXPECT_LE(reading.Watch().bytes, before + 2 * GScanWindow::kDefaultBlock);
    EXPECT_EQ(reading.Handler().Open("memory").Error().kind, GErrorKind::Aborted);
    reading.Handler().Interrupt(false);
    ASSERT_TRUE(reading.Handler().Open("memory").Ok());
    EXPECT_EQ(Fills(reading.ReadAll()), (std::vector<int>{1, 2, 1, 2, 3}));
}

}  // namespace
}  // namespace vex::test
