// One HTTP GET (RFC 9110) through the system's client: WinINet on Windows, libcurl on Linux.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace vex {

// Largest block that a sink is given, in bytes.
inline constexpr std::size_t kHttpBlock = 10 * 1024;
// A chain of more redirects is taken for a loop.
inline constexpr int kHttpMaxRedirects = 10;

// Takes the body of a response with status 2xx, on the thread of GHttpClient::Get. An exception counts as a refusal.
class GHttpSink {
public:
    virtual ~GHttpSink() = default;
    // Called once, when the headers are in and before the first block: the length in bytes that the server announces,
    // if any. It need not be true. False ends the transfer.
    virtual bool Begin(std::optional<std::uint64_t> contentLength) = 0;
    // The next bytes of the body, 1 to kHttpBlock of them, valid during the call. False ends the transfer.
    virtual bool Take(std::span<const std::uint8_t> block) = 0;
};

struct GHttpResult {
    enum class Outcome : std::uint8_t {
        Finished,   // the whole body went to the sink
        Aborted,    // by Abort
        Refused,    // by the sink
        BadStatus,  // the server answered with another status than 2xx; the sink got nothing
        Failed,     // no connection, no such name, cut off, too many redirects, not an HTTP URL ...
        NotBuilt,   // this build has no HTTP client
    };
    Outcome outcome = Outcome::Failed;
    std::uint32_t status = 0;  // of the last response, such as 404; 0 without one
    std::string text;          // BadStatus: status and reason ("404 Not Found"); Failed, NotBuilt: what is wrong, UTF-8
};

// One transfer. Redirects are followed, also between http and https. Responses come from the server and are not stored.
// The proxy is the system's: its settings on Windows, the variables http_proxy, https_proxy, all_proxy and no_proxy on
// Linux. The only time limits are those of the system's client: a server that stalls is a matter for Abort. A body
// without an announced length that was cut off may count as Finished: on Windows also one in chunks.
class GHttpClient {
public:
    GHttpClient();
    ~GHttpClient();  // no Get or Abort may be running
    GHttpClient(const GHttpClient&) = delete;
    GHttpClient& operator=(const GHttpClient&) = delete;

    // Fetches an http:// or https:// URL whose characters are escaped already, naming `agent` as the User-Agent.
    // Returns when the transfer has ended. To be called once. Throws std::bad_alloc only.
    GHttpResult Get(const std::string& url, const std::string& agent, GHttpSink& sink);

    // Any thread, also before Get. Ends Get at once, be it in a name look-up, a connect or a read; does not wait for
    // it. A name look-up that the system cannot take back goes on in the background and ends by itself.
    void Abort();

private:
    static constexpr const char* kUsedTwice = "a client makes one transfer only";
    class GTransfer;
    const std::unique_ptr<GTransfer> transfer;
};

}  // namespace vex
