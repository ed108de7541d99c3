#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "host/md5.h"
#include "platform/console.h"
#include "platform/threads.h"
#include "tools/vex/commands.h"
#include "tools/vex/session.h"
#include "tools/vex/time_text.h"

namespace vex {

namespace {

// The furthest time that any pin has reached, from the start of the file.
REFERENCE_TIME Position(GHostGraph& graph)
{
    REFERENCE_TIME position = 0;
    for (std::size_t pin = 0; pin < graph.PinCount(); ++pin) {
        if (!graph.Sink(pin))
            continue;
        const GSinkReport report = graph.Sink(pin)->Report();
        if (report.lastStop != kNoTime && report.segmentStart != kNoTime)
            position = std::max(position, report.segmentStart + report.lastStop);
    }
    return position;
}

void ShowProgress(GHostGraph& graph, REFERENCE_TIME duration)
{
    const REFERENCE_TIME position = Position(graph);
    std::fprintf(stderr, "\r%s", TimeText(position).c_str());
    if (duration > 0)
        std::fprintf(
            stderr, " of %s (%d %%)", TimeText(duration).c_str(),
            static_cast<int>(std::min<REFERENCE_TIME>(100, position / std::max<REFERENCE_TIME>(1, duration / 100))));
    std::fflush(stderr);
}

GJson PinJson(GSession& session, std::size_t pin)
{
    const GSinkReport report = session.Graph().Sink(pin)->Report();
    GJson json;
    json["index"] = pin;
    json["name"] = session.PinName(pin);
    json["samples"] = report.samples;
    json["bytes"] = report.bytes;
    json["firstStart"] = JsonTime(report.firstStart);
    json["lastStop"] = JsonTime(report.lastStop);
    json["ended"] = report.endOfStream;
    return json;
}

constexpr std::size_t kWidestName = 40;  // columns; longer ones push the rest aside

// On a terminal: a UTF-8 text counts its characters, not its bytes.
std::size_t Columns(const std::string& text)
{
    return static_cast<std::size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string PinText(const GJson& pin, std::size_t nameColumns)
{
    const auto time = [](const GJson& value) {
        return TimeText(value.is_null() ? kNoTime : value.get<std::int64_t>());
    };
    const std::string name = ValueText(pin["name"]);
    char counts[96];
    std::snprintf(counts, sizeof counts, " %9llu samples %14llu bytes  ", pin["samples"].get<unsigned long long>(),
                  pin["bytes"].get<unsigned long long>());
    return "pin " + pin["index"].dump() + " " + name +
           std::string(nameColumns - std::min(nameColumns, Columns(name)), ' ') + counts + time(pin["firstStart"]) +
           " to " + time(pin["lastStop"]) +
           (pin.contains("md5") ? "  md5 " + pin["md5"].get<std::string>() : std::string()) +
           (pin["ended"].get<bool>() ? "\n" : "  (no end)\n");
}

// "0:01:44.178 in 0.04 s: 2604 x real time, 2890 MB/s"
void ShowSpeed(GHostGraph& graph, double seconds)
{
    std::uint64_t bytes = 0;
    for (std::size_t pin = 0; pin < graph.PinCount(); ++pin)
        bytes += graph.Sink(pin) ? graph.Sink(pin)->Report().bytes : 0;
    const REFERENCE_TIME played = Position(graph);
    seconds = std::max(seconds, 1e-3);
    std::fprintf(stderr, "%s in %.2f s: %.0f x real time, %.0f MB/s\n", TimeText(played).c_str(), seconds,
                 static_cast<double>(played) / 1e7 / seconds, static_cast<double>(bytes) / 1e6 / seconds);
}

// One digest per pin. Each is touched by its pin's streaming thread only, until the graph has ended.
class GPinHashes {
public:
    GSinkOptions Options(std::size_t pins)
    {
        hashes.resize(pins);
        GSinkOptions options;
        options.onSample = [this](const GSampleView& sample) {
            hashes[sample.pin].Update(sample.data);
            return S_OK;
        };
        return options;
    }
    std::string Take(std::size_t pin) { return HexText(hashes[pin].Finish()); }

private:
    std::vector<GMd5> hashes;
};

}  // namespace

int RunPlay(const GSettings& settings)
{
    GProblem problem;
    const auto session = GSession::Open(settings, settings.files.front(), problem);
    if (!session)
        return Refuse(settings, problem);
    GHostGraph& graph = session->Graph();
    GPinHashes hashes;
    const GSinkOptions options = settings.hash ? hashes.Options(graph.PinCount()) : GSinkOptions{};
    if (!session->Connect(settings, options, problem))
        return Refuse(settings, problem);

    const bool terminal = StandardErrorIsTerminal();
    std::function<void()> tick;
    if (terminal)
        tick = [&, duration = graph.Duration().value_or(0)] { ShowProgress(graph, duration); };
    const auto started = GSteadyClock::now();
    const bool complete = session->Play(problem, tick);
    const std::chrono::duration<double> took = GSteadyClock::now() - started;
    if (terminal)
        std::fputs("\r\x1B[K", stderr);

    GJson json = session->Head();
    json["pins"] = GJson::array();
    for (std::size_t pin = 0; pin < graph.PinCount(); ++pin)
        if (graph.Sink(pin)) {
            json["pins"].push_back(PinJson(*session, pin));
            if (settings.hash)
                json["pins"].back()["md5"] = hashes.Take(pin);
        }
    const GDamage damage = session->Damage();
    json["damage"] = DamageJson(damage);
    if (!complete) {
        Complain(problem);
        json["error"] = ProblemJson(problem);
    }
    if (settings.json) {
        PrintDocument(FileDocument(json));
    } else {
        std::size_t widest = 0;
        for (const GJson& pin : json["pins"])
            widest = std::max(widest, Columns(ValueText(pin["name"])));
        for (const GJson& pin : json["pins"])
            Print(PinText(pin, std::min(widest, kWidestName)));
        if (terminal)  // not the same in every run, so the result leaves it out
            ShowSpeed(graph, took.count());
    }
    return std::max(session->Verdict(damage), complete ? kSound : kDamaged);
}

}  // namespace vex
