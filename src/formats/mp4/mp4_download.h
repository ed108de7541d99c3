// The download of an MP4 file into a temporary file, from which it is then played.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "io/result.h"
#include "platform/file.h"
#include "platform/http.h"
#include "platform/temp_files.h"
#include "platform/threads.h"

namespace vex {

// The buffer that an escaped URL has always had, in bytes with the terminator. A longer URL is refused. The "http://"
// that is put in front of "www." does not count.
inline constexpr std::size_t kUrlCapacity = 2048;

struct HttpRequest {
    std::string url;  // escaped
    GOsFile file;     // takes the bytes; nothing is written while it is closed
    std::string agent = "GHttpCacheFile";
    std::int64_t byteLimit = -1;  // the download ends when so many bytes are there; -1: no limit
    std::atomic<std::uint64_t>* contentLengthOut = nullptr;  // gets the announced length, 0 for an unknown one
};

// How far a download is. Any thread may read it at any time.
struct GDownloadStatus {
    std::atomic<std::uint32_t> downloadState{0};  // VexMp4DownloadState
    std::atomic<std::uint64_t> received{0};       // bytes
    std::atomic<std::uint64_t> contentLength{0};  // bytes; 0: unknown
};

// Writes what arrives and reports the progress. Thread of the download.
class GDownloadSink final : public GHttpSink {
public:
    using GClock = GSteadyClock::time_point (*)();
    using GPost = std::function<void(std::int32_t percent)>;

    // Before this time there are no reports.
    static constexpr std::chrono::milliseconds kQuietTime{500};

    GDownloadSink(HttpRequest& wanted, GDownloadStatus& progress, GPost report, GClock theClock = GSteadyClock::now);

    // The time runs from here on.
    void Start() { started = clock(); }
    bool Begin(std::optional<std::uint64_t> contentLength) override;
    bool Take(std::span<const std::uint8_t> block) override;
    // Reports how much of a known length has arrived.
    void Post() const;

    std::uint64_t Total() const { return total; }
    // The limit was reached, which is as good as the end.
    bool LimitReached() const { return limitReached; }

private:
    HttpRequest& request;
    GDownloadStatus& status;
    const GPost post;
    const GClock clock;
    GSteadyClock::time_point started{};
    std::uint64_t length = 0;  // bytes; 0: unknown
    std::uint64_t total = 0;   // bytes
    bool limitReached = false;
};

// One download into one temporary file. The file is deleted with the object, so whoever reads it has to close it first.
class GMp4Download {
public:
    // `url` is escaped here, and "http://" put in front of one that begins with "www.". `post` is called on the thread
    // of Run and not once StopDownload was called. An error: the URL is too long, or there can be no temporary file.
    static GResult<std::unique_ptr<GMp4Download>> StartDownload(std::string_view url, GDownloadStatus& status,
                                                                GDownloadSink::GPost post);
    ~GMp4Download();
    GMp4Download(const GMp4Download&) = delete;
    GMp4Download& operator=(const GMp4Download&) = delete;

    // Returns when the transfer has ended. An error: nothing arrived, or (kind Aborted) it was stopped.
    GStatus Run();
    // Ends Run at once, also one that has yet to begin. Any thread.
    void StopDownload();

    // Narrow path of the temporary file.
    const std::string& CachePath() const { return cacheFile.Path(); }
    // Why not everything arrived, UTF-8; empty otherwise. After Run.
    const std::string& Shortfall() const { return shortfall; }

private:
    GMp4Download(GLockedTempFile cache, HttpRequest wanted, GDownloadStatus& status, GDownloadSink::GPost post);
    GStatus Conclude(const GHttpResult& result);

    GLockedTempFile cacheFile;
    HttpRequest request;
    GDownloadSink sink;
    GHttpClient client;
    std::atomic<bool> stopDownload{false};
    std::string shortfall;
};

// Deletes the temporary files of downloads ("mp4*.tmp") that nobody uses: those of programs that were killed. Any
// thread.
void DeleteStaleDownloads(const std::string& directory = TemporaryDirectory());

}  // namespace vex
