#include "formats/mp4/mp4_download.h"

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <new>
#include <utility>

#include "formats/mp4/mp4_interface.h"
#include "formats/mp4/mp4_url.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr char kPrefix[] = "mp4";
constexpr char kSuffix[] = ".tmp";
constexpr std::string_view kScheme = "http://";

}  // namespace

GDownloadSink::GDownloadSink(HttpRequest& wanted, GDownloadStatus& progress, GPost report, GClock theClock)
    : request(wanted), status(progress), post(std::move(report)), clock(theClock)
{
}

bool GDownloadSink::Begin(std::optional<std::uint64_t> contentLength)
{
    length = contentLength.value_or(0);
    if (request.contentLengthOut)
        *request.contentLengthOut = length;
    status.downloadState = VexMp4Download_Running;
    return true;
}

bool GDownloadSink::Take(std::span<const std::uint8_t> block)
{
    assert(!block.empty() && block.size() <= kHttpBlock);
    const auto size = static_cast<std::uint32_t>(block.size());
    if (request.file.IsOpen() && request.file.WriteAt(static_cast<std::int64_t>(total), block.data(), size) != size)
        return false;
    total += size;
    status.received = total;
    if (clock() - started >= kQuietTime)
        Post();
    limitReached = request.byteLimit >= 0 && total >= static_cast<std::uint64_t>(request.byteLimit);
    return !limitReached;
}

void GDownloadSink::Post() const
{
    if (length == 0)
        return;
    const double percent = static_cast<double>(total) / static_cast<double>(length) * 100;
    post(static_cast<std::int32_t>(std::min(percent, double{INT32_MAX})));  // a server may send more than it said
}

GResult<std::unique_ptr<GMp4Download>> GMp4Download::StartDownload(std::string_view url, GDownloadStatus& status,
                                                                   GDownloadSink::GPost post)
{
    HttpRequest request;
    request.url = EscapeUrl(url);
    if (request.url.size() >= kUrlCapacity)
        return GError{GErrorKind::Limit, "the URL is too long", 0};
    if (!request.url.starts_with(kScheme) && (request.url[0] == 'w' || request.url[0] == 'W'))
        request.url.insert(0, kScheme);
    GLockedTempFile cache;
    if (!cache.Create(kPrefix))
        return GError{GErrorKind::Io, "no temporary file can be created", 0, cache.LastError()};
    request.contentLengthOut = &status.contentLength;
    std::unique_ptr<GMp4Download> download(
        new GMp4Download(std::move(cache), std::move(request), status, std::move(post)));
    GOsFile& file = download->request.file;
    if (!file.CreateForWriting(download->CachePath().c_str()))
        return GError{GErrorKind::Io, "the temporary file cannot be written", 0, file.LastError()};
    return download;
}

GMp4Download::GMp4Download(GLockedTempFile cache, HttpRequest wanted, GDownloadStatus& status,
                           GDownloadSink::GPost post)
    : cacheFile(std::move(cache)),
      request(std::move(wanted)),
      sink(request, status, [this, to = std::move(post)](std::int32_t percent) {
          if (!stopDownload)
              to(percent);
      })
{
}

GMp4Download::~GMp4Download()
{
    request.file.Close();
    cacheFile.Release();
    try {
        DeleteIfUnused(CachePath());
    } catch (const std::bad_alloc&) {
        Trace("Memory ran short for the deletion of a temporary file\n");
    }
}

GStatus GMp4Download::Run()
{
    sink.Start();
    const GHttpResult result = client.Get(request.url, request.agent, sink);
    const std::uint32_t writeError = request.file.LastError();
    request.file.Close();
    if (stopDownload)
        return GError{GErrorKind::Aborted, "the download was stopped", 0};
    sink.Post();
    if (result.outcome == GHttpResult::Outcome::Refused && !sink.LimitReached())
        shortfall = writeError != 0 ? DescribeOsError(writeError) : "out of memory";
    return Conclude(result);
}

// What arrived may still be played. Where nothing did, the reason is the server's, not that the file is empty.
GStatus GMp4Download::Conclude(const GHttpResult& result)
{
    using enum GHttpResult::Outcome;
    if (result.outcome == BadStatus)
        return GError{GErrorKind::Io, "the server answered", 0, 0, result.text};
    if (result.outcome == NotBuilt)
        return GError{GErrorKind::Unsupported, "this build cannot download files", 0};
    if (result.outcome == Failed)
        shortfall = result.text;
    if (result.outcome == Aborted)  // not by this object: Run has looked at stopDownload
        shortfall = "the system ended the transfer";
    if (sink.Total() == 0 && !shortfall.empty())
        return GError{GErrorKind::Io, "the download failed:", 0, 0, shortfall};
    if (sink.Total() == 0)
        return GError{GErrorKind::EndOfStream, "the server sent an empty file", 0};
    return {};
}

void GMp4Download::StopDownload()
{
    stopDownload = true;
    client.Abort();
}

void DeleteStaleDownloads(const std::string& directory)
{
    for (const std::string& path : ListFiles(kPrefix, kSuffix, directory))
        DeleteIfUnused(path);
}

}  // namespace vex
