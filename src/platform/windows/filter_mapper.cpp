#include "platform/pipeline.h"
#include "platform/registry.h"

#include <uuids.h>

namespace vex {
namespace {

template <class T>
HRESULT CreateMapper(REFCLSID clsid, REFIID iid, void*& mapper)
{
    GComPtr<T> created;
    const HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, created.PutVoid());
    mapper = created.Detach();
    return hr;
}

IFilterMapper2* Newer(void* mapper) { return static_cast<IFilterMapper2*>(mapper); }

IFilterMapper* Older(void* mapper) { return static_cast<IFilterMapper*>(mapper); }

HRESULT RegisterWithNewer(IFilterMapper2* mapper, const GFilterRegistration& filter)
{
    std::vector<REGFILTERPINS> pins;
    for (const GPinRegistration& pin : filter.pins) {
        REGFILTERPINS& record = pins.emplace_back();
        record.strName = const_cast<WCHAR*>(pin.name);
        record.bRendered = pin.rendered;
        record.bOutput = pin.output;
        record.bZero = pin.zeroInstances;
        record.bMany = pin.manyInstances;
        record.clsConnectsToFilter = &CLSID_NULL;
    }
    REGFILTER2 record{};
    record.dwVersion = 1;
    record.dwMerit = filter.merit;
    record.cPins = static_cast<ULONG>(pins.size());
    record.rgPins = pins.data();
    return mapper->RegisterFilter(filter.clsid, filter.name, nullptr, nullptr, nullptr, &record);
}

HRESULT RegisterWithOlder(IFilterMapper* mapper, const GFilterRegistration& filter)
{
    HRESULT hr = mapper->RegisterFilter(filter.clsid, filter.name, filter.merit);
    for (const GPinRegistration& pin : filter.pins) {
        if (FAILED(hr))
            break;
        hr = mapper->RegisterPin(filter.clsid, pin.name, pin.rendered, pin.output, pin.zeroInstances, pin.manyInstances,
                                 CLSID_NULL, nullptr);
    }
    return hr;
}

}  // namespace

GFilterMapper::GFilterMapper() : status(S_OK)
{
    // A thread that lives in another kind of apartment can use the mapper all the same; the failure only means that
    // there is nothing to undo.
    initialised = SUCCEEDED(CoInitialize(nullptr));
    status = CreateMapper<IFilterMapper2>(CLSID_FilterMapper2, IID_IFilterMapper2, mapper2);
    if (FAILED(status))
        status = CreateMapper<IFilterMapper>(CLSID_FilterMapper, IID_IFilterMapper, mapper1);
}

GFilterMapper::~GFilterMapper()
{
    if (mapper2)
        Newer(mapper2)->Release();
    if (mapper1)
        Older(mapper1)->Release();
    CoFreeUnusedLibraries();
    if (initialised)
        CoUninitialize();
}

HRESULT GFilterMapper::Register(const GFilterRegistration& filter)
{
    if (FAILED(status))
        return status;
    return mapper2 ? RegisterWithNewer(Newer(mapper2), filter) : RegisterWithOlder(Older(mapper1), filter);
}

HRESULT GFilterMapper::Unregister(REFCLSID clsid)
{
    if (FAILED(status))
        return status;
    const HRESULT hr =
        mapper2 ? Newer(mapper2)->UnregisterFilter(nullptr, nullptr, clsid) : Older(mapper1)->UnregisterFilter(clsid);
    return hr == HResultFromOsError(ERROR_FILE_NOT_FOUND) ? S_OK : hr;
}

}  // namespace vex
