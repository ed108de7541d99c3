#include <gtest/gtest.h>

#include "platform/com.h"
#include "platform/dynamic_library.h"
#include "platform/text.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

TEST(ErrorInfo, WhatALoadedModuleSaysReachesTheProgramAndOutlivesTheModule)
{
    const GTempDirectory directory;
    const std::string path = (directory.Path() / "caf\xE9.so").string();  // a name that is no UTF-8
    std::filesystem::copy_file(VEX_TEST_MODULE, path);
    GComPtr<IErrorInfo> error;
    {
        GDynamicLibrary module;
        ASSERT_TRUE(module.Open(WideFromNarrowPath(path))) << module.LastError();
        const auto raise = module.Symbol<HRESULT (*)(OLECHAR*)>("RaiseError");
        ASSERT_NE(raise, nullptr);
        WCHAR text[] = VEX_W("from the module");
        EXPECT_EQ(raise(text), E_FAIL);
    }
    ASSERT_EQ(GetErrorInfo(0, error.Put()), S_OK);
    BSTR text = nullptr;
    EXPECT_EQ(error->GetDescription(&text), S_OK);
    EXPECT_EQ(WString(text, SysStringLen(text)), VEX_W("from the module"));
    SysFreeString(text);
}

}  // namespace
}  // namespace vex::test
