#include <gtest/gtest.h>

#include <tuple>

#include "io/checked_math.h"
#include "media/audio_types.h"
#include "mp3/mp3_reading.h"
#include "support/audio_frames.h"

namespace vex::test {
namespace {

// A frame with a Xing header `offset` bytes from its start, whose table says 0, 2, 4 ...
GAudioBytes XingFrame(std::uint32_t frames, std::uint32_t bytes, std::size_t offset = 36, const char* code = "Xing")
{
    GAudioBytes header = Text(code, 8);
    for (const std::uint32_t number : {frames, bytes})
        for (int shift = 24; shift >= 0; shift -= 8)
            header.push_back(static_cast<std::uint8_t>(number >> shift));
    for (std::uint8_t i = 0; i < 100; ++i)
        header.push_back(static_cast<std::uint8_t>(2 * i));
    GAudioBytes frame = MpegFrame(0);
    std::ranges::copy(header, frame.begin() + static_cast<std::ptrdiff_t>(offset));
    return frame;
}

TEST(Mp3Headers, SayRateChannelsSizeAndLengthOfAFrame)
{
    const std::tuple<std::uint32_t, std::size_t, DWORD, WORD, REFERENCE_TIME> rows[]{
        {0xFFFB9000, 417, 44100, 2, 261'224},  // MPEG-1
        {0xFFFB9200, 418, 44100, 2, 261'224},  // padded
        {0xFFFA9440, 384, 48000, 2, 240'000},  // with a CRC, joint stereo
        {0xFFFB98C0, 576, 32000, 1, 360'000},  // mono
        {0xFFF390C0, 261, 22050, 1, 261'224},  // MPEG-2
        {0xFFE31800, 72, 8000, 2, 720'000},    // MPEG-2.5
        {0xFFEB8000, 417, 11025, 2, 522'448},  // the reserved version counts as MPEG-2.5
        {0xFFFB9C00, 835, 22050, 2, 522'448},  // the reserved rate of MPEG-1 is the first one of MPEG-2
    };
    for (const auto& [header, size, rate, channels, length] : rows) {
        SCOPED_TRACE(header);
        GMp3Reading reading(Repeat(MpegFrame(1, header, size), 3));
        const auto packets = reading.ReadAll();
        ASSERT_EQ(Starts(packets), (std::vector<REFERENCE_TIME>{0, length, 2 * length}));
        EXPECT_EQ(packets.back().payload, MpegFrame(1, header, size));
        const WAVEFORMATEX format{0x55, channels, rate, 0, 4, static_cast<WORD>(8 * channels), 0};
        EXPECT_TRUE(reading.Streams()[0].mediaTypes[0] == MakeWaveType(format));
    }
}

TEST(Mp3Files, PlayTheirFramesAndNothingElse)
{
    const GAudioBytes music = MpegFrames(3);
    const char* const none = "the file holds no MPEG audio: no frame that another one follows";
    const std::pair<GAudioBytes, const char*> files[]{
        {Join({Id3v2(300), Id3v2(0), music}), "1 2 3 "},
        {Join({Id3v2(5, 1'000'000), music}), "1 2 3 "},  // leads beyond the file: no tag
        {Join({music, Id3v1()}), "1 2 3 "},
        {Join({music, Ape(50, 82), Id3v1()}), "1 2 3 "},
        {Join({First(music, 2 * kUsualSize), Id3v2(500), MpegFrame(3)}), "1 2 3 "},                    // files joined
        {Join({MpegFrame(1, 0xFFE31800, 72), MpegFrame(2, 0xFFE31800, 72), Ape(0, 200)}), "1 2 -32"},  // greedy
        {Join({GAudioBytes(700, 0xFF), music}), "1 2 3 "},
        {Join({MpegFrames(2), Text("junk", 1000), MpegFrames(2)}), "1 2 1 2 -1000"},
        {Join({MpegFrames(2), MpegFrame(9, kUsualHeader, 100), music}), "1 2 1 2 3 -100"},
        {First(music, 3 * kUsualSize - 1), "1 2 -416"},
        {First(music, 2 * kUsualSize + 3), "1 2 -3"},
        {Join({MpegFrames(2), GAudioBytes(3'000'000)}), "1 2 -3000000"},
        {Repeat(MpegFrame(1, 0xFFFF9000, 312), 4), "the file holds MPEG audio of layer I; only layer III is played"},
        {Repeat(MpegFrame(1, 0xFFFD9000, 522), 4), "the file holds MPEG audio of layer II; only layer III is played"},
        {Repeat(MpegFrame(1, 0xFFFB0000, 500), 4), "MPEG audio of free format is not supported"},
        {Repeat(MpegFrame(1, 0xFFFBF000), 4), none},  // the forbidden bit rate
        {Repeat(MpegFrame(1, 0xFFE38C00), 4), none},  // no such rate
        {Repeat(MpegFrame(1, 0xFFF99000), 4), none},  // no such layer
        {MpegFrame(1), none},                         // nothing follows it
        {{}, none},
    };
    for (const auto& [file, played] : files)
        EXPECT_EQ(Played<GMp3Reading>(file), played);
}

TEST(Mp3Duration, ComesFromTheXingHeaderOrFromTheLastWholeFrame)
{
    const std::pair<GAudioBytes, std::int64_t> rows[]{
        {Join({XingFrame(1000, 0), MpegFrames(4)}), 1000},
        {Join({XingFrame(1000, 0, 21), MpegFrames(4)}), 5},  // where a mono file has it
        {Join({XingFrame(1000, 0, 36, "Info"), MpegFrames(4)}), 5},
        {First(MpegFrames(10), 10 * kUsualSize - 1), 9},
        {Join({MpegFrames(10), Id3v1()}), 10},
        {Join({MpegFrames(10), GAudioBytes(100'000)}), 10},          // the last frame is far from the end
        {Join({MpegFrames(4), MpegFrame(5, 0xFFFBE000, 1044)}), 5},  // the last frame's size is the first one's
        {Join({XingFrame(0xFFFFFFFF, 0xFFFFFFFF), MpegFrames(4)}), 0xFFFFFFFF},
    };
    for (const auto& [file, frames] : rows)
        EXPECT_EQ(GMp3Reading(file).Handler().Duration(), MulDiv64(frames, 11'520'000'000, 44'100)) << frames;
}

TEST(Mp3Seek, LandsWhereTheRateOrTheTableSays)
{
    const GAudioBytes steady = Join({Id3v2(77), MpegFrames(100)});
    // The table says 2 i / 256 of 100 frames.
    const GAudioBytes xing = Join({XingFrame(101, 100 * kUsualSize), MpegFrames(100)});
    const REFERENCE_TIME xingDuration = std::int64_t{101} * 11'520'000'000 / 44'100;
    const std::tuple<const GAudioBytes&, REFERENCE_TIME, int> rows[]{
        {steady, 0, 1},
        {steady, 97 * kUsualLength + 100, 98},
        {xing, xingDuration / 2, 40},           // 100 / 256 of 41700 bytes: 16289, within frame 39 of the numbered
        {xing, xingDuration / 100, 1},          // 2 / 256: 325, within the first frame
        {xing, xingDuration * 995 / 1000, 89},  // half way from 198 to 256
    };
    for (const auto& [file, time, mark] : rows) {
        GMp3Reading reading(file);
        ASSERT_EQ(reading.Seek(time), time);
        const auto next = reading.Next();
        ASSERT_TRUE(next);
        EXPECT_EQ(next->payload.back(), mark) << time;
        EXPECT_EQ(next->next.start, time) << "times restart at the target";
        EXPECT_EQ(reading.Damage().count, 0u);
    }
    EXPECT_FALSE(GMp3Reading(Join({XingFrame(0, 1000), MpegFrames(4)})).Seek(0)) << "no frames are counted";
}

TEST(Mp3Hostile, SearchesReadTheFileOnceAndEndWhenInterrupted)
{
    constexpr std::size_t kSize = 1 << 20;
    const GAudioBytes lonely = Repeat(MpegFrame(0, kUsualHeader, 5), kSize / 5);  // headers that nothing follows
    for (const GAudioBytes& file :
         {GAudioBytes(kSize, 0xFF), GAudioBytes(kSize), lonely, Repeat(Id3v2(0), kSize / 10)}) {
        GMp3Reading reading(file);
        EXPECT_FALSE(reading.IsOpen());
        EXPECT_LE(reading.Watch().bytes, kSize + 2 * GScanWindow::kDefaultBlock);
    }
    GMp3Reading reading(Join({MpegFrames(2), GAudioBytes(3'000'000), MpegFrames(3)}));
    reading.Handler().Interrupt(true);
    const std::uint64_t before = reading.Watch().bytes;
    GNextPacket next;
    for (int i = 0; i < 5; ++i)
        reading.Handler().ReadPacket(next);
    EXPECT_LE(reading.Watch().bytes, before + 2 * GScanWindow::kDefaultBlock);
    EXPECT_EQ(reading.Handler().Open("memory").Error().kind, GErrorKind::Aborted);
}

TEST(Mp3Hostile, NeitherAPrefixNorAnyByteDoesHarm)
{
    const GAudioBytes frames = Repeat(MpegFrame(2, 0xFFE31800, 72), 3);
    EXPECT_NO_THROW(TryDamage<GMp3Reading>(Join({Id3v2(5), XingFrame(3, 500), frames, Ape(10, 42), Id3v1()})));
}

}  // namespace
}  // namespace vex::test
