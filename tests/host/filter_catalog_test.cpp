#include "host/filter_catalog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vex::test {

namespace {

std::string ByContent(std::string_view bytes)
{
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

TEST(FilterForContent, EveryContainerIsKnownByItsFirstBytesAndLookalikesAreNotTaken)
{
    using namespace std::string_literals;
    const std::string tag = "ID3\3\0\0\0\0\0\5?????"s;
    const std::pair<std::string, const char*> cases[] = {
        {"RIFF\0\0\0\0AVI "s, "avi"},
        {"\x1A\x45\xDF\xA3", "mkv"},
        {"\0\0\0\x18\x66typisom"s, "mp4"},
        {"\0\0\0\x08wide\0\0\0\0mdat"s, "mp4"},
        {"\0\0\1\xBA\x44"s, "mpeg"},
        {TransportPackets(188, 0, 8), "mpeg"},
        {TransportPackets(192, 4, 8), "mpeg"},
        {"OggS\0"s, "ogg"},
        {"FLV\1", "flv"},
        {"\x30\x26\xB2\x75\x8E\x66\xCF\x11\xA6\xD9\x00\xAA\x00\x62\xCE\x6C"s, "asf"},
        {"\xFF\xFB\x90\x44", "mp3"},
        {"\xFF\xF1\x50\x80", "aac"},
        {tag + "\xFF\xFB\x90\x44", "mp3"},
        {tag + tag + "\xFF\xF1\x50\x80", "aac"},
        {"ID3\3\0\0\x7F\x7F\x7F\x7F picture"s, "mp3"},  // a tag longer than what was read
        {"", ""},
        {"RIFF\0\0\0\0WAVE"s, ""},
        {"RIFF", ""},
        {"G is the first letter of this text" + std::string(2000, '\0'), ""},  // no transport stream
        {"\xFF\xFF\xFF\xFF", ""},                                            // reserved bit rate
        {"\xFF\xFD\x90\x44", ""},                                            // layer II
        {"\0\0\0\x18"s, ""},
    };
    for (const auto& [bytes, filter] : cases)
        EXPECT_EQ(ByContent(bytes), filter) << testing::PrintToString(bytes.substr(0, 40));
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
