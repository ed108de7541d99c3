#include "platform/com.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "platform/threads.h"

namespace vex::test {
namespace {

GComPtr<IErrorInfo> NewError(const WCHAR* description)
{
    GComPtr<ICreateErrorInfo> writer;
    EXPECT_EQ(CreateErrorInfo(writer.Put()), S_OK);
    WString text(description);
    EXPECT_EQ(writer->SetDescription(text.data()), S_OK);
    text[0] = '!';
    return QueryFor<IErrorInfo>(writer.Get(), IID_IErrorInfo);
}

GComPtr<IErrorInfo> TakeError()
{
    GComPtr<IErrorInfo> error;
    GetErrorInfo(0, error.Put());
    return error;
}

WString Description(IErrorInfo& error)
{
    BSTR text = nullptr;
    EXPECT_EQ(error.GetDescription(&text), S_OK);
    WString result(text, SysStringLen(text));
    SysFreeString(text);
    return result;
}

ULONG References(const GComPtr<IErrorInfo>& object)
{
    object->AddRef();
    return object->Release();
}

TEST(ErrorInfo, BelongsToOneThreadAndIsHandedOverOnce)
{
    SetErrorInfo(0, NewError(VEX_W("no chunk at 20")).Get());
    GNativeThread([] {
        EXPECT_FALSE(TakeError()) << "another thread's";
        SetErrorInfo(0, nullptr);
    }).join();
    GComPtr<IErrorInfo> reader = TakeError();
    ASSERT_TRUE(reader);
    EXPECT_EQ(Description(*reader), VEX_W("no chunk at 20"));
    EXPECT_EQ(GetErrorInfo(0, reader.Put()), S_FALSE);
    EXPECT_FALSE(reader);
}

TEST(ErrorInfo, WhatIsReplacedOrLeftBehindByAnEndingThreadIsReleased)
{
    const auto first = NewError(VEX_W("1"));
    const auto second = NewError(VEX_W("2"));
    SetErrorInfo(0, first.Get());
    EXPECT_EQ(References(first), 2u);
    SetErrorInfo(0, second.Get());
    EXPECT_EQ(References(first), 1u);
    SetErrorInfo(0, second.Get());
    EXPECT_EQ(References(second), 2u) << "put in its own place";
    SetErrorInfo(0, nullptr);
    EXPECT_EQ(References(second), 1u);
    GNativeThread([&first] { SetErrorInfo(0, first.Get()); }).join();
    EXPECT_EQ(References(first), 1u);
}

TEST(Bstr, TheLengthInBytesLiesBeforeATextThatMayHoldNuls)
{
    const WCHAR source[] = {'a', 0, 'b', 0, 'c'};
    const BSTR text = SysAllocStringLen(source, 5);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(SysStringLen(text), 5u);
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, reinterpret_cast<const char*>(text) - 4, 4);
    EXPECT_EQ(bytes, 10u);
    EXPECT_EQ(std::memcmp(text, source, sizeof(source)), 0);
    EXPECT_EQ(text[5], 0);
    SysFreeString(text);

    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    SysFreeString(nullptr);
    // Twice these and the prefix no longer fit 32 bits.
    for (const UINT length : {std::numeric_limits<UINT>::max(), 0x80000000u, 0x7FFFFFFFu})
        EXPECT_EQ(SysAllocStringLen(nullptr, length), nullptr);
}

TEST(GuidText, IsUpperCaseInBracesAndNeverCutOff)
{
    const GUID guid{0x0A1B2C3D, 0x00EF, 0xABCD, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
    WCHAR text[40] = {};
    text[39] = '!';
    EXPECT_EQ(StringFromGUID2(guid, text, 38), 0);
    EXPECT_EQ(StringFromGUID2(guid, text, 39), 39);
    EXPECT_EQ(WString(text), VEX_W("{0A1B2C3D-00EF-ABCD-0123-456789ABCDEF}"));
    EXPECT_EQ(text[39], '!');
}

}  // namespace
}  // namespace vex::test
