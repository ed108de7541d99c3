#include <algorithm>

#include "tools/vex/commands.h"
#include "tools/vex/session.h"
#include "tools/vex/time_text.h"

namespace vex {

namespace {

constexpr std::uint32_t kDefaultSamples = 3;

// How long the first samples after a seek may take: a pin without any makes the filter read to the end of the file.
constexpr std::chrono::minutes kBound{10};

struct GFirstSample {
    REFERENCE_TIME start;
    REFERENCE_TIME stop;
    std::size_t size;
    bool sync;
    bool discontinuity;
    bool preroll;
};

// The first samples that each pin delivers from a position. The pins go on playing: a pin that waited would fill its
// queue and keep the samples of the others from being read.
class GFirstSamples {
public:
    GFirstSamples(GHostGraph& played, std::uint32_t perPin) : graph(played), wanted(perPin), pins(played.PinCount()) {}

    HRESULT Take(const GSampleView& view)
    {
        const GMutexLock held(lock);
        GPinSamples& pin = pins[view.pin];
        if (pin.segment != view.segment)
            pin = {view.segment, {}};
        if (pin.samples.size() < wanted)
            pin.samples.push_back(
                {view.start, view.stop, view.data.size(), view.sync, view.discontinuity, view.preroll});
        return S_OK;
    }

    // Waits until every pin has delivered what is wanted, or has ended.
    bool Wait()
    {
        return graph.WaitUntil(kBound, [this] {
            if (FAILED(graph.ErrorCode()))
                return true;
            for (std::size_t pin = 0; pin < graph.PinCount(); ++pin) {
                if (!graph.Sink(pin))
                    continue;
                const GSinkReport report = graph.Sink(pin)->Report();
                if (report.segmentSamples < wanted && !report.endOfStream && !report.refused)
                    return false;
            }
            return true;
        });
    }

    // What came in `segment`; a pin that ended at once keeps the samples of the segment before.
    std::vector<GFirstSample> Of(std::size_t pin, std::uint64_t segment)
    {
        const GMutexLock held(lock);
        return pins[pin].segment == segment ? pins[pin].samples : std::vector<GFirstSample>{};
    }

    // The pins go on playing, so only an end before the last sample asked for is the same in every run.
    bool EndedShort(const GSinkReport& report) const { return report.endOfStream && report.segmentSamples < wanted; }

private:
    GHostGraph& graph;
    const std::uint32_t wanted;
    struct GPinSamples {
        std::uint64_t segment = 0;
        std::vector<GFirstSample> samples;
    };
    GMutex lock;
    std::vector<GPinSamples> pins G_GUARDED_BY(lock);
};

GJson SamplesJson(const std::vector<GFirstSample>& samples)
{
    GJson list = GJson::array();
    for (const GFirstSample& sample : samples) {
        GJson json;
        json["start"] = JsonTime(sample.start);
        json["stop"] = JsonTime(sample.stop);
        json["size"] = sample.size;
        json["sync"] = sample.sync;
        json["discontinuity"] = sample.discontinuity;
        json["preroll"] = sample.preroll;
        list.push_back(std::move(json));
    }
    return list;
}

GJson LandingJson(GSession& session, GFirstSamples& first, std::size_t pin, const GSeekResult& seek)
{
    const GSinkReport report = session.Graph().Sink(pin)->Report();
    GJson json;
    json["index"] = pin;
    json["name"] = session.PinName(pin);
    json["result"] = ResultText(seek.result);
    json["reached"] = JsonTime(seek.reached);
    json["segmentStart"] = JsonTime(report.segmentStart);
    json["ended"] = first.EndedShort(report);
    json["samples"] = SamplesJson(first.Of(pin, report.segments));
    return json;
}

GJson SeekJson(GSession& session, GFirstSamples& first, REFERENCE_TIME target, bool& sound)
{
    const auto results = session.Graph().Seek(target);
    sound = first.Wait() && SUCCEEDED(session.Graph().ErrorCode());
    GJson json;
    json["requested"] = target;
    json["pins"] = GJson::array();
    for (std::size_t pin = 0; pin < results.size(); ++pin) {
        if (FAILED(results[pin].result))
            sound = false;
        json["pins"].push_back(LandingJson(session, first, pin, results[pin]));
    }
    return json;
}

std::string SeekText(const GJson& seek)
{
    const auto time = [](const GJson& value) { return value.is_null() ? kNoTime : value.get<std::int64_t>(); };
    std::string text = "seek to " + TimeText(time(seek["requested"])) + " (" + seek["requested"].dump() + ")\n";
    for (const GJson& pin : seek["pins"]) {
        text += "  pin " + pin["index"].dump() + " " + ValueText(pin["name"]) + ": reached " +
                TimeText(time(pin["reached"])) + " (" + pin["reached"].dump() + "), segment from " +
                pin["segmentStart"].dump() + "\n";
        for (const GJson& sample : pin["samples"])
            text += "    " + sample["start"].dump() + " to " + sample["stop"].dump() + ", " + sample["size"].dump() +
                    " bytes" + (sample["sync"] ? " sync" : "") + (sample["discontinuity"] ? " discontinuity" : "") +
                    (sample["preroll"] ? " preroll" : "") + "\n";
        if (pin["samples"].empty())
            text += "    no samples\n";
    }
    return text;
}

}  // namespace

int RunSeek(const GSettings& settings)
{
    const std::uint32_t perPin = settings.samples.value_or(kDefaultSamples);
    GProblem problem;
    const auto session = GSession::Open(settings, settings.files.front(), problem);
    if (!session)
        return Refuse(settings, problem);
    // The damage that opening and indexing met: how far the pins play on from each seek is not the same in every run.
    session->WaitForIndex();
    const GDamage damage = session->Damage();
    GHostGraph& graph = session->Graph();
    GFirstSamples first(graph, perPin);
    GSinkOptions options;
    options.onSample = [&](const GSampleView& view) { return first.Take(view); };
    if (!session->Connect(settings, options, problem))
        return Refuse(settings, problem);
    for (std::size_t pin = 0; pin < graph.PinCount(); ++pin)
        graph.Sink(pin)->AnnounceAt(perPin);
    if (const HRESULT result = graph.Run(); FAILED(result))
        return Refuse(settings, {session->File(), "the filter does not run: " + ResultText(result), result, {}});

    bool allSound = true;
    GJson seeks = GJson::array();
    for (const std::string& time : settings.times) {
        if (WasInterrupted())
            break;
        bool sound = true;
        GJson seek = SeekJson(*session, first, ParseTime(time).value_or(0), sound);
        if (!sound)
            Complain({session->File(), "the seek to " + time + " failed", graph.ErrorCode(), {}});
        allSound = allSound && sound;
        if (!settings.json)
            Print(SeekText(seek));
        seeks.push_back(std::move(seek));
    }
    graph.Stop();
    if (settings.json) {
        GJson json = session->Head();
        json["seeks"] = std::move(seeks);
        json["damage"] = DamageJson(damage);
        PrintDocument(FileDocument(std::move(json)));
    }
    return std::max(session->Verdict(damage), allSound ? kSound : kDamaged);
}

}  // namespace vex
