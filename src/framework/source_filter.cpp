#include "framework/source_filter.h"

#include <algorithm>

#include "platform/trace.h"

namespace vex {

namespace {

// Times come from the file. Beyond this (3,600 years) they are held, so that no difference or multiple that the pins
// form of them leaves 64 bits.
constexpr REFERENCE_TIME kLargestTime = REFERENCE_TIME{1} << 60;

REFERENCE_TIME HoldTime(REFERENCE_TIME time) { return std::clamp(time, -kLargestTime, kLargestTime); }

REFERENCE_TIME FromBase(REFERENCE_TIME time, REFERENCE_TIME base)
{
    return time == kNoTime ? kNoTime : HoldTime(time) - base;
}

}  // namespace

CVexFilter::CVexFilter(WString filterName, IUnknown* outer, REFCLSID clsid, const GFilterRules& filterRules,
                       std::unique_ptr<GReadHandler> formatHandler)
    : CSource(std::move(filterName), outer, clsid),
      prerollMark(filterRules.prerollAtFirst),
      rules(filterRules),
      handler(std::move(formatHandler))
{
}

CVexFilter::~CVexFilter() = default;

// A host may drop a filter that still runs.
void CVexFilter::FinalRelease() { Stop(); }

HRESULT CVexFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IFileSourceFilter)
        return GetInterface(static_cast<IFileSourceFilter*>(this), ppv);
    if (riid == IID_IVexInspect)
        return GetInterface(static_cast<IVexInspect*>(this), ppv);
    if (riid == IID_ISupportErrorInfo)
        return GetInterface(static_cast<ISupportErrorInfo*>(this), ppv);
    return CSource::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CVexFilter::Load(LPCOLESTR pszFileName, const AM_MEDIA_TYPE*)
{
    if (OnOwnThread())
        return E_FAIL;  // such a thread exists only when a file is loaded
    return ComGuard([&]() -> HRESULT {
        const CAutoLock change(&changeLock);
        if (IsLoaded()) {
            SetLoadError({GErrorKind::Unsupported, "a file is already loaded", 0});
            return E_FAIL;
        }
        if (!pszFileName)
            return E_POINTER;
        return Open(pszFileName);
    });
}

HRESULT CVexFilter::Open(const WString& path)
{
    const GStatus opened = handler->Open(NarrowPathFromWide(path).c_str());
    if (!opened.Ok()) {
        SetLoadError(opened.Error());
        return E_FAIL;
    }
    duration = std::max<REFERENCE_TIME>(HoldTime(handler->Duration()), 0);
    currentPosition = 0;
    segmentStart = 0;
    seekBase = 0;
    properties = handler->Properties();
    attachments = handler->Attachments();
    WString loadedName = path;
    if (!MakePins()) {
        SetLoadError({GErrorKind::Unsupported, "no stream of the file can be played", 0});
        return E_FAIL;
    }
    {
        const GMutexLock held(nameLock);
        fileName.swap(loadedName);
    }
    loaded.store(true, std::memory_order_release);
    return S_OK;
}

// All pins come at once, as the last step of loading that can fail: after a failure there are none, and the host may
// try another file.
bool CVexFilter::MakePins()
{
    std::vector<std::unique_ptr<CSourceStream>> made;
    std::vector<CVexOutputPin*> inOrder;
    bool videoSeen = false;
    std::size_t index = 0;
    for (const GStreamInfo& stream : handler->Streams()) {
        const std::size_t place = index++;
        if (stream.mediaTypes.empty() || !stream.mediaTypes.front().IsValid())
            continue;
        const bool video = stream.mediaTypes.front().majortype == MEDIATYPE_Video;
        if (video && rules.firstVideoOnly && std::exchange(videoSeen, true))
            continue;
        std::optional<WString> pinName = NamePin(stream, place);
        if (!pinName)
            continue;
        auto pin = MakePin(std::move(*pinName), stream);
        inOrder.push_back(pin.get());
        made.push_back(std::move(pin));
    }
    if (made.empty())
        return false;
    AddPins(std::move(made));
    pins.swap(inOrder);
    return true;
}

std::optional<WString> CVexFilter::NamePin(const GStreamInfo& stream, std::size_t) { return stream.pinName; }

std::unique_ptr<CVexOutputPin> CVexFilter::MakePin(WString pinName, const GStreamInfo& stream)
{
    return std::make_unique<CVexOutputPin>(this, std::move(pinName), stream);
}

// In the calling thread's error object; a host without interest loses nothing.
void CVexFilter::SetLoadError(const GError& error)
{
    WString text = WideFromUtf8(Describe(error));
    GComPtr<ICreateErrorInfo> create;
    if (FAILED(CreateErrorInfo(create.Put())))
        return;
    create->SetGUID(IID_IFileSourceFilter);
    create->SetDescription(text.data());
    const GComPtr<IErrorInfo> info = QueryFor<IErrorInfo>(create.Get(), IID_IErrorInfo);
    if (info)
        SetErrorInfo(0, info.Get());
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

bool CVexFilter::OnOwnThread() { return reader.IsWorker() || CSource::OnOwnThread(); }

HRESULT CVexFilter::Pause()
{
    if (OnOwnThread())
        return VFW_E_WRONG_STATE;
    return ComGuard([&]() -> HRESULT {
        const CAutoLock change(&changeLock);
        const bool wasStopped = IsStopped();
        const HRESULT hr = CSource::Pause();
        if (FAILED(hr) || !wasStopped || !IsLoaded())
            return hr;
        resumeEvent.Reset();
        readerReady.Reset();
        if (!reader.Create()) {
            CSource::Stop();
            return E_FAIL;
        }
        readSinceSeek = true;
        readerReady.Wait();
        return hr;
    });
}

HRESULT CVexFilter::Run(REFERENCE_TIME tStart)
{
    const HRESULT hr = CSource::Run(tStart);
    return FAILED(hr) ? hr : S_OK;
}

HRESULT CVexFilter::Stop()
{
    if (OnOwnThread())
        return VFW_E_WRONG_STATE;
    const CAutoLock change(&changeLock);
    StopReader();
    return CSource::Stop();
}

void CVexFilter::StopReader()
{
    if (!reader.ThreadExists())
        return;
    resumeEvent.Set();  // should a seek have left the reader parked
    reader.CallWorker(kExit);
    reader.Close();
}

void CVexFilter::HaltPins()
{
    for (CVexOutputPin* pin : pins)
        if (pin->IsConnected())
            pin->Halt();
}

void CVexFilter::RestartPins()
{
    for (CVexOutputPin* pin : pins)
        if (pin->IsConnected())
            pin->Restart(true);
}

DWORD CVexFilter::GReader::ThreadProc()
{
    SetCurrentThreadName("vex reader");
    filter.HaltPins();
    filter.RestartPins();
    filter.resumeEvent.Set();
    filter.readerReady.Set();
    for (;;) {
        filter.resumeEvent.Wait();
        filter.ReadToEnd();
        const DWORD command = GetRequest();
        Reply(0);
        if (command == kExit)
            return 0;
    }
}

void CVexFilter::ReadToEnd()
{
    try {
        GLoopEnd end = GLoopEnd::EndOfStream;
        try {
            end = PacketLoop();
        } catch (const std::bad_alloc&) {
            Trace("Memory ran short: what was read is played out\n");
        }
        if (end == GLoopEnd::EndOfStream && !reader.RequestPending())
            EndStreams();
    } catch (...) {
        Trace("The reader gave up\n");
        NotifyEvent(EC_ERRORABORT, E_UNEXPECTED, 0);
    }
}

void CVexFilter::EndStreams()
{
    Trace("************************************ EOS ************************************\n");
    for (CVexOutputPin* pin : pins) {
        if (reader.RequestPending())
            return;
        if (pin->IsConnected())
            pin->PushEnd();
    }
}

CVexFilter::GLoopEnd CVexFilter::PacketLoop()
{
    const std::function<bool()> giveUp = [this] { return reader.RequestPending(); };
    if (!SendHeaders(giveUp))
        return GLoopEnd::EndOfStream;
    while (!reader.RequestPending()) {
        GNextPacket next;
        const GReadStatus status = handler->ReadPacket(next);
        if (status == GReadStatus::End)
            return GLoopEnd::EndOfStream;
        if (status == GReadStatus::NotYet || next.size == 0)
            continue;
        const auto pin = std::ranges::find(pins, next.stream, &CVexOutputPin::StreamNumber);
        if (pin == pins.end() || !(*pin)->IsConnected())
            continue;  // nobody wants it: its payload is not even read
        if (!PassOn(next, **pin, giveUp))
            return GLoopEnd::EndOfStream;
    }
    return GLoopEnd::Interrupted;
}

bool CVexFilter::SendHeaders(const std::function<bool()>& giveUp)
{
    for (CVexOutputPin* pin : pins) {
        if (!pin->IsConnected())
            continue;
        for (GPacketPtr& packet : handler->HeaderPackets(pin->StreamNumber(), pin->ActiveType())) {
            RebaseTimes(*packet);
            if (pin->Push(std::move(packet), giveUp) == GPacketQueue::PushResult::Refused)
                return false;
        }
    }
    return true;
}

// False when the pin does not run any more.
bool CVexFilter::PassOn(const GNextPacket& next, CVexOutputPin& pin, const std::function<bool()>& giveUp)
{
    GPacketPtr packet = pool.Take(next.size);
    if (!packet)
        packet = handler->NewPacket();
    packet->stream = next.stream;
    packet->keyFrame = next.keyFrame;
    packet->discontinuity = next.discontinuity;
    packet->continuation = next.continuation;
    packet->start = next.start;
    packet->stop = next.start == kNoTime ? kNoTime : next.stop;
    if (next.start != kNoTime) {
        const bool own = next.mediaStart != kNoTime;
        packet->mediaStart = own ? next.mediaStart : next.start / kUnitsPerMediaTime;
        packet->mediaStop = own || next.stop == kNoTime ? next.mediaStop : next.stop / kUnitsPerMediaTime;
    }
    if (!handler->ReadPayload(*packet)) {
        pool.Give(std::move(packet));
        return true;
    }
    RebaseTimes(*packet);
    return pin.Push(std::move(packet), giveUp) == GPacketQueue::PushResult::Done;
}

// From the start of the file to the start of the segment.
void CVexFilter::RebaseTimes(GPacket2& packet)
{
    const REFERENCE_TIME base = seekBase.load(std::memory_order_relaxed);
    packet.start = FromBase(packet.start, base);
    packet.stop = FromBase(packet.stop, base);
}

// With OncePerTarget, true when `caller` repeats the seek that another pin has already made.
bool CVexFilter::IsRelayed(CVexOutputPin* caller, REFERENCE_TIME position)
{
    if (rules.seekRelay != GSeekRelay::OncePerTarget)
        return false;
    if (position == lastTarget && std::ranges::find(relayedBy, caller) == relayedBy.end()) {
        relayedBy.push_back(caller);
        return true;
    }
    lastTarget = position;
    relayedBy.assign(1, caller);
    return false;
}

HRESULT CVexFilter::SeekTo(CVexOutputPin* caller, REFERENCE_TIME& position, bool moved,
                           const std::function<void()>& onReached)
{
    const CAutoLock change(&changeLock);
    // Once stopped after a read, the handler stands where reading ended and not at the position: a graph that asks for
    // it, to play again, means it.
    const bool movedOn = readSinceSeek && !reader.ThreadExists();
    if (position == currentPosition && !movedOn)
        return S_FALSE;
    if (movedOn)
        lastTarget = kNoTime;  // nor is it a relay of what was asked for before
    position = std::clamp<REFERENCE_TIME>(position, 0, duration);
    if (IsRelayed(caller, position)) {
        position = currentPosition;
        return S_FALSE;
    }
    if (!reader.ThreadExists()) {
        Reposition(position, moved);
        onReached();
        readSinceSeek = false;
        return S_OK;
    }
    Trace("*******************************SeekDeliverLoop");
    HaltPins();
    reader.CallWorker(kPark);
    Reposition(position, moved);
    onReached();
    RestartPins();
    resumeEvent.Set();
    return S_OK;
}

void CVexFilter::Reposition(REFERENCE_TIME& position, bool moved)
{
    const bool align = keyFrameSeek && prerollMark && position != 0 && moved;
    try {
        position = HoldTime(handler->Seek(position, align ? GSeekMode::KeyFrame : GSeekMode::Independent));
    } catch (...) {
        // Out of memory halfway: the pins restart from wherever the handler stands.
    }
    currentPosition = position;
    segmentStart = position;
    seekBase = position;
}

}  // namespace vex
