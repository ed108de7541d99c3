#include "platform/temp_files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <vector>

#include "platform/threads.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

namespace fs = std::filesystem;

TEST(TempFiles, EachOneHasANewNameOfThePatternThatTheyAreListedBy)
{
    const GTempDirectory directory;
    const std::string folder = directory.Path().string();
    std::vector<GLockedTempFile> files(40);
    std::set<std::string> names;
    for (GLockedTempFile& file : files) {
        ASSERT_TRUE(file.Create("mp4more", folder)) << DescribeOsError(file.LastError());
        EXPECT_TRUE(fs::is_empty(file.Path()));
        const std::string name = fs::path(file.Path()).filename().string();
        names.insert(name);
        ASSERT_TRUE(name.size() >= 8 && name.size() <= 11) << name;
        EXPECT_TRUE(name.starts_with("mp4") && name.ends_with(".tmp")) << name;
        EXPECT_EQ(name.find_first_not_of("0123456789ABCDEFabcdef", 3), name.size() - 4) << name;
    }
    EXPECT_EQ(names.size(), files.size());
    for (const char* other : {"mp5AAAA.tmp", "mp4AAAA.tmpx", "xmp4AAAA.tmp", "mp4.tm"})
        std::ofstream(directory.Path() / other) << "x";
    fs::create_directory(directory.Path() / "mp4folder.tmp");
    std::set<std::string> listed;
    for (const std::string& path : ListFiles("mp4", ".tmp", folder))
        listed.insert(fs::path(path).filename().string());
    EXPECT_EQ(listed, names);
}

TEST(TempFiles, OneInUseSurvivesTheCleaningOfOthersUntilItIsReleased)
{
    const GTempDirectory directory;
    const std::string folder = directory.Path().string();
    GLockedTempFile used;
    GLockedTempFile moved;
    ASSERT_TRUE(used.Create("mp4", folder));
    moved = std::move(used);
    used.Release();
    // The owner goes on writing and reading it by its path.
    GOsFile writing;
    GOsFile reading;
    ASSERT_TRUE(writing.CreateForWriting(moved.Path().c_str()));
    ASSERT_TRUE(reading.OpenForReading(moved.Path().c_str()));
    EXPECT_EQ(writing.WriteAt(0, "abc", 3), 3);
    EXPECT_EQ(reading.Size(), 3);
    EXPECT_FALSE(DeleteIfUnused(moved.Path()));
    writing.Close();
    reading.Close();
    EXPECT_FALSE(DeleteIfUnused(moved.Path()));
    EXPECT_EQ(ListFiles("mp4", ".tmp", folder).size(), 1u);
    moved.Release();
    EXPECT_TRUE(DeleteIfUnused(moved.Path()));
    EXPECT_FALSE(DeleteIfUnused(moved.Path()));
    EXPECT_TRUE(ListFiles("mp4", ".tmp", folder).empty());
}

TEST(TempFiles, ACleanerThatMeetsAFileBeforeItIsLockedTakesNoneInUse)
{
    const GTempDirectory directory;
    const std::string folder = directory.Path().string();
    std::atomic<bool> done{false};
    GNativeThread cleaner([&] {
        while (!done)
            for (const std::string& path : ListFiles("mp4", ".tmp", folder))
                DeleteIfUnused(path);
    });
    std::vector<GLockedTempFile> files(200);
    for (GLockedTempFile& file : files)
        EXPECT_TRUE(file.Create("mp4", folder)) << DescribeOsError(file.LastError());
    done = true;
    cleaner.join();
    for (const GLockedTempFile& file : files)
        EXPECT_TRUE(fs::exists(file.Path())) << file.Path();
}

TEST(TempFiles, ADirectoryIsNeitherUsedNorDeleted)
{
    const GTempDirectory directory;
    const std::string missing = (directory.Path() / "missing").string();
    GLockedTempFile file;
    EXPECT_FALSE(file.Create("mp4", missing));
    EXPECT_NE(file.LastError(), 0u);
    EXPECT_FALSE(file.IsLocked());
    EXPECT_TRUE(ListFiles("", "", missing).empty());
    EXPECT_FALSE(DeleteIfUnused(missing));
    EXPECT_FALSE(DeleteIfUnused(directory.Path().string()));
    EXPECT_TRUE(fs::exists(directory.Path()));
}

}  // namespace
}  // namespace vex::test
