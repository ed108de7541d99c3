#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <fstream>
#include <thread>

#include "platform/file.h"
#include "platform/text.h"
#include "platform/threads.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

TEST(FileErrors, APipeWithoutAWriterIsRefusedAndNotWaitedFor)
{
    const GTempDirectory directory;
    const std::string path = (directory.Path() / "pipe").string();
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    GOsFile file;
    EXPECT_FALSE(file.OpenForReading(path.c_str()));
    EXPECT_FALSE(file.OpenForReading("/dev/zero")) << "a file without an end";
}

TEST(TextPaths, ANameThatIsNoUtf8SurvivesItsWayThroughWideText)
{
    const GTempDirectory directory;
    const std::string names[] = {"caf\xE9.avi", "\xFF\xFE\x80",         "\xED\xA0\x80\xED\xB0\x80",
                                 "\xE2\x82",    "\xF0\x9F\x98\x80\xC0", "\xEF\xBB\xBF\xEF\xBB\xBF\xFF"};
    for (const std::string& name : names) {
        const std::string path = (directory.Path() / name).string();
        std::ofstream(path) << "x";
        const std::string back = NarrowPathFromWide(WideFromNarrowPath(path));
        EXPECT_EQ(back, path);
        EXPECT_EQ(WideFromPathArgument(path), WideFromNarrowPath(path));
        GOsFile file;
        EXPECT_TRUE(file.OpenForReading(back.c_str())) << name;
    }
}

TEST(ThreadName, ALongNameIsCutAndNotRefused)
{
    std::thread([] {
        SetCurrentThreadName("a name of far more than fifteen characters");
        char name[16] = {};
        EXPECT_EQ(::pthread_getname_np(::pthread_self(), name, sizeof(name)), 0);
        EXPECT_STREQ(name, "a name of far m");
    }).join();
}

}  // namespace
}  // namespace vex::test
