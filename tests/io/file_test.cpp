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
    const std::unique_ptr<GFileBase> sources[] = {std::make_unique<GFile>(), std::make_unique<GCacheFile>(),
                                                  GFile().NewInstance(), std::make_unique<GCacheFile>(0)};
    for (const auto& source : sources) {
        std::uint8_t byte = 0x55;
        EXPECT_EQ(source->Read(&byte, 1), 0u);
        EXPECT_EQ(byte, 0x55);
        EXPECT_EQ(source->GetSize(), 0);
        EXPECT_EQ(source->Tell(), 0);
        EXPECT_LE(source->Seek(10), 0);
        EXPECT_EQ(source->Close(), 1);
        EXPECT_EQ(source->Open(nullptr), 0);
        EXPECT_EQ(source->Open(""), 0);
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
}

TEST(FilePath, TwoHundredAndFiftyNineBytesOpenAndOneMoreDoesNot)
{
    const GTempDirectory directory;
    std::string path = directory.Path().string();
    while (path.size() < 240)
        std::filesystem::create_directory(path += "/deeper");
    path += '/';
    ASSERT_LT(path.size(), 259u);
    path.resize(259, 'x');
    for (const std::string& name : {path, path + "x"}) {
        std::ofstream out(name, std::ios::binary);
        out << "there";
        ASSERT_TRUE(out.good());
    }

    GCacheFile file;
    EXPECT_EQ(file.Open(path.c_str()), 1);
    EXPECT_EQ(file.Path(), path);
    EXPECT_EQ(file.Open((path + "x").c_str()), 0);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.OpenError().osError, 0u) << "the system was not asked";
    EXPECT_EQ(Describe(file.OpenError()), "the path is longer than 259 bytes");
    EXPECT_EQ(file.Open(std::string(100'000, 'x').c_str()), 0);
}

TEST(FilePath, ADirectoryIsNotASource)
{
    const GTempDirectory directory;
    GFile file;
    EXPECT_EQ(file.Open(directory.Path().string().c_str()), 0);
    EXPECT_NE(Describe(file.OpenError()), file.OpenError().what) << "without the system's reason";
}

}  // namespace
}  // namespace vex::test
