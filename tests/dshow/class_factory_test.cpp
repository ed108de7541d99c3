#include <gtest/gtest.h>

#include "formats/avi/avi_interface.h"
#include "formats/mkv/mkv_interface.h"
#include "module/filter_table.h"
#include "platform/exports.h"
#include "platform/pipeline.h"

namespace vex::test {

namespace {

GComPtr<IClassFactory> Factory(REFCLSID clsid)
{
    GComPtr<IClassFactory> factory;
    EXPECT_EQ(DllGetClassObject(clsid, IID_IClassFactory, factory.PutVoid()), S_OK);
    return factory;
}

CUnknown* OutOfMemory(IUnknown*, HRESULT* result)
{
    *result = E_OUTOFMEMORY;
    return nullptr;
}

CUnknown* Throwing(IUnknown*, HRESULT*) { throw std::bad_alloc(); }

}  // namespace

TEST(ClassFactory, RefusesWhatItDoesNotServe)
{
    void* out = &out;
    EXPECT_EQ(DllGetClassObject(IID_IUnknown, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(DllGetClassObject(CLSID_VexAvi, IID_IBaseFilter, &out), E_NOINTERFACE);
    EXPECT_EQ(DllGetClassObject(CLSID_VexAvi, IID_IClassFactory, nullptr), E_POINTER);
    const auto factory = Factory(CLSID_VexAvi);
    out = &out;
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IPin, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IBaseFilter, nullptr), E_POINTER);
    EXPECT_TRUE(QueryFor<IUnknown>(factory.Get(), IID_IUnknown));
}

TEST(ClassFactory, EveryRowOfTheTableHasAFactory)
{
    ASSERT_EQ(FilterTable().size(), 12u);
    for (const CFactoryTemplate& row : FilterTable()) {
        GComPtr<IBaseFilter> filter;
        ASSERT_EQ(Factory(row.clsid)->CreateInstance(nullptr, IID_IBaseFilter, filter.PutVoid()), S_OK);
        CLSID id = GUID_NULL;
        EXPECT_EQ(filter->GetClassID(&id), S_OK);
        EXPECT_EQ(id, row.clsid);
    }
}

TEST(ClassFactory, FailuresOfTheCreationFunctionStayInside)
{
    const CFactoryTemplate table[] = {{VEX_W("a"), CLSID_VexAvi, OutOfMemory, {}},
                                      {VEX_W("b"), CLSID_VexMkv, Throwing, {}}};
    for (const CFactoryTemplate& row : table) {
        GComPtr<IClassFactory> factory;
        ASSERT_EQ(GetClassObject(table, row.clsid, IID_IClassFactory, factory.PutVoid()), S_OK);
        void* out = nullptr;
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, &out), E_OUTOFMEMORY);
    }
}

TEST(Unloading, WaitsForObjectsFactoriesAndLocks)
{
    ASSERT_EQ(DllCanUnloadNow(), S_OK);
    auto factory = Factory(CLSID_VexAvi);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "a factory is held";
    GComPtr<IBaseFilter> filter;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IBaseFilter, filter.PutVoid()), S_OK);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    EXPECT_EQ(factory->LockServer(FALSE), S_OK);
    factory.Reset();
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
    GComPtr<IEnumPins> pins;
    ASSERT_EQ(filter->EnumPins(pins.Put()), S_OK);
    filter.Reset();
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "an enumerator is held, and with it its filter";
    pins.Reset();
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "locked";
    EXPECT_EQ(Factory(CLSID_VexAvi)->LockServer(FALSE), S_OK);
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

}  // namespace vex::test
