#include <algorithm>
#include <cstdio>
#include <string>

#include "platform/console.h"
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
           " to " + time(pin["lastStop"]) + (pin["ended"].get<bool>() ? "\n" : "  (no end)\n");
}

}  // namespace

int RunPlay(const GSettings& settings)
{
    GProblem problem;
    const auto session = GSession::Open(settings, settings.files.front(), problem);
    if (!session || !session->Connect(settings, {}, problem))
        return Refuse(settings, problem);

    GHostGraph& graph = session->Graph();
    const bool terminal = StandardErrorIsTerminal();
    std::function<void()> tick;
    if (terminal)
        tick = [&, duration = graph.Duration().value_or(0)] { ShowProgress(graph, duration); };
    const bool complete = session->Play(problem, tick);
    if (terminal)
        std::fputs("\r\x1B[K", stderr);

    GJson json = session->Head();
    json["pins"] = GJson::array();
    for (std::size_t pin = 0; pin < graph.PinCount(); ++pin)
        if (graph.Sink(pin))
            json["pins"].push_back(PinJson(*session, pin));
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
    }
    return std::max(session->Verdict(damage), complete ? kSound : kDamaged);
}

}  // namespace vex
