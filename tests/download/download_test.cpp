// The parts of a download that need no server. Those that do are in downloads_test.py.
#include "formats/mp4/mp4_download.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "formats/mp4/mp4_interface.h"
#include "formats/mp4/mp4_url.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

GSteadyClock::time_point fakeNow;

GSteadyClock::time_point FakeClock() { return fakeNow; }

// A sink as the download has it, writing to a file of its own.
struct GSinkTrial {
    explicit GSinkTrial(std::int64_t byteLimit = -1)
    {
        EXPECT_TRUE(request.file.CreateForWriting(file.Path()));
        request.byteLimit = byteLimit;
        request.contentLengthOut = &status.contentLength;
        sink.Start();
    }
    bool Take(std::size_t bytes) { return sink.Take(std::vector<std::uint8_t>(bytes, 'x')); }

    GTempFile file{std::span<const std::uint8_t>{}};
    HttpRequest request;
    GDownloadStatus status;
    std::vector<int> posts;
    GDownloadSink sink{request, status, [this](std::int32_t percent) { posts.push_back(percent); }, FakeClock};
};

TEST(Url, IsToldByItsBeginningInAnyCase)
{
    for (const char* url : {"http://h/x", "HTTP://h", "Http://", "www.h/x.mp4", "WWW.h", "www."})
        EXPECT_TRUE(IsUrl(url)) << url;
    for (const char* path : {"", "http:/", "https://h/x", "www", "/a/http://h", "C:\\www.h", " http://h", "ftp://h"})
        EXPECT_FALSE(IsUrl(path)) << path;
}

TEST(Url, EscapesBlanksAndHighBytesAndNothingElse)
{
    EXPECT_EQ(EscapeUrl("http://h/a b\xE9\x80\xFF?q=%20&x#y~\x7F"), "http://h/a%20b%e9%80%ff?q=%20&x#y~\x7F");
}

TEST(Url, MayHave2047CharactersOnceEscapedWithoutTheSchemePutAhead)
{
    GDownloadStatus status;
    for (const std::string url : {"http://h/ ", "www.h/ "})
        for (const std::size_t more : {2047 - url.size() - 2, 2048 - url.size() - 2})
            EXPECT_EQ(GMp4Download::StartDownload(url + std::string(more, 'x'), status, {}).Ok(),
                      url.size() + 2 + more < 2048);
}

TEST(Download, ReportsPercentAfterHalfASecondWithEveryBlockOfAKnownLength)
{
    GSinkTrial known;
    EXPECT_EQ(known.status.downloadState, VexMp4Download_None);
    EXPECT_TRUE(known.sink.Begin(3000));
    EXPECT_EQ(known.status.downloadState, VexMp4Download_Running);
    EXPECT_EQ(known.status.contentLength, 3000u);
    fakeNow += std::chrono::milliseconds(499);
    EXPECT_TRUE(known.Take(100));
    EXPECT_THAT(known.posts, IsEmpty());
    fakeNow += std::chrono::milliseconds(1);
    for (const std::size_t bytes : {900u, 999u, 1u, 1000u})
        EXPECT_TRUE(known.Take(bytes));
    EXPECT_THAT(known.posts, ElementsAre(33, 66, 66, 100));
    EXPECT_EQ(known.status.received, 3000u);
    known.request.file.Close();
    EXPECT_EQ(fs::file_size(known.file.Path()), 3000u);

    for (const std::optional<std::uint64_t> length :
         {std::optional<std::uint64_t>(), std::optional<std::uint64_t>(0)}) {
        GSinkTrial unknown;
        EXPECT_TRUE(unknown.sink.Begin(length));
        fakeNow += std::chrono::seconds(1);
        EXPECT_TRUE(unknown.Take(10));
        unknown.sink.Post();
        EXPECT_THAT(unknown.posts, IsEmpty()) << "a percentage of nothing";
    }
    GSinkTrial large;
    EXPECT_TRUE(large.sink.Begin(std::uint64_t{1} << 40));
    large.Take(10);
    large.sink.Post();
    EXPECT_THAT(large.posts, ElementsAre(0));
}

TEST(Download, EndsWhenItsLimitIsReached)
{
    GSinkTrial trial(1000);
    EXPECT_TRUE(trial.Take(999));
    EXPECT_FALSE(trial.sink.LimitReached());
    EXPECT_FALSE(trial.Take(5));
    EXPECT_TRUE(trial.sink.LimitReached());
    EXPECT_EQ(trial.sink.Total(), 1004u);
    GSinkTrial none(0);
    EXPECT_FALSE(none.Take(1));
}

TEST(Cleaning, TakesWhatNobodyUsesAndOnlyFilesOfDownloads)
{
    const GTempDirectory directory;
    for (const char* name : {"mp4AAAA.tmp", "mp4.tmp", "mp3AAAA.tmp", "mp4AAAA.tmp.mp4", "my.mp4"})
        std::ofstream(directory.Path() / name) << "x";
    GLockedTempFile used;
    ASSERT_TRUE(used.Create("mp4", directory.Path().string()));
    DeleteStaleDownloads(directory.Path().string());
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(directory.Path()))
        left.push_back(entry.path().filename().string());
    EXPECT_THAT(left, testing::UnorderedElementsAre("mp3AAAA.tmp", "mp4AAAA.tmp.mp4", "my.mp4",
                                                    fs::path(used.Path()).filename().string()));
}

}  // namespace
}  // namespace vex::test
