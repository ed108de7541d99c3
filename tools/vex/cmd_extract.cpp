#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>

#include "platform/text.h"
#include "tools/vex/commands.h"
#include "tools/vex/framers.h"
#include "tools/vex/output_file.h"
#include "tools/vex/session.h"

namespace vex {

namespace {

namespace fs = std::filesystem;

constexpr ULONG kAttachmentPiece = 1u << 20;  // bytes

fs::path PathOf(const std::string& utf8) { return {std::u8string(utf8.begin(), utf8.end())}; }

std::string Utf8Of(const fs::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// What one pin is written to. Touched by the pin's thread until the graph is stopped.
struct GPinOutput {
    std::string path;  // empty: standard output
    GFraming framing;
    GOutputFile file;
    std::uint64_t samples = 0;

    void Take(const GSampleView& view)
    {
        ++samples;
        framing.framer->Sample(view, [this](std::span<const std::uint8_t> bytes) { file.Write(bytes); });
    }
};

class GExtraction {
public:
    GExtraction(const GSettings& wanted, GSession& opened) : settings(wanted), session(opened) {}

    // False, with `problem` filled, when nothing could be written at all.
    bool Pins(GProblem& problem);
    bool Attachments(GProblem& problem);
    const GJson& Outputs() const { return outputs; }
    const GJson& Failure() const { return failure; }  // why it ended early, or null
    int Status() const { return status; }

private:
    bool Prepare(GProblem& problem);
    bool OpenOutput(GPinOutput& output, const std::string& path, GProblem& problem);
    void Finish(std::size_t pin, GPinOutput& output);
    bool MakeDirectory(GProblem& problem);
    std::string PathFor(std::size_t pin, const std::string& extension) const;
    bool IsTheInput(const std::string& path) const;
    void WriteAttachment(ULONG index, std::set<std::string>& taken);
    void Add(GJson json, GOutputFile& file);

    const GSettings& settings;
    GSession& session;
    std::vector<std::unique_ptr<GPinOutput>> pins;  // by pin; null for one that is not extracted
    GJson outputs = GJson::array();
    GJson failure;
    int status = kSound;
};

bool GExtraction::MakeDirectory(GProblem& problem)
{
    if (settings.output.empty()) {
        problem = {"", "--output names the directory to write to", S_OK, {}};
        return false;
    }
    std::error_code made;
    std::error_code found;
    fs::create_directories(PathOf(settings.output), made);
    if (fs::is_directory(PathOf(settings.output), found))
        return true;
    problem = {settings.output, made ? made.message() : "not a directory", S_OK, {}};
    return false;
}

std::string GExtraction::PathFor(std::size_t pin, const std::string& extension) const
{
    if (settings.pin)
        return settings.output;
    return Utf8Of(PathOf(settings.output) / PathOf(session.BaseName() + "_" + std::to_string(pin) + "." + extension));
}

bool GExtraction::IsTheInput(const std::string& path) const
{
    std::error_code error;
    return !path.empty() && fs::equivalent(PathOf(path), PathOf(session.File()), error);
}

bool GExtraction::OpenOutput(GPinOutput& output, const std::string& path, GProblem& problem)
{
    output.path = path;
    if (IsTheInput(path)) {
        problem = {path, "is the file that is read", S_OK, {}};
        return false;
    }
    if (!output.file.Open(path)) {
        problem = {path, output.file.Error(), S_OK, {}};
        return false;
    }
    output.framing.framer->Begin([&](std::span<const std::uint8_t> bytes) { output.file.Write(bytes); });
    return true;
}

// The connected types decide on the framing, so the files are opened between connecting and running.
bool GExtraction::Prepare(GProblem& problem)
{
    GHostGraph& graph = session.Graph();
    for (std::size_t pin = 0; pin < graph.PinCount(); ++pin) {
        if (!graph.Sink(pin))
            continue;
        pins[pin] = std::make_unique<GPinOutput>();
        pins[pin]->framing = ChooseFraming(graph.ConnectedType(pin).value_or(CMediaType()), settings.raw);
        pins[pin]->framing.framer->Describe(session.Properties(static_cast<LONG>(pin)));
        if (!OpenOutput(*pins[pin], PathFor(pin, pins[pin]->framing.extension), problem))
            return false;
    }
    return true;
}

bool GExtraction::Pins(GProblem& problem)
{
    if (!settings.pin && !MakeDirectory(problem))
        return false;
    if (settings.pin && settings.output.empty() && settings.json) {
        problem = {"", "with --json the payload needs an --output", S_OK, {}};
        return false;
    }
    pins.resize(session.Graph().PinCount());
    GSinkOptions options;
    options.onSample = [this](const GSampleView& view) {
        pins[view.pin]->Take(view);
        return S_OK;
    };
    if (!session.Connect(settings, options, problem) || !Prepare(problem))
        return false;
    const bool complete = session.Play(problem);
    for (std::size_t pin = 0; pin < pins.size(); ++pin)
        if (pins[pin])
            Finish(pin, *pins[pin]);
    if (!complete) {
        Complain(problem);
        failure = ProblemJson(problem);
        status = std::max(status, kDamaged);
    }
    return true;
}

// Closes `file`; what could not be written is said, and an entry of the result like the rest.
void GExtraction::Add(GJson json, GOutputFile& file)
{
    const bool whole = file.Close();
    json["bytes"] = file.Written();
    if (!whole) {
        const std::string path = json["path"].is_null() ? "standard output" : json["path"].get<std::string>();
        const GProblem problem{path, file.Error(), S_OK, {}};
        Complain(problem);
        json["error"] = ProblemJson(problem);
        status = kUnusable;
    }
    outputs.push_back(std::move(json));
}

void GExtraction::Finish(std::size_t pin, GPinOutput& output)
{
    output.framing.framer->Finish([&](std::span<const std::uint8_t> bytes) { output.file.Write(bytes); });
    if (const std::uint64_t count = output.framing.framer->Misshapen(); count > 0) {
        Complain({session.File(),
                  "pin " + std::to_string(pin) + ": " + std::to_string(count) + " samples do not have the shape of " +
                      output.framing.format,
                  S_OK,
                  {}});
        status = std::max(status, kDamaged);
    }
    GJson json;
    json["pin"] = pin;
    json["path"] = JsonText(output.path);
    json["format"] = output.framing.format;
    json["samples"] = output.samples;
    Add(std::move(json), output.file);
}

// A name in a file is a claim: only its last part is used, and never one that leads out of the directory, hides, or is
// too long for a file system.
std::string SafeName(const std::string& claimed, ULONG index)
{
    constexpr std::size_t kLongest = 200;  // bytes
    std::string name = claimed.substr(claimed.find_last_of("/\\:") + 1);
    std::erase_if(name, [](char c) { return static_cast<unsigned char>(c) < 0x20; });
    name.erase(0, name.find_first_not_of('.'));
    return name.empty() || name.size() > kLongest ? "attachment_" + std::to_string(index) : name;
}

void GExtraction::WriteAttachment(ULONG index, std::set<std::string>& taken)
{
    BSTR nameText = nullptr;
    BSTR mimeText = nullptr;
    BSTR descriptionText = nullptr;
    ULONGLONG size = 0;
    if (FAILED(session.Inspect()->GetAttachment(index, &nameText, &mimeText, &descriptionText, &size)))
        return;
    std::string name = SafeName(TakeText(nameText), index);
    const std::string mimeType = TakeText(mimeText);
    TakeText(descriptionText);
    const auto path = [&] { return Utf8Of(PathOf(settings.output) / PathOf(name)); };
    while (!taken.insert(name).second || IsTheInput(path()))
        name = std::to_string(index) + "_" + name;

    GOutputFile file;
    file.Open(path());
    std::vector<BYTE> piece(static_cast<std::size_t>(std::min<ULONGLONG>(size, kAttachmentPiece)));
    for (ULONGLONG offset = 0; offset < size; offset += piece.size()) {
        const auto count = static_cast<ULONG>(std::min<ULONGLONG>(piece.size(), size - offset));
        if (FAILED(session.Inspect()->ReadAttachment(index, offset, piece.data(), count))) {
            Complain({session.File(), "the attachment " + name + " is cut off", S_OK, {}});
            status = std::max(status, kDamaged);
            break;
        }
        file.Write(std::span(piece).first(count));
    }
    GJson json;
    json["attachment"] = index;
    json["path"] = path();
    json["format"] = mimeType;
    Add(std::move(json), file);
}

bool GExtraction::Attachments(GProblem& problem)
{
    if (!MakeDirectory(problem))
        return false;
    ULONG count = 0;
    if (session.Inspect())
        session.Inspect()->GetAttachmentCount(&count);
    std::set<std::string> taken;
    for (ULONG index = 0; index < count; ++index)
        WriteAttachment(index, taken);
    return true;
}

std::string OutputText(const GJson& output)
{
    std::string text = ValueText(output["path"]) + ": ";
    if (output.contains("samples"))
        text += "pin " + output["pin"].dump() + ", " + output["samples"].dump() + " samples, ";
    return text + output["bytes"].dump() + " bytes, " + ValueText(output["format"]) + "\n";
}

}  // namespace

int RunExtract(const GSettings& settings)
{
    GProblem problem;
    const std::string& file = settings.files.front();
    const auto session = GSession::Open(settings, file, problem);
    if (session) {
        GExtraction extraction(settings, *session);
        if (settings.attachments ? extraction.Attachments(problem) : extraction.Pins(problem)) {
            GJson json = session->Head();
            json["outputs"] = extraction.Outputs();
            const GDamage damage = session->Damage();
            json["damage"] = DamageJson(damage);
            if (!extraction.Failure().is_null())
                json["error"] = extraction.Failure();
            const bool payloadOnOutput = settings.pin && settings.output.empty() && !settings.attachments;
            if (settings.json)
                PrintDocument(FileDocument(std::move(json)));
            else if (!payloadOnOutput)
                for (const GJson& output : json["outputs"])
                    if (!output.contains("error"))
                        Print(OutputText(output));
            return std::max(extraction.Status(), session->Verdict(damage));
        }
    }
    return Refuse(settings, problem);
}

}  // namespace vex
