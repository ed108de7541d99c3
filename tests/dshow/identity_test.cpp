// The rules of COM: reference counts, QueryInterface, aggregation, enumeration.
#include <gtest/gtest.h>

#include "dshow/media_sample.h"
#include "module/class_ids.h"
#include "platform/exports.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

// What can be asked of a filter, and what of a pin.
const std::vector<IID> kFilterInterfaces{IID_IUnknown,          IID_IPersist,    IID_IMediaFilter,     IID_IBaseFilter,
                                         IID_IFileSourceFilter, IID_IVexInspect, IID_ISupportErrorInfo};
const std::vector<IID> kPinInterfaces{IID_IUnknown, IID_IPin, IID_IQualityControl, IID_IMediaSeeking};

GComPtr<IUnknown> Ask(IUnknown* from, REFIID iid) { return QueryFor<IUnknown>(from, iid); }

// The count after one AddRef and Release.
ULONG References(IUnknown* object)
{
    object->AddRef();
    return object->Release();
}

// Reflexive, symmetric and transitive over every pair and triple, one identity, and balanced counts.
void CheckRules(IUnknown* object, const std::vector<IID>& interfaces, const std::vector<IID>& foreign)
{
    const ULONG before = References(object);
    const auto identity = Ask(object, IID_IUnknown);
    for (const IID& first : interfaces) {
        const auto a = Ask(object, first);
        ASSERT_TRUE(a);
        EXPECT_EQ(Ask(a.Get(), IID_IUnknown).Get(), identity.Get());
        EXPECT_EQ(Ask(a.Get(), first).Get(), a.Get());
        for (const IID& second : interfaces) {
            const auto b = Ask(a.Get(), second);
            ASSERT_TRUE(b);
            EXPECT_TRUE(Ask(b.Get(), first)) << "not symmetric";
            EXPECT_EQ(Ask(b.Get(), IID_IUnknown).Get(), identity.Get());
            for (const IID& third : interfaces)
                EXPECT_TRUE(Ask(b.Get(), third)) << "not transitive";
        }
        for (const IID& other : foreign) {
            void* out = object;
            EXPECT_EQ(a->QueryInterface(other, &out), E_NOINTERFACE);
            EXPECT_EQ(out, nullptr);
        }
        EXPECT_EQ(a->QueryInterface(first, nullptr), E_POINTER);
    }
    EXPECT_EQ(References(object), before + 1) << "what is left is the identity held here";
}

// An object that has a filter inside, as an application may make one.
class COuter final : public IUnknown {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        if (riid == IID_IUnknown) {
            *ppv = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        return inner->QueryInterface(riid, ppv);
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }

    IUnknown* inner = nullptr;
    std::atomic<ULONG> references{1};
};

}  // namespace

TEST(Identity, OfAFilterAndItsPins)
{
    GRig rig(Movie(3));
    CheckRules(rig.Filter(), kFilterInterfaces, {IID_IPin, IID_IMediaSeeking, IID_IVexAVI});
    CheckRules(rig.Pin(0), kPinInterfaces, {IID_IBaseFilter, IID_IFileSourceFilter, IID_IMemInputPin});
    EXPECT_NE(Ask(rig.Pin(0), IID_IUnknown).Get(), Ask(rig.Pin(1), IID_IUnknown).Get());
    EXPECT_NE(Ask(rig.Pin(0), IID_IUnknown).Get(), Ask(rig.Filter(), IID_IUnknown).Get());
}

TEST(Identity, OfEnumeratorsAllocatorsAndSamples)
{
    GRig rig(Movie(3));
    GComPtr<IEnumPins> pins;
    GComPtr<IEnumMediaTypes> types;
    rig.Filter()->EnumPins(pins.Put());
    rig.Pin(0)->EnumMediaTypes(types.Put());
    CheckRules(pins.Get(), {IID_IUnknown, IID_IEnumPins}, {IID_IBaseFilter});
    CheckRules(types.Get(), {IID_IUnknown, IID_IEnumMediaTypes}, {IID_IPin});
    const GComPtr<CMemAllocator> allocator(new CMemAllocator);
    CheckRules(static_cast<IMemAllocator*>(allocator.Get()), {IID_IUnknown, IID_IMemAllocator}, {IID_IMediaSample});
    ALLOCATOR_PROPERTIES request{1, 1, 1, 0};
    allocator->SetProperties(&request, &request);
    allocator->Commit();
    GComPtr<IMediaSample> sample;
    ASSERT_EQ(allocator->GetBuffer(sample.Put(), nullptr, nullptr, 0), S_OK);
    CheckRules(sample.Get(), {IID_IUnknown, IID_IMediaSample}, {IID_IMemAllocator});
    sample.Reset();
    allocator->Decommit();
}

TEST(Identity, APinKeepsItsFilterAliveAndCountsOnIt)
{
    GRig rig(Movie(3));
    const ULONG before = References(rig.Filter());
    GComPtr<IPin> pin(rig.Pin(0));
    EXPECT_EQ(References(rig.Filter()), before + 1);
    GComPtr<IEnumMediaTypes> types;
    rig.Pin(0)->EnumMediaTypes(types.Put());
    EXPECT_EQ(References(rig.Filter()), before + 2);
}

TEST(Aggregation, TheOuterObjectIsTheIdentityOfFilterAndCount)
{
    const LONG before = CUnknown::ObjectsActive();
    COuter outer;
    {
        GComPtr<IClassFactory> factory;
        ASSERT_EQ(DllGetClassObject(CLSID_VexAvi, IID_IClassFactory, factory.PutVoid()), S_OK);
        GComPtr<IUnknown> inner;
        EXPECT_EQ(factory->CreateInstance(&outer, IID_IBaseFilter, inner.PutVoid()), E_NOINTERFACE)
            << "only the inner unknown may be asked for";
        ASSERT_EQ(factory->CreateInstance(&outer, IID_IUnknown, inner.PutVoid()), S_OK);
        outer.inner = inner.Get();

        EXPECT_EQ(Ask(inner.Get(), IID_IUnknown).Get(), inner.Get()) << "the inner unknown answers for itself";
        EXPECT_EQ(outer.references, 1u);
        {
            const auto filter = QueryFor<IBaseFilter>(&outer, IID_IBaseFilter);
            ASSERT_TRUE(filter);
            EXPECT_EQ(outer.references, 2u) << "an interface of the inner object counts on the outer one";
            EXPECT_EQ(References(inner.Get()), 1u);
            EXPECT_EQ(Ask(filter.Get(), IID_IUnknown).Get(), &outer);
            EXPECT_TRUE(Ask(filter.Get(), IID_IVexAVI));
            CheckRules(filter.Get(), kFilterInterfaces, {IID_IPin});
        }
        EXPECT_EQ(outer.references, 1u);
    }
    EXPECT_EQ(CUnknown::ObjectsActive(), before);
}

TEST(Aggregation, PinsOfAnInnerFilterKeepTheOuterObject)
{
    COuter outer;
    {
        auto* filter = new CScriptedFilter(Movie(3), kAviRules, std::make_shared<GScriptLog>(), &outer);
        const GComPtr<IUnknown> inner(filter->NonDelegatingUnknown());
        outer.inner = inner.Get();
        ASSERT_EQ(filter->Load(VEX_W("x"), nullptr), S_OK);
        {
            GComPtr<IEnumPins> pins;
            ASSERT_EQ(filter->EnumPins(pins.Put()), S_OK);
            GComPtr<IPin> pin;
            ASSERT_EQ(pins->Next(1, pin.Put(), nullptr), S_OK);
            PIN_INFO info{};
            ASSERT_EQ(pin->QueryPinInfo(&info), S_OK);
            const auto owner = GComPtr<IBaseFilter>::Adopt(info.pFilter);
            EXPECT_EQ(outer.references, 4u);
            EXPECT_EQ(Ask(owner.Get(), IID_IUnknown).Get(), &outer);
            EXPECT_NE(Ask(pin.Get(), IID_IUnknown).Get(), &outer) << "a pin is an object of its own";
        }
        EXPECT_EQ(outer.references, 1u);
    }
}

TEST(Enumeration, OfPins)
{
    GRig rig(Movie(3));
    GComPtr<IEnumPins> pins;
    ASSERT_EQ(rig.Filter()->EnumPins(pins.Put()), S_OK);
    EXPECT_EQ(rig.Filter()->EnumPins(nullptr), E_POINTER);
    IPin* fetched[3] = {};
    ULONG count = 9;
    EXPECT_EQ(pins->Next(3, fetched, nullptr), E_INVALIDARG);
    EXPECT_EQ(pins->Next(1, nullptr, &count), E_POINTER);
    EXPECT_EQ(pins->Next(3, fetched, &count), S_FALSE);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(fetched[1], rig.Pin(1));
    fetched[0]->Release();
    fetched[1]->Release();
    EXPECT_EQ(pins->Next(1, fetched, &count), S_FALSE);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(pins->Reset(), S_OK);
    EXPECT_EQ(pins->Skip(1), S_OK);
    GComPtr<IEnumPins> copy;
    ASSERT_EQ(pins->Clone(copy.Put()), S_OK);
    EXPECT_EQ(pins->Skip(2), S_FALSE);
    GComPtr<IPin> second;
    EXPECT_EQ(copy->Next(1, second.Put(), nullptr), S_OK) << "a clone goes on from where it was made";
    EXPECT_EQ(second.Get(), rig.Pin(1));
    EXPECT_EQ(copy->Skip(0xFFFFFFFF), S_FALSE);
}

TEST(Enumeration, OfPinsFallsOutOfSyncWhenTheyChange)
{
    const GComPtr<CScriptedFilter> filter(new CScriptedFilter(Movie(3), kAviRules, std::make_shared<GScriptLog>()));
    GComPtr<IEnumPins> pins;
    ASSERT_EQ(filter->EnumPins(pins.Put()), S_OK);
    GComPtr<IPin> pin;
    EXPECT_EQ(pins->Next(1, pin.Put(), nullptr), S_FALSE);
    ASSERT_EQ(filter->Load(VEX_W("x"), nullptr), S_OK);
    EXPECT_EQ(pins->Next(1, pin.Put(), nullptr), VFW_E_ENUM_OUT_OF_SYNC);
    EXPECT_EQ(pins->Skip(1), VFW_E_ENUM_OUT_OF_SYNC);
    GComPtr<IEnumPins> copy;
    EXPECT_EQ(pins->Clone(copy.Put()), VFW_E_ENUM_OUT_OF_SYNC);
    EXPECT_EQ(pins->Reset(), S_OK);
    EXPECT_EQ(pins->Next(1, pin.Put(), nullptr), S_OK);
}

TEST(Enumeration, OfMediaTypes)
{
    GScript script = Movie(3, false);
    script.streams[0].mediaTypes.push_back(AudioStream(0).mediaTypes.front());
    GRig rig(std::move(script));
    GComPtr<IEnumMediaTypes> types;
    ASSERT_EQ(rig.Pin(0)->EnumMediaTypes(types.Put()), S_OK);
    AM_MEDIA_TYPE* fetched[3] = {};
    ULONG count = 9;
    EXPECT_EQ(types->Next(2, fetched, nullptr), E_INVALIDARG);
    EXPECT_EQ(types->Next(3, fetched, &count), S_FALSE);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(fetched[1]->majortype, MEDIATYPE_Audio);
    DeleteMediaType(fetched[0]);
    DeleteMediaType(fetched[1]);
    EXPECT_EQ(types->Reset(), S_OK);
    EXPECT_EQ(types->Skip(1), S_OK);
    GComPtr<IEnumMediaTypes> copy;
    ASSERT_EQ(types->Clone(copy.Put()), S_OK);
    ASSERT_EQ(copy->Next(1, fetched, nullptr), S_OK);
    EXPECT_EQ(fetched[0]->majortype, MEDIATYPE_Audio);
    DeleteMediaType(fetched[0]);
    EXPECT_EQ(types->Skip(2), S_FALSE);
}

TEST(Naming, IdentifiersLeadBackToTheirPinsThoughNamesRepeat)
{
    GRig rig(Movie(3));
    for (std::size_t i = 0; i < 2; ++i) {
        LPWSTR id = nullptr;
        ASSERT_EQ(rig.Pin(i)->QueryId(&id), S_OK);
        GComPtr<IPin> found;
        EXPECT_EQ(rig.Filter()->FindPin(id, found.Put()), S_OK);
        EXPECT_EQ(found.Get(), rig.Pin(i));
        CoTaskMemFree(id);

        PIN_INFO info{};
        ASSERT_EQ(rig.Pin(i)->QueryPinInfo(&info), S_OK);
        EXPECT_EQ(WString(info.achName), VEX_W("Same name"));
        EXPECT_EQ(info.dir, PINDIR_OUTPUT);
        EXPECT_EQ(info.pFilter, rig.Filter());
        info.pFilter->Release();
    }
    for (const WCHAR* id :
         {VEX_W("0"), VEX_W("3"), VEX_W(""), VEX_W("1x"), VEX_W("-1"), VEX_W("99999999999999999999")}) {
        GComPtr<IPin> found;
        EXPECT_EQ(rig.Filter()->FindPin(id, found.Put()), VFW_E_NOT_FOUND);
        EXPECT_FALSE(found);
    }
    EXPECT_EQ(rig.Pin(0)->QueryId(nullptr), E_POINTER);
    EXPECT_EQ(rig.Pin(0)->QueryPinInfo(nullptr), E_POINTER);
    ULONG count = 0;
    EXPECT_EQ(rig.Pin(0)->QueryInternalConnections(nullptr, &count), E_NOTIMPL);
}

TEST(Naming, NamesAreCutToTheirFields)
{
    WCHAR field[4];
    CopyName(field, 4, WString(VEX_W("abcdef")));
    EXPECT_EQ(WString(field), VEX_W("abc"));
    CopyName(field, 4, {});
    EXPECT_EQ(field[0], 0);
}

}  // namespace vex::test
