#include "io/file.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <memory>

#include "io/cache_file.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

constexpr std::array<std::uint8_t, 8> kEight{1, 2, 3, 4, 5, 6, 7, 8};

TEST(File, TheFilePointerFollowsReadsAndSeeks)
{
    const GTempFile disk(kEight);
    GFile file;
    ASSERT_EQ(file.Open(disk.Path()), 1);
    std::array<std::uint8_t, 16> buffer{};
    EXPECT_EQ(file.Read(buffer.data(), 3), 3u);
    EXPECT_EQ(file.Tell(), 3);
    EXPECT_EQ(file.Read(buffer.data(), 16), 5u);
    EXPECT_EQ(buffer[4], 8);
    EXPECT_EQ(file.Seek(-1), -1);
    EXPECT_EQ(file.Tell(), 8) << "a seek that failed moves nothing";
    EXPECT_EQ(file.Seek(std::numeric_limits<std::int64_t>::max()), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(file.Read(buffer.data(), 16), 0u);
    EXPECT_EQ(file.Read(nullptr, 4), 0u);
    disk.Append(kEight);
    EXPECT_EQ(file.GetSize(), 16);
}

TEST(File, EveryOperationOnAClosedSourceIsHarmless)
{
    const std::unique_ptr<GFileBase> sources[] = {std::make_unique<GFile>(), std::make_unique<GCacheFile>(0),
                                                  GFile().NewInstance(), GCacheFile(0).NewInstance()};
    EXPECT_NE(dynamic_cast<GCacheFile*>(sources[3].get()), nullptr);
    for (const auto& source : sources) {
        std::uint8_t byte = 0x55;
        EXPECT_EQ(source->Read(&byte, 1), 0u);
        EXPECT_EQ(source->ReadBulk(&byte, 1), 0u);
        EXPECT_EQ(byte, 0x55);
        EXPECT_EQ(source->GetSize(), 0);
        EXPECT_EQ(source->Tell(), 0);
        EXPECT_LE(source->Seek(10), 0);
        EXPECT_EQ(source->IsSeekable(), 1);
        EXPECT_EQ(source->IsPending(10), 0);
        EXPECT_EQ(source->Open(nullptr), 0);
        EXPECT_EQ(source->Open(""), 0);
        EXPECT_STREQ(source->OpenError().what, "no path was given");
        EXPECT_EQ(source->Close(), 1);
    }
}

TEST(File, CreateEmptiesWhatIsThereAndOpenReadsIt)
{
    const GTempFile disk(kEight);
    GFile file;
    ASSERT_EQ(file.Create(disk.Path()), 1);
    EXPECT_EQ(file.GetSize(), 0);
    std::uint8_t byte = 0;
    EXPECT_EQ(file.Read(&byte, 1), 0u) << "open for writing only";
    EXPECT_EQ(file.Close(), 1);
    EXPECT_STREQ(file.Path(), "");
    EXPECT_EQ(file.Create((std::string(disk.Path()) + "/below-a-file").c_str()), 0);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_NE(Describe(file.OpenError()), file.OpenError().what) << "without the system's reason";
}

// `length` characters, all of `fill` beyond the directories, to a file that is there.
std::string LongPath(const GTempDirectory& directory, std::size_t length, const std::string& fill)
{
    std::string path = directory.Path().string();
    std::size_t characters = path.size();
    while (characters < length) {
        path += '/';
        const std::size_t part = std::min<std::size_t>(length - ++characters, 60);
        for (std::size_t i = 0; i < part; ++i)
            path += fill;
        characters += part;
        if (characters < length)
            std::filesystem::create_directory(path);
    }
    std::ofstream(path) << "there";
    return path;
}

TEST(FilePath, TwoHundredAndFiftyNineCharactersOpenAndOneMoreDoesNot)
{
    const std::string mark(kUtf8PathMark);
    const std::string han = "\xE6\x97\xA5";
    const struct {
        std::string before;
        std::string fill;
        const char* error;
    } cases[] = {{"", "x", "the path is longer than 259 bytes"}, {mark, han, "the path is longer than 259 characters"}};
    for (const auto& c : cases) {
        const GTempDirectory directory;
        const std::string longest = c.before + LongPath(directory, 259, c.fill);
        GCacheFile file;
        EXPECT_EQ(file.Open(longest.c_str()), 1);
        EXPECT_EQ(file.Path(), longest);
        EXPECT_EQ(file.Open((c.before + LongPath(directory, 260, c.fill)).c_str()), 0);
        EXPECT_FALSE(file.IsOpen());
        EXPECT_EQ(file.OpenError().osError, 0u) << "the system was not asked";
        EXPECT_EQ(Describe(file.OpenError()), c.error);
        // Bytes that are no UTF-8 are no characters, and still have to go somewhere.
        EXPECT_EQ(file.Open((c.before + std::string(100'000, '\x80')).c_str()), 0);
    }
}

}  // namespace
}  // namespace vex::test
