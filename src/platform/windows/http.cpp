#include "platform/http.h"

#include "platform/types.h"

#include <wininet.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <string_view>
#include <utility>

#include "platform/file.h"
#include "platform/threads.h"

namespace vex {
namespace {

// From the server itself and into no cache; a change of scheme by a redirect is not asked about.
constexpr DWORD kOpenFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE |
                             INTERNET_FLAG_IGNORE_REDIRECT_TO_HTTPS | INTERNET_FLAG_IGNORE_REDIRECT_TO_HTTP;
// How long an ended transfer waits for WinINet to be through with it.
constexpr std::chrono::milliseconds kClosing{100};

// What one transfer shares with WinINet's threads. Its calls are asynchronous: the thread of Get only waits here, where
// Abort can wake it. (A blocking call could be ended by closing its handle from outside; but between that and the call
// the same handle value may already belong to another transfer.)
struct GCall {
    GMutex lock;
    GCondition changed;
    bool aborted G_GUARDED_BY(lock) = false;
    bool completed G_GUARDED_BY(lock) = false;  // the call under way
    bool closed G_GUARDED_BY(lock) = false;     // `request`, which WinINet says last
    bool abandoned G_GUARDED_BY(lock) = false;  // Get did not wait for that
    int redirects G_GUARDED_BY(lock) = 0;
    INTERNET_ASYNC_RESULT result G_GUARDED_BY(lock) = {};
    HINTERNET request G_GUARDED_BY(lock) = nullptr;

    // Written by WinINet while a call is under way, otherwise of the thread of Get.
    DWORD available = 0;
    DWORD got = 0;
    std::array<std::uint8_t, kHttpBlock> block{};

    // In the list of calls.
    DWORD_PTR id = 0;
    std::shared_ptr<GCall> next;
};

// The calls that WinINet may know of. It gets a number and no pointer, so that what it says of a call that is over is
// dropped.
constinit GNativeMutex listLock;
constinit std::shared_ptr<GCall> firstCall;  // guarded by listLock
constinit DWORD_PTR lastId = 0;              // guarded by listLock; 0 is no context to WinINet

void Enlist(const std::shared_ptr<GCall>& call)
{
    const std::lock_guard held(listLock);
    call->id = ++lastId ? lastId : ++lastId;
    call->next = std::exchange(firstCall, call);
}

std::shared_ptr<GCall> FindCall(DWORD_PTR id)
{
    const std::lock_guard held(listLock);
    std::shared_ptr<GCall> call = firstCall;
    while (call && call->id != id)
        call = call->next;
    return call;
}

void Delist(DWORD_PTR id)
{
    const std::lock_guard held(listLock);
    for (std::shared_ptr<GCall>* link = &firstCall; *link; link = &(*link)->next)
        if ((*link)->id == id) {
            const std::shared_ptr<GCall> found = *link;
            *link = std::move(found->next);
            return;
        }
}

void CALLBACK OnStatus(HINTERNET, DWORD_PTR context, DWORD status, void* information, DWORD)
{
    if (status != INTERNET_STATUS_REQUEST_COMPLETE && status != INTERNET_STATUS_HANDLE_CLOSING &&
        status != INTERNET_STATUS_REDIRECT)
        return;
    const std::shared_ptr<GCall> call = FindCall(context);
    if (!call)
        return;
    bool left = false;
    {
        GMutexLock held(call->lock);
        if (status == INTERNET_STATUS_REQUEST_COMPLETE) {
            call->result = *static_cast<const INTERNET_ASYNC_RESULT*>(information);
            call->completed = true;
        } else if (status == INTERNET_STATUS_REDIRECT) {
            ++call->redirects;
        } else if (*static_cast<const HINTERNET*>(information) == call->request) {
            call->closed = true;
        }
        left = call->abandoned && (call->request ? call->closed : call->completed);
        call->changed.notify_all();
    }
    if (left)
        Delist(context);
}

// The module stays in memory from now on: a thread of WinINet may still come back to OnStatus.
void StayLoaded()
{
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<const char*>(&OnStatus), &module);
}

bool IsHttpUrl(std::string_view url)
{
    const auto begins = [url](std::string_view scheme) {
        return url.size() >= scheme.size() && _strnicmp(url.data(), scheme.data(), scheme.size()) == 0;
    };
    return begins("http://") || begins("https://");
}

std::string QueryText(HINTERNET request, DWORD what)
{
    char text[512] = {};
    DWORD bytes = sizeof(text) - 1;
    return HttpQueryInfoA(request, what, text, &bytes, nullptr) ? text : "";
}

// The announced length; a body in chunks has none, whatever else its headers say.
std::optional<std::uint64_t> ContentLength(HINTERNET request)
{
    const std::string text = QueryText(request, HTTP_QUERY_CONTENT_LENGTH);
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos ||
        !QueryText(request, HTTP_QUERY_TRANSFER_ENCODING).empty())
        return std::nullopt;
    return std::stoull(text);
}

}  // namespace

class GHttpClient::GTransfer {
public:
    GHttpResult Get(const std::string& url, const std::string& agent, GHttpSink& sink);
    void Abort()
    {
        GMutexLock held(call->lock);
        call->aborted = true;
        call->changed.notify_all();
    }

private:
    template <class Call>
    bool Await(Call&& begin);
    bool Open(const std::string& url);
    GHttpResult ReadBody(GHttpSink& sink);
    GHttpResult Receive(const std::string& url, GHttpSink& sink);
    void Close();
    GHttpResult Error(DWORD number) const
    {
        using enum GHttpResult::Outcome;
        if (number == ERROR_INTERNET_OPERATION_CANCELLED)
            return {Aborted, status, {}};
        return {Failed, status, number == ERROR_HTTP_REDIRECT_FAILED ? "too many redirects" : DescribeOsError(number)};
    }

    const std::shared_ptr<GCall> call = std::make_shared<GCall>();

    // Of the thread of Get.
    bool used = false;
    HINTERNET session = nullptr;
    HINTERNET request = nullptr;
    bool pending = false;  // a call was given up before WinINet completed it
    DWORD error = 0;       // of the last Await that returned false
    std::uint32_t status = 0;
};

// Begins an asynchronous call and waits for its end, or for Abort.
template <class Call>
bool GHttpClient::GTransfer::Await(Call&& begin)
{
    error = ERROR_INTERNET_OPERATION_CANCELLED;
    {
        GMutexLock held(call->lock);
        if (call->aborted)
            return false;
        call->completed = false;
    }
    if (begin())
        return true;
    const DWORD reason = GetLastError();
    if (reason != ERROR_IO_PENDING) {
        error = reason;
        return false;
    }
    GMutexLock held(call->lock);
    while (!call->completed && !call->aborted && call->redirects <= kHttpMaxRedirects)
        held.Wait(call->changed);
    pending = !call->completed;
    if (call->redirects > kHttpMaxRedirects)
        error = ERROR_HTTP_REDIRECT_FAILED;
    if (pending || call->aborted)
        return false;
    error = call->result.dwError;
    return call->result.dwResult != 0;
}

bool GHttpClient::GTransfer::Open(const std::string& url)
{
    const bool opened = Await([&] {
        request = InternetOpenUrlA(session, url.c_str(), nullptr, 0, kOpenFlags, call->id);
        return request != nullptr;
    });
    GMutexLock held(call->lock);
    // Also when it came too late: it has to be closed.
    if (!request && call->completed && call->result.dwResult != 0)
        request = reinterpret_cast<HINTERNET>(call->result.dwResult);
    call->request = request;
    return opened;
}

GHttpResult GHttpClient::GTransfer::ReadBody(GHttpSink& sink)
{
    using enum GHttpResult::Outcome;
    const std::optional<std::uint64_t> length = ContentLength(request);
    if (!sink.Begin(length))
        return {Refused, status, {}};
    std::uint64_t total = 0;
    for (; total < length.value_or(std::numeric_limits<std::uint64_t>::max()); total += call->got) {
        call->available = call->got = 0;
        if (!Await([&] { return InternetQueryDataAvailable(request, &call->available, 0, 0); }))
            return Error(error);
        // A server may send more than it announced.
        const DWORD wanted = static_cast<DWORD>(
            std::min<std::uint64_t>({call->available, kHttpBlock, length ? *length - total : kHttpBlock}));
        if (wanted != 0 && !Await([&] { return InternetReadFile(request, call->block.data(), wanted, &call->got); }))
            return Error(error);
        if (call->got == 0)
            break;
        if (!sink.Take(std::span(call->block).first(std::min(call->got, wanted))))
            return {Refused, status, {}};
    }
    // A connection that ends early is the end of the data to WinINet.
    if (length && total < *length)
        return {Failed, status, "cut off after " + std::to_string(total) + " of " + std::to_string(*length) + " bytes"};
    return {Finished, status, {}};
}

GHttpResult GHttpClient::GTransfer::Receive(const std::string& url, GHttpSink& sink)
{
    using enum GHttpResult::Outcome;
    if (!Open(url))
        return Error(error);
    DWORD number = 0;
    DWORD bytes = sizeof(number);
    if (!HttpQueryInfoA(request, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &number, &bytes, nullptr))
        return Error(GetLastError());
    status = number;
    if (status == 0)  // a connection that was closed without an answer
        return Error(ERROR_HTTP_INVALID_SERVER_RESPONSE);
    if (status >= 200 && status < 300)
        return ReadBody(sink);
    const std::string reason = QueryText(request, HTTP_QUERY_STATUS_TEXT);
    return {BadStatus, status, std::to_string(status) + (reason.empty() ? "" : " ") + reason};
}

// Closes the handles, and waits a little until WinINet's threads have left `call`. What they do not let go of in time
// is kept for them.
void GHttpClient::GTransfer::Close()
{
    const bool known = request != nullptr;
    if (request)
        InternetCloseHandle(std::exchange(request, nullptr));
    InternetCloseHandle(std::exchange(session, nullptr));
    bool through = false;
    {
        GMutexLock held(call->lock);
        const auto deadline = GSteadyClock::now() + kClosing;
        do
            through = known ? call->closed : !pending || call->completed;
        while (!through && held.WaitUntil(call->changed, deadline));
        call->abandoned = !through;
    }
    if (through)
        Delist(call->id);
    else
        StayLoaded();
}

GHttpResult GHttpClient::GTransfer::Get(const std::string& url, const std::string& agent, GHttpSink& sink)
{
    using enum GHttpResult::Outcome;
    if (!IsHttpUrl(url))
        return {Failed, 0, "the URL begins neither with http:// nor with https://"};
    {
        GMutexLock held(call->lock);
        if (call->aborted)
            return {Aborted, 0, {}};
    }
    if (std::exchange(used, true))
        return {Failed, 0, kUsedTwice};
    session = InternetOpenA(agent.c_str(), INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, INTERNET_FLAG_ASYNC);
    if (!session)
        return Error(GetLastError());
    InternetSetStatusCallbackA(session, OnStatus);
    Enlist(call);
    GHttpResult result{Refused, 0, {}};
    try {
        result = Receive(url, sink);
    } catch (...) {  // out of the sink
        result.status = status;
    }
    Close();
    return result;
}

GHttpClient::GHttpClient() : transfer(std::make_unique<GTransfer>()) {}

GHttpClient::~GHttpClient() = default;

GHttpResult GHttpClient::Get(const std::string& url, const std::string& agent, GHttpSink& sink)
{
    return transfer->Get(url, agent, sink);
}

void GHttpClient::Abort() { transfer->Abort(); }

}  // namespace vex
