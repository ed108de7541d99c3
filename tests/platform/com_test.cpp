#include "platform/com.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <limits>
#include <thread>

namespace vex::test {
namespace {

// An error object of somebody else's make that counts its references.
class GForeignError final : public IErrorInfo {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        *ppv = IsEqualGUID(riid, IID_IErrorInfo) || IsEqualGUID(riid, IID_IUnknown) ? this : nullptr;
        if (!*ppv)
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references); }
    HRESULT STDMETHODCALLTYPE GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD*) override { return E_NOTIMPL; }

    virtual ~GForeignError() = default;
    std::atomic<int> references{0};
};

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

TEST(ErrorInfo, TheTextSetByOneInterfaceIsReadByTheOtherAndHandedOverOnce)
{
    GComPtr<ICreateErrorInfo> writer;
    ASSERT_EQ(CreateErrorInfo(writer.Put()), S_OK);
    WCHAR text[] = VEX_W("no chunk at 20");
    EXPECT_EQ(writer->SetDescription(text), S_OK);
    text[0] = 'N';
    EXPECT_EQ(SetErrorInfo(0, QueryFor<IErrorInfo>(writer.Get(), IID_IErrorInfo).Get()), S_OK);
    writer.Reset();

    GComPtr<IErrorInfo> reader = TakeError();
    ASSERT_TRUE(reader);
    EXPECT_EQ(Description(*reader), VEX_W("no chunk at 20"));
    EXPECT_EQ(GetErrorInfo(0, reader.Put()), S_FALSE);
    EXPECT_FALSE(reader);
}

TEST(ErrorInfo, AnErrorOfOneThreadIsNotSeenByAnother)
{
    GForeignError mine;
    SetErrorInfo(0, &mine);
    std::thread([] {
        EXPECT_FALSE(TakeError());
        SetErrorInfo(0, nullptr);
    }).join();
    EXPECT_EQ(TakeError().Get(), &mine);
    EXPECT_EQ(mine.references, 0);
}

TEST(ErrorInfo, WhatIsReplacedOrLeftBehindByAnEndingThreadIsReleased)
{
    GForeignError first;
    GForeignError second;
    SetErrorInfo(0, &first);
    EXPECT_EQ(first.references, 1);
    SetErrorInfo(0, &second);
    EXPECT_EQ(first.references, 0);
    SetErrorInfo(0, &second);
    EXPECT_EQ(second.references, 1) << "put in its own place";
    SetErrorInfo(0, nullptr);
    EXPECT_EQ(second.references, 0);

    std::thread([&first] { SetErrorInfo(0, &first); }).join();
    EXPECT_EQ(first.references, 0);
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
}

TEST(Bstr, AbsentEmptyAndAbsurdLengths)
{
    EXPECT_EQ(SysAllocString(nullptr), nullptr);
    EXPECT_EQ(SysStringLen(nullptr), 0u);
    SysFreeString(nullptr);
    const BSTR empty = SysAllocStringLen(nullptr, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty[0], 0);
    SysFreeString(empty);
    // Twice these and the prefix no longer fit 32 bits.
    for (const UINT length : {std::numeric_limits<UINT>::max(), 0x80000000u, 0x7FFFFFFFu})
        EXPECT_EQ(SysAllocStringLen(nullptr, length), nullptr);
}

TEST(TaskMemory, ReallocTakesAndGivesNullLikeAllocAndFree)
{
    void* block = CoTaskMemRealloc(nullptr, 4);
    ASSERT_NE(block, nullptr);
    std::memcpy(block, "abcd", 4);
    block = CoTaskMemRealloc(block, 4'096);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::memcmp(block, "abcd", 4), 0);
    EXPECT_EQ(CoTaskMemRealloc(block, 0), nullptr);
    void* none = CoTaskMemAlloc(0);
    EXPECT_NE(none, nullptr) << "nothing to store is no failure";
    CoTaskMemFree(none);
    CoTaskMemFree(nullptr);
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

TEST(ComPointer, AnObjectIsReleasedExactlyAsOftenAsItWasReferenced)
{
    GForeignError object;
    {
        GComPtr<IErrorInfo> first(&object);
        GComPtr<IErrorInfo> second = first;
        GComPtr<IErrorInfo> third = std::move(first);
        EXPECT_EQ(object.references, 2);
        GComPtr<IErrorInfo>& alias = second;
        second = alias;
        third = second;
        EXPECT_EQ(object.references, 2);
        EXPECT_FALSE(QueryFor<IUnknown>(third.Get(), IID_IClassFactory));
        EXPECT_TRUE(QueryFor<IUnknown>(third.Get(), IID_IUnknown));
        EXPECT_EQ(object.references, 2);
        object.AddRef();
        second = GComPtr<IErrorInfo>::Adopt(&object);
        EXPECT_EQ(object.references, 2);
    }
    EXPECT_EQ(object.references, 0);
}

}  // namespace
}  // namespace vex::test
