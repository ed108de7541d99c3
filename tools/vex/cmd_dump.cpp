#include <cstdio>
#include <deque>

#include "host/md5.h"
#include "tools/vex/commands.h"
#include "tools/vex/session.h"
#include "tools/vex/time_text.h"

namespace vex {

namespace {

enum GRecordFlag : std::uint32_t { kSync = 1, kDiscontinuity = 2, kPreroll = 4 };

// Pins deliver on threads of their own, so the samples of all but the first printed have to be kept until their turn.
struct GRecord {
    REFERENCE_TIME start;  // 100 ns
    REFERENCE_TIME stop;
    LONGLONG mediaStart;
    LONGLONG mediaStop;
    std::uint32_t size;  // bytes
    std::uint32_t flags;
    GMd5Digest digest;
};
static_assert(sizeof(GRecord) <= 64, "a file may have millions of samples");

using GRecords = std::deque<GRecord>;

GRecord Record(const GSampleView& view)
{
    const std::uint32_t flags =
        (view.sync ? kSync : 0u) | (view.discontinuity ? kDiscontinuity : 0u) | (view.preroll ? kPreroll : 0u);
    return {
        view.start, view.stop,          view.mediaStart, view.mediaStop, static_cast<std::uint32_t>(view.data.size()),
        flags,      GMd5::Of(view.data)};
}

std::string Number(std::int64_t value, const char* none) { return value == kNoTime ? none : std::to_string(value); }

std::string JsonLine(std::size_t pin, const GRecord& r)
{
    const auto flag = [&](GRecordFlag bit) { return r.flags & bit ? "true" : "false"; };
    return "{\"pin\":" + std::to_string(pin) + ",\"start\":" + Number(r.start, "null") +
           ",\"stop\":" + Number(r.stop, "null") + ",\"mediaStart\":" + Number(r.mediaStart, "null") +
           ",\"mediaStop\":" + Number(r.mediaStop, "null") + ",\"size\":" + std::to_string(r.size) +
           ",\"sync\":" + flag(kSync) + ",\"discontinuity\":" + flag(kDiscontinuity) +
           ",\"preroll\":" + flag(kPreroll) + ",\"md5\":\"" + HexText(r.digest) + "\"}\n";
}

constexpr char kCsvHead[] = "pin,start,stop,mediaStart,mediaStop,size,sync,discontinuity,preroll,md5\n";

std::string CsvLine(std::size_t pin, const GRecord& r)
{
    const auto flag = [&](GRecordFlag bit) { return r.flags & bit ? ",1" : ",0"; };
    return std::to_string(pin) + "," + Number(r.start, "") + "," + Number(r.stop, "") + "," + Number(r.mediaStart, "") +
           "," + Number(r.mediaStop, "") + "," + std::to_string(r.size) + flag(kSync) + flag(kDiscontinuity) +
           flag(kPreroll) + "," + HexText(r.digest) + "\n";
}

constexpr char kTextHead[] = "pin           start            stop       size  flags  md5\n";

std::string TextLine(std::size_t pin, const GRecord& r)
{
    char text[160];
    std::snprintf(text, sizeof text, "%3zu %15s %15s %10lu  %c%c%c    %s\n", pin, Number(r.start, "-").c_str(),
                  Number(r.stop, "-").c_str(), static_cast<unsigned long>(r.size), r.flags & kSync ? 'S' : '-',
                  r.flags & kDiscontinuity ? 'D' : '-', r.flags & kPreroll ? 'P' : '-', HexText(r.digest).c_str());
    return text;
}

void PrintRecords(const GSettings& settings, const std::vector<GRecords>& pins)
{
    if (!settings.json)
        Print(settings.csv ? kCsvHead : kTextHead);
    const auto line = settings.json ? JsonLine : settings.csv ? CsvLine : TextLine;
    for (std::size_t pin = 0; pin < pins.size(); ++pin)
        for (const GRecord& record : pins[pin])
            Print(line(pin, record));
}

void Report(const GSettings& settings, const GProblem& problem)
{
    Complain(problem);
    if (!settings.json)
        return;
    GJson line;
    line["error"] = ProblemJson(problem);
    Print(line.dump(-1, ' ', false, GJson::error_handler_t::replace) + "\n");
}

}  // namespace

int RunDump(const GSettings& settings)
{
    GProblem problem;
    const auto session = GSession::Open(settings, settings.files.front(), problem);
    if (!session) {
        Report(settings, problem);
        return kUnusable;
    }
    std::vector<GRecords> pins(session->Graph().PinCount());  // each touched by its pin's thread until Play returns
    GSinkOptions options;
    options.onSample = [&](const GSampleView& view) {
        pins[view.pin].push_back(Record(view));
        return S_OK;
    };
    if (!session->Connect(settings, options, problem)) {
        Report(settings, problem);
        return kUnusable;
    }
    const bool complete = session->Play(problem);
    PrintRecords(settings, pins);
    if (!complete)
        Report(settings, problem);
    return std::max(session->Verdict(session->Damage()), complete ? kSound : kDamaged);
}

}  // namespace vex
