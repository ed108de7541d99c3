// What registering writes and unregistering takes away, in a registry of the test's own.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "module/filter_table.h"
#include "platform/exports.h"
#include "platform/private_registry.h"

namespace vex::test {

namespace {

class Registration : public testing::Test {
protected:
    static std::size_t Classes() { return GClassesRoot::SubKeys(VEX_W("CLSID")).size(); }
    static std::size_t Mapped() { return GClassesRoot::SubKeys(VEX_W("FilterMapper")).size(); }

private:
    GPrivateRegistry own;
};

WString KeyOf(const WCHAR* branch, REFCLSID clsid)
{
    WCHAR text[39] = {};
    StringFromGUID2(clsid, text, 39);
    return WString(branch) + text;
}

// No file may grow beyond `bytes` while it lives: the disk is full.
class GFullDisk {
public:
    explicit GFullDisk(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);  // the write fails instead
        getrlimit(RLIMIT_FSIZE, &before);
        rlimit lower = before;
        lower.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &lower);
    }
    ~GFullDisk() { setrlimit(RLIMIT_FSIZE, &before); }
    GFullDisk(const GFullDisk&) = delete;
    GFullDisk& operator=(const GFullDisk&) = delete;

private:
    rlimit before{};
};

}  // namespace

TEST_F(Registration, TwiceLeavesOneSetOfEverything)
{
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(DllRegisterServer(), S_OK);
        EXPECT_EQ(Classes(), 12u);
        EXPECT_EQ(Mapped(), 12u);
    }
    WString module;
    ASSERT_EQ(GetOwnModulePath(module), S_OK);
    for (const CFactoryTemplate& row : FilterTable()) {
        const WString key = KeyOf(VEX_W("CLSID\\"), row.clsid);
        EXPECT_EQ(GClassesRoot::GetString(key, {}), WString(row.name));
        EXPECT_EQ(GClassesRoot::GetString(key + VEX_W("\\InprocServer32"), {}), module);
        EXPECT_EQ(GClassesRoot::GetString(key + VEX_W("\\InprocServer32"), VEX_W("ThreadingModel")), VEX_W("Both"));
        const WString mapped = KeyOf(VEX_W("FilterMapper\\"), row.clsid);
        EXPECT_EQ(GClassesRoot::GetString(mapped, VEX_W("name")), WString(row.name));
        EXPECT_EQ(GClassesRoot::GetString(mapped, VEX_W("merit")), VEX_W("00200000")) << "never chosen by itself";
        EXPECT_EQ(GClassesRoot::GetString(mapped, VEX_W("pins")), VEX_W("Output\toutput"));
    }
}

TEST_F(Registration, UndoneTakesEverySubkeyAndNothingElse)
{
    ASSERT_EQ(GClassesRoot::SetString(VEX_W("CLSID\\{somebody}"), {}, VEX_W("else")), S_OK);
    ASSERT_EQ(DllRegisterServer(), S_OK);
    const WString first = KeyOf(VEX_W("CLSID\\"), FilterTable().front().clsid);
    ASSERT_EQ(GClassesRoot::SetString(first + VEX_W("\\Added\\later"), {}, VEX_W("x")), S_OK);
    ASSERT_EQ(DllUnregisterServer(), S_OK);
    EXPECT_EQ(Classes(), 1u);
    EXPECT_EQ(Mapped(), 0u);
    EXPECT_EQ(DllUnregisterServer(), S_OK) << "a missing entry is not a failure";
}

TEST_F(Registration, StopsAtTheFirstFilterThatFailsAndLeavesTheMapperAlone)
{
    HRESULT result = S_OK;
    {
        const GFullDisk full(1500);
        result = DllRegisterServer();
    }
    EXPECT_TRUE(FAILED(result));
    EXPECT_GT(Classes(), 0u);
    EXPECT_LT(Classes(), 12u);
    EXPECT_EQ(Mapped(), 0u);
    EXPECT_EQ(DllRegisterServer(), S_OK) << "another try completes it";
    EXPECT_EQ(Classes(), 12u);
}

TEST_F(Registration, UndoingKeepsTheKeysWhenTheMapperFails)
{
    ASSERT_EQ(DllRegisterServer(), S_OK);
    HRESULT result = S_OK;
    {
        const GFullDisk full(10);
        result = DllUnregisterServer();
    }
    EXPECT_TRUE(FAILED(result));
    EXPECT_EQ(Classes(), 12u);
}

}  // namespace vex::test
