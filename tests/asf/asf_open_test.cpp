// What the header says: streams, their types, names and selection, and why a file cannot be played.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "asf/asf_reading.h"
#include "media/audio_types.h"
#include "media/codec_guids.h"
#include "media/video_types.h"

namespace vex::test {
namespace {

using GBody = GAsfBytes;

// "1 Audio Pin,2 Video Pin,"
std::string Pins(const GAsfTestFile& file)
{
    const GAsfReading reading(file.Bytes());
    std::string found;
    for (const GStreamInfo& stream : reading.Streams())
        found += std::to_string(stream.number) + " " + Utf8FromWide(stream.pinName) + ",";
    return found;
}

TEST(AsfOpen, AHeaderThatCannotBeUsedSaysWhy)
{
    const GBody rates = GBody().Object(GAsfId::StreamBitrateProperties, GBody().Zeros(2));
    const GBody properties = GBody().Zeros(40).Number(5'000'000, 8).Zeros(80 - 48);
    const std::pair<GAsfTestFile, const char*> cases[] = {
        {{.children = GBody().Object(GAsfId::FileProperties, properties)}, "twice"},
        {{.children = GBody(rates).Raw(rates.bytes)}, "twice"},
        {{.children = GBody().Object(GAsfId::Unknown, GBody().Zeros(9), 0)}, "does not fit"},
        {{.children = GBody().Object(GAsfId::Unknown, GBody().Zeros(9), 34)}, "does not fit"},
        {{.children = GBody().Object(GAsfId::Unknown, GBody().Zeros(9), ~0ull)}, "does not fit"},
        {{.children = GBody().Object(GAsfId::StreamProperties, GBody().Zeros(53))}, "too short"},
        {{.headerSize = 23}, "impossible size"},
        {{.headerSize = ~0ull}, "impossible size"},
        {{.headerSize = 230}, "no Data Object"},
        {{.packetSize = 10}, "below 11"},
        {{.streams = {}}, "no stream"},
    };
    for (const auto& [file, text] : cases) {
        const GAsfReading reading(file.Bytes());
        ASSERT_FALSE(reading.IsOpen()) << text;
        EXPECT_THAT(Describe(reading.Opened().Error()), testing::HasSubstr(text));
    }
}

TEST(AsfOpen, ABrokenExtensionCostsWhatItSaysAndNoMore)
{
    for (const std::uint64_t size : {0ull, 23ull, 90ull, ~0ull}) {
        GAsfTestFile file;
        file.children.Object(GAsfId::Unknown, GBody().Zeros(70'000)).Object(GAsfId::Unknown, {});
        file.extension.Object(GAsfId::ExtendedStreamProperties, ExtendedStream(9, 1, 0))
            .Object(GAsfId::Unknown, GBody().Zeros(20), size);
        GAsfReading reading(file.Bytes());
        EXPECT_EQ(reading.Streams().size(), 2u) << size;
        EXPECT_EQ(reading.Damage().count, 1u) << size;
    }
}

TEST(AsfType, IsTheStreamsFormatWithItsExtraBytesAlsoOfAnEncryptedStream)
{
    const GAsfReading reading(GAsfTestFile{.streams = {{1, false, 1'000, {}, 0, true}, {2, true}}}.Bytes());
    ASSERT_EQ(reading.Streams().size(), 2u);
    EXPECT_EQ(reading.Streams()[0].properties.at(0).name, "encrypted");
    EXPECT_TRUE(reading.Streams()[0].mediaTypes[0] == MakeWaveType({1, 1, 8'000, 1'000, 1, 8, 0}));
    VIDEOINFOHEADER info{};
    info.bmiHeader = {44, 64, 48, 1, 24, FourCC("WMV2"), 0, 0, 0, 0, 0};
    const std::uint8_t extra[] = {1, 2, 3, 4};
    EXPECT_TRUE(reading.Streams()[1].mediaTypes[0] == MakeVideoInfoType(SubtypeFromFourCC("WMV2"), info, extra));
}

TEST(AsfOpen, AStreamInsideItsExtendedPropertiesCounts)
{
    GAsfTestFile file{.streams = {{.number = 1}}};
    const GBody inside = GBody().Object(GAsfId::StreamProperties, StreamProperties({.number = 3, .video = true}));
    file.extension.Object(GAsfId::ExtendedStreamProperties, ExtendedStream(3, 1, 0, inside));
    EXPECT_EQ(Pins(file), "1 Audio Pin,3 Video Pin,");
}

TEST(AsfNames, CarryTheLanguageOrItsTextWhenTheCodeIsUnknown)
{
    GAsfTestFile file{.streams = {{.number = 1}, {.number = 2}, {.number = 3}, {.number = 4}, {.number = 5}}};
    file.extension.Object(GAsfId::LanguageList, LanguageList({"en-us", "ger", "x-klingon", "deu", ""}));
    for (std::uint16_t i = 0; i < 5; ++i)
        file.extension.Object(GAsfId::ExtendedStreamProperties,
                              ExtendedStream(static_cast<std::uint16_t>(i + 1), 0, i));
    EXPECT_EQ(Pins(file), "1 Audio Pin.English,2 Audio Pin.German,3 Audio Pin.x-klingon,4 Audio Pin.deu,5 Audio Pin,");
}

TEST(AsfSelection, TakesTheHighestBitRateOfEachLanguageAndTheFirstOnTies)
{
    GAsfTestFile file{.streams = {{.number = 1, .bytesPerSecond = 10},
                                  {.number = 2, .bytesPerSecond = 20},
                                  {.number = 3, .bytesPerSecond = 20},
                                  {.number = 4, .bytesPerSecond = 5}}};
    EXPECT_EQ(Pins(file), "2 Audio Pin,");
    // The Stream Bitrate Properties come before the format, the Extended Stream Properties before both.
    const GBody rates = GBody().Number(2, 2).Number(1, 2).Number(9'000, 4).Number(3, 2).Number(8'000, 4);
    file.children.Object(GAsfId::StreamBitrateProperties, rates);
    EXPECT_EQ(Pins(file), "1 Audio Pin,");
    file.extension.Object(GAsfId::LanguageList, LanguageList({"de"}))
        .Object(GAsfId::ExtendedStreamProperties, ExtendedStream(3, 10'000, 7))
        .Object(GAsfId::ExtendedStreamProperties, ExtendedStream(4, 1, 0));
    EXPECT_EQ(Pins(file), "3 Audio Pin,4 Audio Pin.German,");
}

TEST(AsfSelection, TakesOneVideoThatTheChosenSoundDoesNotExclude)
{
    GAsfTestFile file{
        .streams = {
            {.number = 1}, {.number = 2, .video = true}, {.number = 3, .video = true}, {.number = 4, .video = true}}};
    EXPECT_EQ(Pins(file), "1 Audio Pin,4 Video Pin,");
    const auto with = [&](GAsfId id, const GBody& numbers) {
        GAsfTestFile excluded = file;
        const GBody body = GBody().Zeros(16).Raw(numbers.bytes);
        (id == GAsfId::BitrateMutualExclusion ? excluded.children : excluded.extension).Object(id, body);
        return Pins(excluded);
    };
    EXPECT_EQ(with(GAsfId::BitrateMutualExclusion, Numbers({1, 4})), "1 Audio Pin,3 Video Pin,");
    EXPECT_EQ(with(GAsfId::AdvancedMutualExclusion, Numbers({4, 3, 1})), "1 Audio Pin,2 Video Pin,");
    const GBody groups = GBody().Number(2, 2).Raw(Numbers({1, 3}).bytes).Raw(Numbers({4}).bytes);
    EXPECT_EQ(with(GAsfId::GroupMutualExclusion, groups), "1 Audio Pin,3 Video Pin,");
    const GBody rates = GBody().Number(2, 2).Number(2, 2).Number(500, 4).Number(3, 2).Number(500, 4);
    file.children.Object(GAsfId::StreamBitrateProperties, rates);
    EXPECT_EQ(Pins(file), "1 Audio Pin,2 Video Pin,");
}

}  // namespace
}  // namespace vex::test
