// The rules of COM: reference counts, QueryInterface, aggregation, enumeration.
#include <gtest/gtest.h>

#include "dshow/media_sample.h"
#include "formats/avi/avi_interface.h"
#include "platform/exports.h"
#include "support/scripted_filter.h"
#include "support/test_object.h"

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
class COuter final : public GTestObject<IUnknown> {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        return riid == IID_IUnknown && ppv ? GetInterface(this, ppv) : inner->QueryInterface(riid, ppv);
    }

    IUnknown* inner = nullptr;  // not owned
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

TEST(Aggregation, TheOuterObjectIsTheIdentityOfFilterAndCount)
{
    const LONG before = CUnknown::ObjectsActive();
    const auto outer = GComPtr<COuter>::Adopt(new COuter);
    {
        GComPtr<IClassFactory> factory;
        ASSERT_EQ(DllGetClassObject(CLSID_VexAvi, IID_IClassFactory, factory.PutVoid()), S_OK);
        GComPtr<IUnknown> inner;
        EXPECT_EQ(factory->CreateInstance(outer.Get(), IID_IBaseFilter, inner.PutVoid()), E_NOINTERFACE)
            << "only the inner unknown may be asked for";
        ASSERT_EQ(factory->CreateInstance(outer.Get(), IID_IUnknown, inner.PutVoid()), S_OK);
        outer->inner = inner.Get();

        EXPECT_EQ(Ask(inner.Get(), IID_IUnknown).Get(), inner.Get()) << "the inner unknown answers for itself";
        EXPECT_EQ(outer->References(), 1u);
        {
            const auto filter = QueryFor<IBaseFilter>(outer.Get(), IID_IBaseFilter);
            ASSERT_TRUE(filter);
            EXPECT_EQ(outer->References(), 2u) << "an interface of the inner object counts on the outer one";
            EXPECT_EQ(References(inner.Get()), 1u);
            EXPECT_EQ(Ask(filter.Get(), IID_IUnknown).Get(), outer.Get());
            EXPECT_TRUE(Ask(filter.Get(), IID_IVexAVI));
            CheckRules(filter.Get(), kFilterInterfaces, {IID_IPin});
        }
        EXPECT_EQ(outer->References(), 1u);
    }
    EXPECT_EQ(CUnknown::ObjectsActive(), before);
}

TEST(Aggregation, PinsOfAnInnerFilterKeepTheOuterObject)
{
    const auto outer = GComPtr<COuter>::Adopt(new COuter);
    auto* filter = new CScriptedFilter(Movie(3), kPlainRules, outer.Get());
    const GComPtr<IUnknown> inner(filter->NonDelegatingUnknown());
    outer->inner = inner.Get();
    ASSERT_EQ(filter->Load(VEX_W("x"), nullptr), S_OK);
    {
        const GComPtr<IPin> pin(filter->GetPin(0));
        PIN_INFO info{};
        ASSERT_EQ(pin->QueryPinInfo(&info), S_OK);
        const auto owner = GComPtr<IBaseFilter>::Adopt(info.pFilter);
        EXPECT_EQ(outer->References(), 3u);
        EXPECT_EQ(Ask(owner.Get(), IID_IUnknown).Get(), outer.Get());
        EXPECT_NE(Ask(pin.Get(), IID_IUnknown).Get(), outer.Get()) << "a pin is an object of its own";
    }
    EXPECT_EQ(outer->References(), 1u);
}

// Of pins and of media types alike: two entries, of which `second` tells whether it was given the second.
template <class List, class Item, class Second, class Free>
void CheckEnumeration(List& list, Second second, Free free)
{
    Item* fetched[3] = {};
    ULONG count = 9;
    EXPECT_EQ(list.Next(3, fetched, nullptr), E_INVALIDARG);
    EXPECT_EQ(list.Next(1, nullptr, &count), E_POINTER);
    ASSERT_EQ(list.Next(3, fetched, &count), S_FALSE);
    ASSERT_EQ(count, 2u);
    EXPECT_TRUE(!second(fetched[0]) && second(fetched[1]));
    free(fetched[0]);
    free(fetched[1]);
    EXPECT_EQ(list.Next(1, fetched, &count), S_FALSE);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(list.Reset(), S_OK);
    EXPECT_EQ(list.Skip(1), S_OK);
    GComPtr<List> copy;
    ASSERT_EQ(list.Clone(copy.Put()), S_OK);
    EXPECT_EQ(list.Skip(2), S_FALSE);
    ASSERT_EQ(copy->Next(1, fetched, nullptr), S_OK);
    EXPECT_TRUE(second(fetched[0])) << "a clone goes on from where it was made";
    free(fetched[0]);
    EXPECT_EQ(copy->Skip(0xFFFFFFFF), S_FALSE);
}

TEST(Enumeration, OfPinsAndMediaTypes)
{
    GScript script = Movie(3);
    script.streams[0].mediaTypes.push_back(AudioStream(0).mediaTypes.front());
    GRig rig(std::move(script));
    GComPtr<IEnumPins> pins;
    GComPtr<IEnumMediaTypes> types;
    ASSERT_EQ(rig.Filter()->EnumPins(pins.Put()), S_OK);
    ASSERT_EQ(rig.Pin(0)->EnumMediaTypes(types.Put()), S_OK);
    CheckEnumeration<IEnumPins, IPin>(
        *pins, [&](IPin* pin) { return pin == rig.Pin(1); }, [](IPin* pin) { pin->Release(); });
    CheckEnumeration<IEnumMediaTypes, AM_MEDIA_TYPE>(
        *types, [](AM_MEDIA_TYPE* type) { return type->majortype == MEDIATYPE_Audio; }, DeleteMediaType);
    EXPECT_EQ(rig.Filter()->EnumPins(nullptr), E_POINTER);
    EXPECT_EQ(rig.Pin(0)->EnumMediaTypes(nullptr), E_POINTER);
}

TEST(Naming, IdentifiersLeadBackToTheirPinsThoughNamesRepeat)
{
    GScript script = Movie(3);
    const WString longName(200, 'x');
    script.streams[0].pinName = script.streams[1].pinName = longName;
    script.streams[1].pinId = VEX_W("track 9");
    GRig rig(std::move(script));
    const WString ids[] = {VEX_W("1"), VEX_W("track 9")};
    for (std::size_t i = 0; i < 2; ++i) {
        LPWSTR id = nullptr;
        ASSERT_EQ(rig.Pin(i)->QueryId(&id), S_OK);
        EXPECT_EQ(WString(id), ids[i]);
        GComPtr<IPin> found;
        EXPECT_EQ(rig.Filter()->FindPin(id, found.Put()), S_OK);
        EXPECT_EQ(found.Get(), rig.Pin(i));
        CoTaskMemFree(id);

        PIN_INFO info{};
        ASSERT_EQ(rig.Pin(i)->QueryPinInfo(&info), S_OK);
        EXPECT_EQ(WString(info.achName), longName.substr(0, MAX_PIN_NAME - 1)) << "cut to its field";
        EXPECT_EQ(info.dir, PINDIR_OUTPUT);
        EXPECT_EQ(info.pFilter, rig.Filter());
        info.pFilter->Release();
    }
    for (const WCHAR* id :
         {VEX_W("0"), VEX_W("3"), VEX_W(""), VEX_W("1x"), VEX_W("-1"), VEX_W("track"), VEX_W("99999999999999999999")}) {
        GComPtr<IPin> found;
        EXPECT_EQ(rig.Filter()->FindPin(id, found.Put()), VFW_E_NOT_FOUND);
        EXPECT_FALSE(found);
    }
    EXPECT_EQ(rig.Pin(0)->QueryId(nullptr), E_POINTER);
    EXPECT_EQ(rig.Pin(0)->QueryPinInfo(nullptr), E_POINTER);
    ULONG count = 0;
    EXPECT_EQ(rig.Pin(0)->QueryInternalConnections(nullptr, &count), E_NOTIMPL);
    const auto quality = QueryFor<IQualityControl>(rig.Pin(0), IID_IQualityControl);
    EXPECT_EQ(quality->Notify(rig.Filter(), Quality{}), E_NOTIMPL) << "or a renderer leaves the dropping to us";
}

}  // namespace vex::test
