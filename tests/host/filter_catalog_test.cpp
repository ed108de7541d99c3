#include "host/filter_catalog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vex::test {

namespace {

std::string ByContent(std::string bytes, std::size_t size = 0)
{
    bytes.resize(std::max(size, bytes.size()), '\0');
    const GFilterInfo* entry = FindByContent({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    return entry ? std::string(entry->shortName) : "";
}

std::string ByExtension(std::string_view path)
{
    const GFilterInfo* entry = FindByExtension(path);
    return entry ? std::string(entry->shortName) : "";
}

std::string TransportPackets(std::size_t packetBytes, std::size_t offset, std::size_t count)
{
    std::string bytes(packetBytes * count, '\xFF');
    for (std::size_t i = 0; i < count; ++i)
        bytes[offset + i * packetBytes] = '\x47';
    return bytes;
}

}  // namespace

TEST(FilterForContent, EveryContainerIsKnownByItsFirstBytes)
{
    using namespace std::string_literals;
    EXPECT_EQ(ByContent("RIFF\0\0\0\0AVI "s), "avi");
    EXPECT_EQ(ByContent("\x1A\x45\xDF\xA3"), "mkv");
    EXPECT_EQ(ByContent("\0\0\0\x18"
                        "ftypisom"s),
              "mp4");
    EXPECT_EQ(ByContent("\0\0\0\x08wide\0\0\0\0mdat"s), "mp4");
    EXPECT_EQ(ByContent("\0\0\1\xBA\x44"s), "mpeg");
    EXPECT_EQ(ByContent(TransportPackets(188, 0, 8)), "mpeg");
    EXPECT_EQ(ByContent(TransportPackets(192, 4, 8)), "mpeg");
    EXPECT_EQ(ByContent("OggS\0"s), "ogg");
    EXPECT_EQ(ByContent("FLV\1"), "flv");
    EXPECT_EQ(ByContent("\x30\x26\xB2\x75\x8E\x66\xCF\x11\xA6\xD9\x00\xAA\x00\x62\xCE\x6C"s), "asf");
    EXPECT_EQ(ByContent("\xFF\xFB\x90\x44"), "mp3");
    EXPECT_EQ(ByContent("\xFF\xF1\x50\x80"), "aac");
}

TEST(FilterForContent, AnId3TagIsLookedBehind)
{
    using namespace std::string_literals;
    const std::string tag = "ID3\3\0\0\0\0\0\5?????"s;
    EXPECT_EQ(ByContent(tag + "\xFF\xFB\x90\x44"), "mp3");
    EXPECT_EQ(ByContent(tag + tag + "\xFF\xF1\x50\x80"), "aac");
    EXPECT_EQ(ByContent("ID3\3\0\0\x7F\x7F\x7F\x7F picture"s), "mp3") << "a tag longer than what was read";
}

TEST(FilterForContent, LookalikesAreNotTaken)
{
    using namespace std::string_literals;
    EXPECT_EQ(ByContent(""), "");
    EXPECT_EQ(ByContent("RIFF\0\0\0\0WAVE"s), "");
    EXPECT_EQ(ByContent("RIFF"), "");
    EXPECT_EQ(ByContent("G is the first letter of this text", 2000), "") << "one sync byte is no transport stream";
    EXPECT_EQ(ByContent("\xFF\xFF\xFF\xFF"), "") << "reserved bit rate";
    EXPECT_EQ(ByContent("\xFF\xFD\x90\x44"), "") << "layer II";
    EXPECT_EQ(ByContent("\0\0\0\x18"s), "");
}

TEST(FilterForExtension, LettersOfEitherCaseAndOnlyTheLastDotCount)
{
    EXPECT_EQ(ByExtension("a.AVI"), "avi");
    EXPECT_EQ(ByExtension("dir.mkv/film.tar.m2ts"), "mpeg");
    EXPECT_EQ(ByExtension("dir.avi/film"), "");
    EXPECT_EQ(ByExtension("film."), "");
    EXPECT_EQ(ByExtension("film.txt"), "");
    EXPECT_EQ(ByExtension("film. avi"), "");
}

TEST(FilterByName, ShortNamesFullNamesAndIdentifiersAllWork)
{
    for (const GFilterInfo* const entry : FilterCatalog()) {
        const std::string braced = ClsidText(entry->clsid);
        EXPECT_EQ(FindByName(entry->shortName), entry);
        EXPECT_EQ(FindByName(DisplayName(*entry)), entry);
        EXPECT_EQ(FindByName(braced), entry);
        EXPECT_EQ(FindByName(braced.substr(1, 36)), entry);
    }
    EXPECT_EQ(FindByName("Avi"), FindByName("avi"));
    EXPECT_EQ(FindByName("av"), nullptr);
    EXPECT_EQ(FindByName(""), nullptr);
}

}  // namespace vex::test
