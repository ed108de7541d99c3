#include "platform/file.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/text.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

std::vector<std::uint8_t> Counting(std::size_t count)
{
    std::vector<std::uint8_t> bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7 + (i >> 8));
    return bytes;
}

TEST(FileChanges, AFileThatGrowsOrShrinksIsReadToItsNewEndWithoutReopening)
{
    const auto bytes = Counting(5'000);
    const GTempFile temp(std::span<const std::uint8_t>(bytes).first(1'000));
    GOsFile file;
    ASSERT_TRUE(file.OpenForReading(temp.Path()));
    std::vector<std::uint8_t> got(5'000);
    EXPECT_EQ(file.Size(), 1'000);
    EXPECT_EQ(file.ReadAt(0, got.data(), 5'000), 1'000);
    EXPECT_EQ(file.ReadAt(1'000, got.data(), 1), 0);
    temp.Append(std::span(bytes).subspan(1'000));
    EXPECT_EQ(file.Size(), 5'000);
    EXPECT_EQ(file.ReadAt(0, got.data(), 5'000), 5'000);
    EXPECT_EQ(got, bytes);
    temp.Resize(100);
    EXPECT_EQ(file.Size(), 100);
    EXPECT_EQ(file.ReadAt(0, got.data(), 3'000), 100);
    EXPECT_EQ(file.ReadAt(2'000, got.data(), 100), 0) << "no error";
}

TEST(FileChanges, ItMayBeRenamedAndDeletedWhileItIsRead)
{
    const auto bytes = Counting(64);
    const GTempFile temp(bytes);
    GOsFile file;
    ASSERT_TRUE(file.OpenForReading(temp.Path()));
    const std::string moved = std::string(temp.Path()) + ".moved";
    std::error_code error;
    std::filesystem::rename(temp.Path(), moved, error);
    EXPECT_FALSE(error) << error.message();
    EXPECT_TRUE(std::filesystem::remove(moved, error)) << error.message();
    std::vector<std::uint8_t> got(64);
    EXPECT_EQ(file.ReadAt(0, got.data(), 64), 64);
    EXPECT_EQ(got, bytes);
}

TEST(FileOffsets, PositionsBeyondFourGibibytesDoNotWrapRound)
{
    constexpr std::int64_t kFar = (std::int64_t{1} << 32) + 5;
    constexpr std::uint8_t kMark[] = {0xAA, 0xBB, 0xCC};
    const GTempFile temp({});
    // Zeros, at the position that agrees in its low 32 bits as well; they take no room on the disk.
    temp.Resize(static_cast<std::uint64_t>(kFar));
    temp.Append(kMark);
    GOsFile file;
    ASSERT_TRUE(file.OpenForReading(temp.Path()));
    EXPECT_EQ(file.Size(), kFar + 3);
    std::uint8_t got[8] = {};
    EXPECT_EQ(file.ReadAt(kFar, got, sizeof(got)), 3);
    EXPECT_EQ(got[0], 0xAA);
    EXPECT_EQ(got[2], 0xCC);
    EXPECT_EQ(file.ReadAt(5, got, 3), 3);
    EXPECT_EQ(got[0], 0);
    EXPECT_EQ(file.ReadAt(kFar + 3, got, 1), 0);
    EXPECT_EQ(file.ReadAt(kFar * 1'000, got, 1), 0);
}

TEST(FileOffsets, WritingGoesToItsPositionAndTruncatesWhatWasThere)
{
    const GTempFile temp(Counting(500));
    GOsFile file;
    ASSERT_TRUE(file.CreateForWriting(temp.Path()));
    EXPECT_EQ(file.Size(), 0);
    EXPECT_EQ(file.WriteAt(10, "xyz", 3), 3);
    EXPECT_EQ(file.WriteAt(0, "ab", 2), 2);
    EXPECT_EQ(file.WriteAt(-1, "ab", 2), -1);
    file.Close();
    ASSERT_TRUE(file.OpenForReading(temp.Path()));
    char got[16] = {};
    EXPECT_EQ(file.ReadAt(0, got, sizeof(got)), 13);
    EXPECT_EQ(std::string(got, 13), std::string("ab\0\0\0\0\0\0\0\0xyz", 13));
    EXPECT_EQ(file.WriteAt(0, "q", 1), -1) << "opened for reading";
}

TEST(FileErrors, WhatCannotBeOpenedLeavesItClosedWithTheReason)
{
    const GTempFile temp(Counting(10));
    const GTempDirectory directory;
    const std::string missing = (directory.Path() / "missing").string();
    GOsFile file;
    ASSERT_TRUE(file.OpenForReading(temp.Path()));
    EXPECT_FALSE(file.OpenForReading(missing.c_str()));
    EXPECT_EQ(file.LastError(), 2u) << "the number for a missing file is the same everywhere";
    EXPECT_FALSE(DescribeOsError(file.LastError()).empty());
    for (const std::string& path : {directory.Path().string(), std::string(), std::string(kUtf8PathMark),
                                    std::string(5'000, 'x'), missing + "/file"}) {
        EXPECT_FALSE(file.OpenForReading(path.c_str())) << path;
        EXPECT_NE(file.LastError(), 0u) << path;
    }
    EXPECT_FALSE(file.OpenForReading(nullptr));
    EXPECT_FALSE(file.CreateForWriting((missing + "/file").c_str()));
    EXPECT_FALSE(file.CreateForWriting(nullptr));
    EXPECT_FALSE(file.IsOpen());
    char byte = 0;
    EXPECT_EQ(file.ReadAt(0, &byte, 1), -1);
    EXPECT_EQ(file.WriteAt(0, &byte, 1), -1);
    EXPECT_EQ(file.Size(), -1);
    ASSERT_TRUE(file.OpenForReading(temp.Path()));
    EXPECT_EQ(file.LastError(), 0u);
    EXPECT_EQ(file.ReadAt(-1, &byte, 1), -1);
    EXPECT_EQ(file.ReadAt(0, nullptr, 0), 0);

    GOsFile moved(std::move(file));
    EXPECT_EQ(moved.Size(), 10);
    moved = GOsFile();
    EXPECT_FALSE(moved.IsOpen());
}

}  // namespace
}  // namespace vex::test
