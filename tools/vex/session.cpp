#include "tools/vex/session.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <thread>

#include "media/id3.h"
#include "platform/file.h"
#include "platform/text.h"
#include "tools/vex/download_bar.h"
#include "tools/vex/time_text.h"

namespace vex {

namespace {

// How long no pin may deliver anything before the filter is said to hang. Beyond what a slow disk or a scan takes.
constexpr std::chrono::minutes kStall{2};

// How long an index may take to be built: every byte of a file on a slow disk.
constexpr std::chrono::minutes kIndexBound{10};

// The position in "... at byte 1234": filters say it that way.
std::optional<std::uint64_t> OffsetIn(const std::string& message)
{
    static constexpr std::string_view kMark = "at byte ";
    const std::size_t mark = message.rfind(kMark);
    if (mark == std::string::npos)
        return {};
    std::uint64_t offset = 0;
    const char* first = message.data() + mark + kMark.size();
    const auto [end, error] = std::from_chars(first, message.data() + message.size(), offset);
    return error == std::errc{} && end != first ? std::optional(offset) : std::nullopt;
}

// The first bytes of a file; nothing, with `problem` filled, when it cannot be read or is empty.
std::optional<std::vector<std::uint8_t>> ReadStart(const std::string& file, GProblem& problem)
{
    GOsFile source;
    if (!source.OpenForReading(NarrowPathFromWide(WideFromPathArgument(file)).c_str())) {
        problem.message = DescribeOsError(source.LastError());
        problem.code = HResultFromOsError(source.LastError());
        return {};
    }
    std::vector<std::uint8_t> start(kContentProbeBytes);
    const std::int64_t count = source.ReadAt(0, start.data(), kContentProbeBytes);
    if (count <= 0) {
        problem.message = count < 0 ? "cannot be read" : "the file is empty";
        problem.offset = 0;
        return {};
    }
    start.resize(static_cast<std::size_t>(count));
    // A tag with pictures hides what it is in front of.
    if (const auto tag = Id3TagSize(start); tag && *tag >= start.size()) {
        std::vector<std::uint8_t> behind(kContentProbeBytes);
        const std::int64_t more = source.ReadAt(*tag, behind.data(), kContentProbeBytes);
        if (more > 0) {
            behind.resize(static_cast<std::size_t>(more));
            return behind;
        }
    }
    return start;
}

const GFilterInfo* ChooseFilter(const GSettings& settings, const std::string& file, GProblem& problem)
{
    if (const GFilterInfo* loader = FindByUrl(file)) {
        if (settings.filter.empty() || FindByName(settings.filter) == loader)
            return loader;
        problem.message = "a URL can only be opened with the filter '" + std::string(loader->shortName) + "'";
        return nullptr;
    }
    const auto start = ReadStart(file, problem);
    if (!start)
        return nullptr;
    const GFilterInfo* entry = nullptr;
    if (!settings.filter.empty()) {
        entry = FindByName(settings.filter);
        if (!entry)
            problem = {"", "unknown filter '" + settings.filter + "'; 'vex filters' lists them", S_OK, {}};
        return entry;
    }
    entry = FindByContent(*start);
    if (!entry)
        entry = FindByExtension(file);
    if (!entry) {
        problem.message = "unrecognised format; use --filter to choose one";
        problem.offset = 0;
    }
    return entry;
}

GJson PropertyValue(const std::string& value, VexPropertyType type)
{
    if (type == VexProperty_Boolean)
        return value == "true";
    std::int64_t number = 0;
    if (type == VexProperty_Integer) {
        const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
        if (error == std::errc{} && end == value.data() + value.size())
            return number;
    }
    return value;
}

}  // namespace

GModule ChooseModule(const GSettings& settings, GProblem& problem)
{
    if (settings.module.empty())
        return LinkedModule();
    std::string error;
    GModule module = LoadModule(WideFromPathArgument(settings.module), error);
    if (!module.IsUsable())
        problem = {"", "the module cannot be loaded: " + error, S_OK, {}};
    return module;
}

std::unique_ptr<GSession> GSession::Open(const GSettings& settings, const std::string& file, GProblem& problem)
{
    problem = {file, "", S_OK, {}};
    const GFilterInfo* entry = ChooseFilter(settings, file, problem);
    if (!entry)
        return nullptr;
    GModule module = ChooseModule(settings, problem);
    if (!module.IsUsable())
        return nullptr;
    std::unique_ptr<GSession> session(new GSession(std::move(module), *entry, file));
    if (const HRESULT result = session->graph.Create(entry->clsid); FAILED(result)) {
        problem.message = "this build cannot read it yet (" + DisplayName(*entry) + ")";
        problem.code = result;
        return nullptr;
    }
    if (!session->Load(problem) || !session->SetOptions(settings, problem))
        return nullptr;
    return session;
}

bool GSession::Load(GProblem& problem)
{
    GDownloadBar bar;
    GHostGraph::GLoadTick tick;
    if (FindByUrl(file)) {
        interrupts = std::make_unique<GInterruptWatch>([progress = graph.Progress()] { progress->Cancel(); });
        if (StandardErrorIsTerminal())
            tick = [&](std::uint64_t done, std::uint64_t total) { bar.Show(done, total); };
    }
    const HRESULT result = graph.Load(WideFromPathArgument(file), tick);
    bar.Clear();
    notWhole = graph.ErrorText();
    if (FAILED(result)) {
        problem.message = graph.ErrorText().empty() ? "the filter cannot open it" : graph.ErrorText();
        problem.code = result;
        problem.offset = OffsetIn(problem.message);
        return false;
    }
    inspect = graph.Control<IVexInspect>(IID_IVexInspect);
    return true;
}

bool GSession::SetOptions(const GSettings& settings, GProblem& problem)
{
    if (!settings.keyFrameSeek && !settings.preroll && !settings.noPreroll)
        return true;
    // A key-frame seek needs the preroll mark too; some filters start without it.
    const bool mark = !settings.noPreroll;
    if (FAILED(inspect->SetSeekOptions(settings.keyFrameSeek, mark))) {
        problem.message = "the " + DisplayName(*filter) + " has no key-frame and preroll options";
        return false;
    }
    return true;
}

void GSession::WaitForIndex() const
{
    const auto bound = GSteadyClock::now() + kIndexBound;
    while (inspect && inspect->IsIndexComplete() == S_FALSE && GSteadyClock::now() < bound)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

bool GSession::Connect(const GSettings& settings, const GSinkOptions& options, GProblem& problem)
{
    problem = {file, "", S_OK, {}};
    HRESULT result = S_OK;
    if (settings.pin) {
        if (*settings.pin >= graph.PinCount()) {
            problem.message = "no pin " + std::to_string(*settings.pin) + ": the file has pins 0 to " +
                              std::to_string(graph.PinCount() - 1);
            return false;
        }
        result = graph.Connect(*settings.pin, options);
    } else {
        result = graph.ConnectAll(options);
    }
    if (FAILED(result)) {
        problem.message = "a pin cannot be connected: " + ResultText(result);
        problem.code = result;
        return false;
    }
    if (settings.seek.empty())
        return true;
    WaitForIndex();
    for (const GSeekResult& seek : graph.Seek(ParseTime(settings.seek).value_or(0))) {
        if (FAILED(seek.result)) {
            problem.message = "cannot seek to " + settings.seek + ": " + ResultText(seek.result);
            problem.code = seek.result;
            return false;
        }
    }
    return true;
}

bool GSession::Play(GProblem& problem, const std::function<void()>& tick)
{
    problem = {file, "", S_OK, {}};
    if (const HRESULT result = graph.Run(); FAILED(result)) {
        problem.message = "the filter does not run: " + ResultText(result);
        problem.code = result;
        return false;
    }
    GEnd end = graph.WaitForEnd(kStall, tick);
    graph.Stop();  // ends the streaming threads: an abort may be told behind the end of its stream
    if (FAILED(graph.ErrorCode()))
        end = GEnd::Failed;
    if (end == GEnd::Failed) {
        problem.code = graph.ErrorCode();
        problem.message = "playback was aborted: " + ResultText(problem.code);
    } else if (end == GEnd::Cancelled) {
        problem.code = E_ABORT;
        problem.message = "interrupted";
    } else if (end == GEnd::Stalled) {
        problem.code = VFW_E_TIMEOUT;
        problem.message = "the filter stopped delivering before the end";
    }
    return end == GEnd::Complete;
}

std::string GSession::PinName(std::size_t pin) const { return Utf8FromWide(graph.PinName(pin)); }

std::string GSession::PinLanguage(std::size_t pin) const
{
    BSTR language = nullptr;
    if (!inspect || FAILED(inspect->GetPinLanguage(static_cast<LONG>(pin), &language)))
        return {};
    return TakeText(language);
}

GJson GSession::Properties(LONG pin) const
{
    GJson properties = GJson::object();
    ULONG count = 0;
    if (!inspect || FAILED(inspect->GetPropertyCount(pin, &count)))
        return properties;
    for (ULONG i = 0; i < count; ++i) {
        BSTR name = nullptr;
        BSTR value = nullptr;
        VexPropertyType type = VexProperty_Text;
        if (FAILED(inspect->GetProperty(pin, i, &name, &value, &type)))
            continue;
        const std::string key = TakeText(name);
        properties[key] = PropertyValue(TakeText(value), type);
    }
    return properties;
}

GDamage GSession::Damage() const
{
    GDamage damage;
    ULONGLONG places = 0;
    ULONGLONG bytes = 0;
    BSTR first = nullptr;
    if (inspect && SUCCEEDED(inspect->GetDamage(&places, &bytes, &first))) {
        damage.places = places;
        damage.bytes = bytes;
        damage.first = TakeText(first);
    }
    return damage;
}

std::string GSession::BaseName() const
{
    namespace fs = std::filesystem;
    if (!FindByUrl(file)) {
        const std::u8string stem = fs::path(std::u8string(file.begin(), file.end())).stem().u8string();
        return {stem.begin(), stem.end()};
    }
    // The last part of a URL's path; what a file system may take for something else is replaced.
    std::string name = file.substr(0, file.find_first_of("?#"));
    name.erase(0, name.find_last_of('/') + 1);
    name.erase(std::min(name.size(), name.find_last_of('.')));
    for (char& c : name)
        if (static_cast<unsigned char>(c) < 0x20 || std::string_view("\\:*\"<>|").find(c) != std::string_view::npos)
            c = '_';
    return name.empty() ? "download" : name;
}

GJson GSession::Head() const
{
    GJson head;
    head["file"] = file;
    head["container"] = *filter->container ? filter->container : filter->formats;
    head["filter"] = DisplayName(*filter);
    head["duration"] = JsonTime(graph.Duration().value_or(kNoTime));
    if (!notWhole.empty())
        head["incomplete"] = notWhole;
    return head;
}

int GSession::Verdict(const GDamage& damage)
{
    if (!notWhole.empty())
        Complain({file, notWhole, S_OK, {}});
    if (damage.places > 0)
        Complain({file, "damaged: " + DamageText(damage), S_OK, {}});
    int verdict = damage.places > 0 || !notWhole.empty() ? kDamaged : kSound;
    for (std::size_t pin = 0; pin < graph.PinCount(); ++pin) {
        if (!graph.Sink(pin))
            continue;
        for (const std::string& violation : graph.Sink(pin)->Report().violations) {
            Complain({file, "pin " + std::to_string(pin) + ": " + violation, S_OK, {}});
            verdict = kDamaged;
        }
    }
    return verdict;
}

int Refuse(const GSettings& settings, const GProblem& problem)
{
    Complain(problem);
    if (settings.json)
        PrintDocument(FailureDocument(settings.files.front(), problem));
    return kUnusable;
}

GJson DamageJson(const GDamage& damage)
{
    GJson json;
    json["places"] = damage.places;
    json["bytes"] = damage.bytes;
    json["first"] = JsonText(damage.first);
    return json;
}

std::string DamageText(const GDamage& damage)
{
    if (damage.places == 0)
        return {};
    std::string text = std::to_string(damage.places) + (damage.places == 1 ? " place, " : " places, ") +
                       std::to_string(damage.bytes) + " bytes passed over";
    return damage.first.empty() ? text : text + "; first: " + damage.first;
}

}  // namespace vex
