#include "platform/registry.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/private_registry.h"

namespace vex::test {
namespace {

constexpr WStringView kKey = VEX_W("CLSID\\{00000000-1111-2222-3333-444444444444}");
constexpr WStringView kServer = VEX_W("CLSID\\{00000000-1111-2222-3333-444444444444}\\InprocServer32");

class Registry : public testing::Test {
    GPrivateRegistry own;
};

TEST_F(Registry, WritingTwiceLeavesOneKeyWithTheLastValue)
{
    for (const WStringView path : {WStringView(VEX_W("first.ax")), WStringView(VEX_W("C:\\second.ax"))}) {
        EXPECT_EQ(GClassesRoot::SetString(kServer, {}, path), S_OK);
        EXPECT_EQ(GClassesRoot::SetString(kServer, VEX_W("ThreadingModel"), VEX_W("Both")), S_OK);
    }
    EXPECT_EQ(GClassesRoot::GetString(kServer, {}), VEX_W("C:\\second.ax"));
    EXPECT_EQ(GClassesRoot::GetString(kServer, VEX_W("threadingmodel")), VEX_W("Both")) << "names have no case";
    EXPECT_EQ(GClassesRoot::SubKeys(kKey), std::vector<WString>{VEX_W("InprocServer32")});
    EXPECT_EQ(GClassesRoot::SubKeys(VEX_W("clsid")).size(), 1u) << "keys have no case";
    EXPECT_EQ(GClassesRoot::GetString(kKey, {}), std::nullopt) << "a parent that was only made on the way";
    EXPECT_EQ(GClassesRoot::GetString(VEX_W("missing"), {}), std::nullopt);
}

TEST_F(Registry, DeletingTakesEverythingBelowAndNothingBeside)
{
    const WString neighbour = WString(kKey) + VEX_W("x");
    EXPECT_EQ(GClassesRoot::SetString(kServer, {}, VEX_W("a")), S_OK);
    for (int i = 0; i < 5; ++i) {
        const WString deep = WString(kKey) + VEX_W("\\a\\b") + static_cast<WCHAR>('0' + i) + VEX_W("\\c");
        EXPECT_EQ(GClassesRoot::SetString(deep, {}, VEX_W("deep")), S_OK);
    }
    EXPECT_EQ(GClassesRoot::SetString(neighbour, {}, VEX_W("stays")), S_OK);
    EXPECT_EQ(GClassesRoot::DeleteTree(kKey), S_OK);
    EXPECT_EQ(GClassesRoot::GetString(kServer, {}), std::nullopt);
    EXPECT_TRUE(GClassesRoot::SubKeys(kKey).empty());
    EXPECT_EQ(GClassesRoot::SubKeys(VEX_W("CLSID")).size(), 1u);
    EXPECT_EQ(GClassesRoot::GetString(neighbour, {}), VEX_W("stays"));
    EXPECT_EQ(GClassesRoot::DeleteTree(kKey), S_OK) << "a key that is gone";
}

TEST_F(Registry, AnythingThatWouldBeTheRootIsRefused)
{
    EXPECT_EQ(GClassesRoot::SetString(kKey, {}, VEX_W("stays")), S_OK);
    for (const WStringView key : {WStringView(), WStringView(VEX_W("\\")), WStringView(VEX_W("\\CLSID")),
                                  WStringView(VEX_W("CLSID\\")), WStringView(VEX_W("CLSID\\\\x"))}) {
        EXPECT_EQ(GClassesRoot::DeleteTree(key), E_INVALIDARG);
        EXPECT_EQ(GClassesRoot::SetString(key, {}, VEX_W("x")), E_INVALIDARG);
    }
    EXPECT_EQ(GClassesRoot::GetString(kKey, {}), VEX_W("stays"));
}

TEST_F(Registry, ValuesComeBackAsTheyWere)
{
    const WString odd[] = {WString(),
                           VEX_W("\"quoted\" \\ back\\\\slash"),
                           VEX_W("two\r\nlines\t[\"key\"]\n@=\"x\""),
                           VEX_W("\u65E5\u672C \U0001F600 \u00E9"),
                           WString(1, static_cast<WCHAR>(0xD800)) + VEX_W("z"),
                           WString(5'000, 'x')};
    for (const WString& text : odd) {
        EXPECT_EQ(GClassesRoot::SetString(kKey, VEX_W("odd \"na\\me\""), text), S_OK);
        EXPECT_EQ(GClassesRoot::SetString(kKey, {}, text), S_OK);
        EXPECT_EQ(GClassesRoot::GetString(kKey, VEX_W("odd \"na\\me\"")), text);
        EXPECT_EQ(GClassesRoot::GetString(kKey, {}), text);
    }
}

TEST(ModulePath, IsAbsoluteAndNamesThisProgram)
{
    WString path;
    ASSERT_EQ(GetOwnModulePath(path), S_OK);
    EXPECT_NE(path.find(VEX_W("platform_test")), WString::npos);
    EXPECT_TRUE(path.front() == '/' || path[1] == ':');
}

}  // namespace
}  // namespace vex::test
