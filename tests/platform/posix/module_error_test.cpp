#include <gtest/gtest.h>

#include "platform/com.h"
#include "platform/dynamic_library.h"
#include "platform/text.h"

namespace vex::test {
namespace {

TEST(ErrorInfo, WhatALoadedModuleSaysReachesTheProgramAndOutlivesTheModule)
{
    GComPtr<IErrorInfo> error;
    {
        GDynamicLibrary module;
        ASSERT_TRUE(module.Open(WideFromAnsi(VEX_TEST_MODULE))) << module.LastError();
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
