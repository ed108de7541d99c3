#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>

#include "platform/private_registry.h"
#include "platform/registry.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

constexpr std::uint32_t kErrorBadDb = 1009;

WString NumberedKey(int number) { return u"CLSID\\p" + WString(1, static_cast<WCHAR>(0x4E00 + number)); }

std::string FileText()
{
    std::ifstream in(std::string(std::getenv("VEX_REGISTRY_DIR")) + "/registry.txt");
    return {std::istreambuf_iterator<char>(in), {}};
}

class RegistryFile : public testing::Test {
    GPrivateRegistry own;
};

TEST_F(RegistryFile, ProcessesThatWriteAtTheSameTimeLoseNothing)
{
    constexpr int kProcesses = 4;
    constexpr int kKeys = 20;
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child != 0) {
            children.push_back(child);
            continue;
        }
        bool good = true;
        for (int i = 0; i < kKeys; ++i)
            good = good && GClassesRoot::SetString(NumberedKey(process * kKeys + i), {}, u"x") == S_OK;
        ::_exit(good ? 0 : 1);
    }
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(GClassesRoot::SubKeys(u"CLSID").size(), static_cast<std::size_t>(kProcesses * kKeys));
}

TEST_F(RegistryFile, AReaderNeverMeetsAHalfWrittenFile)
{
    ASSERT_EQ(GClassesRoot::SetString(u"CLSID\\steady", {}, u"here"), S_OK);
    std::atomic<bool> done{false};
    std::thread writer([&done] {
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(GClassesRoot::SetString(u"CLSID\\busy", {}, WString(static_cast<std::size_t>(i * 37), u'x')),
                      S_OK);
        done = true;
    });
    do {
        EXPECT_EQ(GClassesRoot::GetString(u"CLSID\\steady", {}), u"here");
    } while (!done);
    writer.join();
}

TEST_F(RegistryFile, AFileThatIsNotOursIsReportedAndLeftAlone)
{
    const std::string contents[] = {"[\"CLSID\"\n",
                                    "@=\"a value before any key\"\n",
                                    "[\"a\"]\n\"name\"\"value\"\n",
                                    "[\"a\"]\n@=\"\\x12\"\n",
                                    "[\"a\"]\n@=\"ends in\\",
                                    "\"",
                                    "#!/bin/sh\n"};
    for (const std::string& content : contents) {
        std::ofstream(std::string(std::getenv("VEX_REGISTRY_DIR")) + "/registry.txt") << content;
        EXPECT_EQ(GClassesRoot::SetString(u"CLSID\\x", {}, u"x"), HResultFromOsError(kErrorBadDb)) << content;
        EXPECT_EQ(GClassesRoot::DeleteTree(u"CLSID"), HResultFromOsError(kErrorBadDb));
        EXPECT_EQ(GClassesRoot::GetString(u"a", {}), std::nullopt);
        EXPECT_EQ(FileText(), content);
    }
}

TEST(RegistryDirectory, OneThatCannotBeMadeIsAWin32Failure)
{
    const GTempFile file({});
    ::setenv("VEX_REGISTRY_DIR", (std::string(file.Path()) + "/below").c_str(), 1);
    const HRESULT results[] = {GClassesRoot::SetString(u"CLSID\\x", {}, u"x"), GClassesRoot::DeleteTree(u"CLSID\\x"),
                               GFilterMapper().Register({{}, u"name", 0, {}}), GFilterMapper().Unregister({})};
    for (const HRESULT hr : results)
        EXPECT_EQ(static_cast<std::uint32_t>(hr) & 0xFFFF0000u, 0x80070000u);
    EXPECT_EQ(GClassesRoot::GetString(u"CLSID\\x", {}), std::nullopt);
    ::unsetenv("VEX_REGISTRY_DIR");
}

TEST(RegistryDirectory, OneThatIsMissingIsMadeWithItsParents)
{
    const GTempDirectory home;
    ::setenv("XDG_DATA_HOME", (home.Path() / "not" / "there").c_str(), 1);
    EXPECT_EQ(GClassesRoot::SetString(u"CLSID\\x", {}, u"x"), S_OK);
    EXPECT_TRUE(std::filesystem::exists(home.Path() / "not/there/vex/registry.txt"));
    ::unsetenv("XDG_DATA_HOME");  // the other tests have a registry of their own
}

}  // namespace
}  // namespace vex::test
