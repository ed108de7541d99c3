#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/temp_files.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

namespace fs = std::filesystem;

TEST(TempFiles, OnlyThisUserCanReadANewOne)
{
    const GTempDirectory directory;
    GLockedTempFile file;
    ASSERT_TRUE(file.Create("mp4", directory.Path()));
    struct stat status {};
    ASSERT_EQ(::stat(file.Path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0600u);
}

TEST(TempFiles, ALinkOrAPipeOfTheRightNameIsLeftAloneWithItsTarget)
{
    const GTempDirectory directory;
    const GTempFile target(std::span<const std::uint8_t>{});
    const fs::path link = directory.Path() / "mp4BEEF.tmp";
    const fs::path pipe = directory.Path() / "mp4F1F0.tmp";
    fs::create_symlink(target.Path(), link);
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_TRUE(ListFiles("mp4", ".tmp", directory.Path()).empty());
    EXPECT_FALSE(DeleteIfUnused(link));
    EXPECT_FALSE(DeleteIfUnused(pipe));
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_TRUE(fs::exists(target.Path()));
}

}  // namespace
}  // namespace vex::test
