// Loading: at once, or behind a preparation on the loading thread.

#include <algorithm>

#include "framework/source_filter.h"
#include "platform/trace.h"

namespace vex {

namespace {

// A function, because not every compiler takes an error with its text for a constant expression.
GError OutOfMemory()
{
    return {GErrorKind::Limit, "out of memory", 0};
}

constexpr char kNotWhole[] = "the file did not arrive whole:";

// Of a file that may have failed to open only because it is not whole.
GError AddToError(const GError& error, const std::string& shortfall)
{
    return {error.kind, kNotWhole, 0, 0, shortfall + "; " + Describe(error)};
}

// For the calling thread's error object. Best effort: a load that failed for lack of memory may have no words.
void SetErrorObject(const GError& error)
{
    try {
        WString text = WideFromUtf8(Describe(error));
        GComPtr<ICreateErrorInfo> create;
        if (FAILED(CreateErrorInfo(create.Put())))
            return;
        create->SetGUID(IID_IFileSourceFilter);
        create->SetDescription(text.data());
        const GComPtr<IErrorInfo> info = QueryFor<IErrorInfo>(create.Get(), IID_IErrorInfo);
        if (info)
            SetErrorInfo(0, info.Get());
    } catch (const std::bad_alloc&) {
        Trace("Memory ran short for the reason of a failed load\n");
    }
}

}  // namespace

// A load that is refused leaves the state and the reason of the one before.
HRESULT CVexFilter::Load(LPCOLESTR pszFileName, const AM_MEDIA_TYPE*)
{
    if (OnOwnThread())
        return E_FAIL;  // such a thread exists only when a file is loaded or being loaded
    return ComGuard([&]() -> HRESULT {
        const CAutoLock change(&changeLock);
        const VexLoadState reached = loadState.load(std::memory_order_acquire);
        if (reached == VexLoad_Done || reached == VexLoad_Running) {
            SetErrorObject({GErrorKind::Unsupported, "a file is already loaded", 0});
            return E_FAIL;
        }
        if (!pszFileName)
            return E_POINTER;
        loader.Close();  // of a load that failed
        preparation.reset();
        try {
            return LoadLocked(pszFileName);
        } catch (const std::bad_alloc&) {
            FinishLoad(OutOfMemory());
            throw;
        }
    });
}

HRESULT CVexFilter::LoadLocked(const WString& path)
{
    WString loadedPath = path;  // once there are pins nothing may fail
    GResult<std::unique_ptr<GPreparation>> prepared = Prepare(path);
    if (!prepared.Ok())
        return FinishLoad(prepared.Error());
    preparation = std::move(prepared).Value();
    if (preparation) {
        SetName(std::move(loadedPath));
        return BeginPreparation();
    }
    const GStatus opened = Open(path);
    if (opened.Ok())
        SetName(std::move(loadedPath));
    return FinishLoad(opened);
}

// After a failure there are no pins and no open file: the host may try another one.
GStatus CVexFilter::Open(const WString& path)
{
    try {
        G_TRY_STATUS(handler->Open(NarrowPathFromWide(path).c_str()));
        duration = 0;
        currentPosition = 0;
        segmentStart = 0;
        seekBase = 0;
        properties = handler->Properties();
        attachments = handler->Attachments();
        Duration();
        GStatus made = MakePins();
        if (!made.Ok())
            handler->Close();
        return made;
    } catch (...) {
        handler->Close();
        throw;
    }
}

// All pins come at once, as the last step of loading that can fail.
GStatus CVexFilter::MakePins()
{
    std::vector<std::unique_ptr<CSourceStream>> made;
    std::vector<CVexOutputPin*> inOrder;
    std::vector<std::uint32_t> ofFilter;
    bool videoSeen = false;
    for (const GStreamInfo& stream : handler->Streams()) {
        if (stream.target == GStreamTarget::Filter) {
            ofFilter.push_back(stream.number);
            continue;
        }
        if (stream.mediaTypes.empty() || !stream.mediaTypes.front().IsValid())
            continue;
        const bool video = stream.mediaTypes.front().majortype == MEDIATYPE_Video;
        if (video && rules.firstVideoOnly && std::exchange(videoSeen, true))
            continue;
        auto pin = MakePin(stream);
        inOrder.push_back(pin.get());
        made.push_back(std::move(pin));
    }
    if (made.empty())
        return GError{GErrorKind::Unsupported, "no stream of the file can be played", 0};
    AddPins(std::move(made));
    pins.swap(inOrder);
    filterStreams.swap(ofFilter);
    return {};
}

std::unique_ptr<CVexOutputPin> CVexFilter::MakePin(const GStreamInfo& stream)
{
    return std::make_unique<CVexOutputPin>(this, stream);
}

HRESULT CVexFilter::FinishLoad(const GStatus& opened, std::string remark)
{
    if (opened.Ok()) {
        SetLoadReason(std::move(remark));
        loadState.store(VexLoad_Done, std::memory_order_release);
        return S_OK;
    }
    SetName({});
    SetLoadError(opened.Error());
    loadState.store(VexLoad_Failed, std::memory_order_release);
    return E_FAIL;
}

GResult<std::unique_ptr<GPreparation>> CVexFilter::Prepare(const WString&) { return nullptr; }

HRESULT CVexFilter::BeginPreparation()
{
    loadState.store(VexLoad_Running, std::memory_order_release);
    if (loader.Create())
        return S_OK;
    preparation.reset();
    return FinishLoad(GError{GErrorKind::Io, "no thread to load the file on", 0});
}

DWORD CVexFilter::GLoader::ThreadProc()
{
    SetCurrentThreadName("vex loader");
    filter.LoadPrepared();
    return 0;
}

void CVexFilter::LoadPrepared()
{
    GStatus status = OutOfMemory();
    try {
        const GResult<WString> path = preparation->Run();
        if (!path.Ok() && path.Error().kind == GErrorKind::Aborted)
            return;
        if (path.Ok()) {
            const std::string shortfall = preparation->Shortfall();
            std::string remark = shortfall.empty() ? shortfall : kNotWhole + (" " + shortfall);
            const CAutoLock change(&changeLock);
            status = Open(path.Value());
            if (status.Ok())
                FinishLoad(status, std::move(remark));
            else if (!shortfall.empty())
                status = AddToError(status.Error(), shortfall);
        } else {
            status = path.Error();
        }
    } catch (const std::bad_alloc&) {
        Trace("Memory ran short while loading\n");
    }
    if (!status.Ok()) {
        const CAutoLock change(&changeLock);
        FinishLoad(status);
    }
    preparation->Loaded(status);
}

void CVexFilter::SetName(WString path)
{
    const GMutexLock held(nameLock);
    fileName.swap(path);
}

// For a host that waits for Load, and for GetLoadState.
void CVexFilter::SetLoadError(const GError& error)
{
    SetErrorObject(error);
    std::string text;
    try {
        text = Describe(error);
    } catch (const std::bad_alloc&) {
        Trace("Memory ran short for the reason of a failed load\n");
    }
    SetLoadReason(std::move(text));
}

void CVexFilter::SetLoadReason(std::string text)
{
    const GMutexLock held(nameLock);
    loadReason.swap(text);
}

HRESULT CVexFilter::GetCurFile(LPOLESTR* ppszFileName, AM_MEDIA_TYPE*)
{
    if (!ppszFileName)
        return E_POINTER;
    *ppszFileName = nullptr;
    const GMutexLock held(nameLock);
    if (!fileName.empty())
        *ppszFileName = TaskMemCopy(fileName);
    return S_OK;
}

}  // namespace vex
