#include "platform/http.h"

#include <algorithm>
#include <atomic>
#include <string_view>
#include <utility>

#include "platform/posix/curl_library.h"

namespace vex {
namespace {

// Bytes asked of a socket at once; larger than a block because each read costs a turn of libcurl's loop.
constexpr long kReadSize = 64 * 1024;
// A wait ends by itself at times, which costs nothing and hides no lost wake-up for ever.
constexpr int kWaitMs = 10'000;

struct GCloseEasy {
    void operator()(CURL* easy) const { Curl().easyCleanup(easy); }
};
struct GCloseMulti {
    void operator()(CURLM* multi) const { Curl().multiCleanup(multi); }
};
struct GFreeList {
    void operator()(curl_slist* list) const { Curl().listFree(list); }
};

// "404 Not Found" out of "HTTP/1.1 404 Not Found\r\n".
std::string StatusText(std::string_view line)
{
    line.remove_prefix(std::min(line.find(' ') + 1, line.size()));
    const std::size_t last = line.find_last_not_of(" \r\n");
    return std::string(line.substr(0, last == std::string_view::npos ? 0 : last + 1));
}

}  // namespace

class GHttpClient::GTransfer {
public:
    GTransfer()
    {
        if (!Curl().error)
            multi.reset(Curl().multiInit());
    }

    GHttpResult Get(const std::string& url, const std::string& agent, GHttpSink& taker);

    void Abort()
    {
        aborted = true;
        if (multi)
            Curl().multiWakeup(multi.get());
    }

private:
    bool SetOptions(const std::string& url, const std::string& agent);
    CURLcode Run();
    GHttpResult Conclude(CURLcode code);
    bool Begin();
    bool Write(std::span<const std::uint8_t> bytes);
    void ReadHeader(std::string_view line);
    bool IsGood() const { return status >= 200 && status < 300; }

    static std::size_t OnBody(const char* bytes, std::size_t, std::size_t count, void* self)
    {
        const auto* first = reinterpret_cast<const std::uint8_t*>(bytes);
        return static_cast<GTransfer*>(self)->Write({first, count}) ? count : 0;
    }
    static std::size_t OnHeader(const char* bytes, std::size_t, std::size_t count, void* self)
    {
        static_cast<GTransfer*>(self)->ReadHeader({bytes, count});
        return count;
    }

    std::atomic<bool> aborted{false};
    std::unique_ptr<CURLM, GCloseMulti> multi;  // set before any other thread can ask for a wake-up

    // Of the thread of Get.
    bool used = false;
    std::unique_ptr<CURL, GCloseEasy> easy;
    std::unique_ptr<curl_slist, GFreeList> headers;
    GHttpSink* sink = nullptr;
    char message[CURL_ERROR_SIZE] = {};
    std::uint32_t status = 0;
    std::string statusText;
    bool headersEnded = false;  // of the response that `status` is from
    bool begun = false;
    bool refused = false;
};

void GHttpClient::GTransfer::ReadHeader(std::string_view line)
try {
    if (line.starts_with("HTTP/")) {
        long number = 0;
        Curl().easyGetInfo(easy.get(), CURLINFO_RESPONSE_CODE, &number);
        status = static_cast<std::uint32_t>(number);
        statusText = StatusText(line);
        headersEnded = false;
    } else if (line == "\r\n" || line == "\n") {
        headersEnded = status >= 200;
    }
} catch (...) {
    refused = true;  // no memory for the line; the next block ends the transfer
}

// Tells the sink about the response as soon as its headers are in, which may be long before its first byte.
bool GHttpClient::GTransfer::Begin()
{
    if (begun || !headersEnded || !IsGood())
        return true;
    begun = true;
    curl_off_t length = -1;
    Curl().easyGetInfo(easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    std::optional<std::uint64_t> known;
    if (length >= 0)
        known = static_cast<std::uint64_t>(length);
    refused = refused || !sink->Begin(known);
    return !refused;
}

bool GHttpClient::GTransfer::Write(std::span<const std::uint8_t> bytes)
try {
    if (refused || !IsGood() || !Begin())
        return false;
    while (!bytes.empty() && !aborted) {
        const auto block = bytes.first(std::min(bytes.size(), kHttpBlock));
        if (!sink->Take(block)) {
            refused = true;
            return false;
        }
        bytes = bytes.subspan(block.size());
    }
    return bytes.empty();
} catch (...) {
    refused = true;
    return false;
}

bool GHttpClient::GTransfer::SetOptions(const std::string& url, const std::string& agent)
{
    headers.reset(Curl().listAppend(nullptr, "Cache-Control: no-cache"));
    const auto set = [this](CURLoption option, auto value) {
        return Curl().easySetOption(easy.get(), option, value) == CURLE_OK;
    };
    // An old libcurl does not know QUICK_EXIT. It then waits for a name look-up that is given up.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_TCP_KEEPALIVE, 1L);
    return headers && set(CURLOPT_URL, url.c_str()) && set(CURLOPT_USERAGENT, agent.c_str()) &&
           set(CURLOPT_HTTPHEADER, headers.get()) && set(CURLOPT_NOSIGNAL, 1L) &&
           set(CURLOPT_PROTOCOLS_STR, "http,https") && set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https") &&
           // The client lives as long as the filter that plays the file; the server's connection must not.
           set(CURLOPT_FORBID_REUSE, 1L) && set(CURLOPT_FOLLOWLOCATION, 1L) &&
           set(CURLOPT_MAXREDIRS, static_cast<long>(kHttpMaxRedirects)) &&
           // Later versions leave out the reason in words.
           set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1)) && set(CURLOPT_BUFFERSIZE, kReadSize) &&
           // The answer of a proxy to CONNECT is not the answer to the request.
           set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L) && set(CURLOPT_ERRORBUFFER, &message[0]) &&
           set(CURLOPT_WRITEFUNCTION, &OnBody) && set(CURLOPT_WRITEDATA, this) &&
           set(CURLOPT_HEADERFUNCTION, &OnHeader) && set(CURLOPT_HEADERDATA, this);
}

// Until the transfer has ended or there is a reason to end it.
CURLcode GHttpClient::GTransfer::Run()
{
    int running = 1;
    while (!aborted) {
        if (Curl().multiPerform(multi.get(), &running) != CURLM_OK)
            return CURLE_FAILED_INIT;
        if (running == 0)
            break;
        if (refused || !Begin())
            return CURLE_WRITE_ERROR;
        // The page that goes with an error may never end.
        if (headersEnded && status >= 400)
            return CURLE_WRITE_ERROR;
        if (!aborted)
            Curl().multiPoll(multi.get(), nullptr, 0, kWaitMs, nullptr);
    }
    int left = 0;
    const CURLMsg* ended = Curl().multiInfoRead(multi.get(), &left);
    if (!ended || ended->msg != CURLMSG_DONE)
        return CURLE_ABORTED_BY_CALLBACK;
    const CURLcode code = ended->data.result;
    // An empty body, or one that was cut off before its first byte.
    return !aborted && !Begin() && code == CURLE_OK ? CURLE_WRITE_ERROR : code;
}

GHttpResult GHttpClient::GTransfer::Conclude(CURLcode code)
{
    using enum GHttpResult::Outcome;
    if (code != CURLE_OK && aborted)
        return {Aborted, status, {}};
    if (refused)
        return {Refused, status, {}};
    if (status != 0 && !IsGood() && (code == CURLE_OK || code == CURLE_WRITE_ERROR))
        return {BadStatus, status, statusText};
    if (code != CURLE_OK)
        return {Failed, status, message[0] ? message : Curl().easyError(code)};
    return {Finished, status, {}};
}

GHttpResult GHttpClient::GTransfer::Get(const std::string& url, const std::string& agent, GHttpSink& taker)
{
    using enum GHttpResult::Outcome;
    if (Curl().error)
        return {Failed, 0, Curl().error};
    if (aborted)
        return {Aborted, 0, {}};
    if (std::exchange(used, true))
        return {Failed, 0, kUsedTwice};
    sink = &taker;
    easy.reset(multi ? Curl().easyInit() : nullptr);
    if (!easy || !SetOptions(url, agent) || Curl().multiAdd(multi.get(), easy.get()) != CURLM_OK)
        return {Failed, 0, "libcurl has no memory, or lacks an option"};

    CURLcode code = CURLE_WRITE_ERROR;
    try {
        code = Run();
    } catch (...) {  // out of the sink's Begin
        refused = true;
    }
    Curl().multiRemove(multi.get(), easy.get());
    return Conclude(code);
}

GHttpClient::GHttpClient() : transfer(std::make_unique<GTransfer>()) {}

GHttpClient::~GHttpClient() = default;

GHttpResult GHttpClient::Get(const std::string& url, const std::string& agent, GHttpSink& sink)
{
    return transfer->Get(url, agent, sink);
}

void GHttpClient::Abort() { transfer->Abort(); }

}  // namespace vex
