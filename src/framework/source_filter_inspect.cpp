#include "framework/source_filter.h"

namespace vex {

namespace {

// A BSTR of UTF-8 text for an out parameter that may be null (nobody asks for it).
HRESULT HandOut(const std::string& text, BSTR* target)
{
    if (!target)
        return S_OK;
    const WString wide = WideFromUtf8(text);
    *target = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    return *target ? S_OK : E_OUTOFMEMORY;
}

HRESULT HandOutProperty(const GProperty& property, BSTR* pName, BSTR* pValue, VexPropertyType* pType)
{
    if (pType)
        *pType = static_cast<VexPropertyType>(property.type);
    const HRESULT hr = HandOut(property.name, pName);
    return FAILED(hr) ? hr : HandOut(property.value, pValue);
}

}  // namespace

HRESULT CVexFilter::GetPropertyCount(LONG pin, ULONG* pCount)
{
    if (!pCount)
        return E_POINTER;
    *pCount = 0;
    if (!IsLoaded())
        return VFW_E_WRONG_STATE;
    if (pin < -1 || pin >= static_cast<LONG>(pins.size()))
        return E_INVALIDARG;
    const auto& facts = pin < 0 ? properties : pins[static_cast<std::size_t>(pin)]->Stream().properties;
    *pCount = static_cast<ULONG>(facts.size());
    return S_OK;
}

HRESULT CVexFilter::GetProperty(LONG pin, ULONG index, BSTR* pName, BSTR* pValue, VexPropertyType* pType)
{
    ULONG count = 0;
    const HRESULT hr = GetPropertyCount(pin, &count);
    if (FAILED(hr))
        return hr;
    if (index >= count)
        return E_INVALIDARG;
    return ComGuard([&] {
        const auto& facts = pin < 0 ? properties : pins[static_cast<std::size_t>(pin)]->Stream().properties;
        return HandOutProperty(facts[index], pName, pValue, pType);
    });
}

HRESULT CVexFilter::GetPinLanguage(LONG pin, BSTR* pLanguage)
{
    if (!pLanguage)
        return E_POINTER;
    *pLanguage = nullptr;
    if (!IsLoaded())
        return VFW_E_WRONG_STATE;
    if (pin < 0 || pin >= static_cast<LONG>(pins.size()))
        return E_INVALIDARG;
    return ComGuard([&] { return HandOut(pins[static_cast<std::size_t>(pin)]->Stream().language, pLanguage); });
}

HRESULT CVexFilter::GetDamage(ULONGLONG* pPlaces, ULONGLONG* pBytes, BSTR* pFirst)
{
    if (!pPlaces || !pBytes)
        return E_POINTER;
    *pPlaces = *pBytes = 0;
    if (pFirst)
        *pFirst = nullptr;
    if (!IsLoaded())
        return VFW_E_WRONG_STATE;
    return ComGuard([&]() -> HRESULT {
        const GDamageReport report = handler->Damage();
        *pPlaces = report.count;
        *pBytes = report.bytes;
        return report.count == 0 ? S_OK : HandOut(report.first, pFirst);
    });
}

HRESULT CVexFilter::IsIndexComplete()
{
    if (!IsLoaded())
        return VFW_E_WRONG_STATE;
    return handler->IsIndexComplete() ? S_OK : S_FALSE;
}

HRESULT CVexFilter::GetLoadState(VexLoadState* pState, BSTR* pReason)
{
    if (!pState)
        return E_POINTER;
    *pState = loadState.load(std::memory_order_acquire);
    if (pReason)
        *pReason = nullptr;
    return ComGuard([&] {
        const GMutexLock held(nameLock);
        const bool told = *pState == VexLoad_Failed || (*pState == VexLoad_Done && !loadReason.empty());
        return told ? HandOut(loadReason, pReason) : S_OK;
    });
}

// A filter that prepares its files has its own.
HRESULT CVexFilter::GetLoadProgress(ULONGLONG* pDone, ULONGLONG* pTotal)
{
    if (!pDone || !pTotal)
        return E_POINTER;
    *pDone = *pTotal = 0;
    return S_FALSE;
}

HRESULT CVexFilter::SetSeekOptions(BOOL keyFrames, BOOL preroll)
{
    if (!rules.seekOptions)
        return E_NOTIMPL;
    SetOption(keyFrameSeek, keyFrames);
    return SetOption(prerollMark, preroll);
}

HRESULT CVexFilter::GetAttachmentCount(ULONG* pCount)
{
    if (!pCount)
        return E_POINTER;
    *pCount = IsLoaded() ? static_cast<ULONG>(attachments.size()) : 0;
    return IsLoaded() ? S_OK : VFW_E_WRONG_STATE;
}

HRESULT CVexFilter::GetAttachment(ULONG index, BSTR* pName, BSTR* pMimeType, BSTR* pDescription, ULONGLONG* pSize)
{
    if (!IsLoaded())
        return VFW_E_WRONG_STATE;
    if (index >= attachments.size())
        return E_INVALIDARG;
    return ComGuard([&] {
        const GAttachmentInfo& file = attachments[index];
        if (pSize)
            *pSize = file.size;
        HRESULT hr = HandOut(file.name, pName);
        if (SUCCEEDED(hr))
            hr = HandOut(file.mimeType, pMimeType);
        return FAILED(hr) ? hr : HandOut(file.description, pDescription);
    });
}

HRESULT CVexFilter::ReadAttachment(ULONG index, ULONGLONG offset, BYTE* pBuffer, ULONG cb)
{
    if (!pBuffer)
        return E_POINTER;
    if (!IsLoaded())
        return VFW_E_WRONG_STATE;
    if (index >= attachments.size() || offset > attachments[index].size || cb > attachments[index].size - offset)
        return E_INVALIDARG;
    return ComGuard([&] { return handler->ReadAttachment(index, offset, {pBuffer, cb}) ? S_OK : E_FAIL; });
}

HRESULT CVexFilter::InterfaceSupportsErrorInfo(REFIID riid) { return riid == IID_IFileSourceFilter ? S_OK : S_FALSE; }

}  // namespace vex
