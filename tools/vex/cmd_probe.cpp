#include "media/media_type_text.h"
#include "media/stream_summary.h"
#include "tools/vex/commands.h"
#include "tools/vex/session.h"
#include "tools/vex/time_text.h"

namespace vex {

namespace {

GJson FieldsJson(const AM_MEDIA_TYPE& type)
{
    GJson fields = GJson::object();
    for (const GProperty& field : FormatFields(type)) {
        if (field.type == GProperty::Type::Text)
            fields[field.name] = field.value;
        else  // integers and booleans are written as JSON writes them
            fields[field.name] = GJson::parse(field.value, nullptr, false);
    }
    return fields;
}

GJson TypeJson(const AM_MEDIA_TYPE& type)
{
    GJson json;
    json["major"] = MajorTypeName(type.majortype);
    json["subtype"] = SubtypeName(type.subtype);
    json["formatType"] = FormatTypeName(type.formattype);
    json["format"] = FieldsJson(type);
    return json;
}

// What the type says in users' words; null where it is silent.
GJson SummaryJson(const GStreamSummary& summary)
{
    GJson json;
    json["codec"] = summary.codec;
    json["profile"] = JsonText(summary.profile);
    json["frameRate"] = summary.frameRate > 0 ? GJson(summary.frameRate) : GJson(nullptr);
    json["bitRate"] = summary.bitRate != 0 ? GJson(summary.bitRate) : GJson(nullptr);
    json["summary"] = SummaryText(summary);
    return json;
}

GJson PinJson(GSession& session, std::size_t pin)
{
    GJson json;
    json["index"] = pin;
    json["name"] = session.PinName(pin);
    json["language"] = JsonText(session.PinLanguage(pin));
    const auto types = session.Graph().PinTypes(pin);
    const CMediaType type = types.empty() ? CMediaType() : types.front();
    json.update(TypeJson(type));
    json.update(SummaryJson(SummariseStream(type)));
    json["alternatives"] = GJson::array();
    for (std::size_t i = 1; i < types.size(); ++i)
        json["alternatives"].push_back(TypeJson(types[i]));
    json["properties"] = session.Properties(static_cast<LONG>(pin));
    return json;
}

GJson AttachmentsJson(IVexInspect* inspect)
{
    GJson attachments = GJson::array();
    ULONG count = 0;
    if (!inspect || FAILED(inspect->GetAttachmentCount(&count)))
        return attachments;
    for (ULONG i = 0; i < count; ++i) {
        BSTR name = nullptr;
        BSTR mimeType = nullptr;
        BSTR description = nullptr;
        ULONGLONG size = 0;
        if (FAILED(inspect->GetAttachment(i, &name, &mimeType, &description, &size)))
            continue;
        GJson attachment;
        attachment["name"] = TakeText(name);
        attachment["mimeType"] = TakeText(mimeType);
        attachment["description"] = JsonText(TakeText(description));
        attachment["size"] = size;
        attachments.push_back(std::move(attachment));
    }
    return attachments;
}

GJson FileJson(GSession& session, const GDamage& damage)
{
    GJson json = session.Head();
    json["properties"] = session.Properties(-1);
    json["pins"] = GJson::array();
    for (std::size_t pin = 0; pin < session.Graph().PinCount(); ++pin)
        json["pins"].push_back(PinJson(session, pin));
    json["attachments"] = AttachmentsJson(session.Inspect());
    json["damage"] = DamageJson(damage);
    return json;
}

std::string PairsText(const GJson& object, const char* indent)
{
    std::string text;
    for (const auto& [name, value] : object.items())
        text += indent + ValueText(name) + ": " + ValueText(value) + "\n";
    return text;
}

// The properties that set a stream apart, as words behind its line.
std::string Marks(const GJson& properties)
{
    std::string text;
    for (const char* mark : {"default", "forced", "encrypted"}) {
        const auto found = properties.find(mark);
        if (found != properties.end() && *found == true)
            text += std::string(" ") + mark;
    }
    return text;
}

std::string PinLine(const GJson& pin)
{
    std::string text = "  " + pin["index"].dump() + "  " + ValueText(pin["major"]) + "  " + ValueText(pin["summary"]);
    if (!pin["language"].is_null() && pin["language"] != "Undetermined")
        text += "  [" + ValueText(pin["language"]) + "]";
    return text + Marks(pin["properties"]) + "\n";
}

std::string PinDetails(const GJson& pin)
{
    const auto typeNames = [](const GJson& type) {
        return ValueText(type["major"]) + " / " + ValueText(type["subtype"]) + " / " + ValueText(type["formatType"]) +
               "\n";
    };
    std::string text = "       pin: " + ValueText(pin["name"]) + "\n       type: " + typeNames(pin);
    text += PairsText(pin["format"], "         ");
    for (const GJson& other : pin["alternatives"])
        text += "       or: " + typeNames(other);
    return text + PairsText(pin["properties"], "       ");
}

// The people's form of the same document.
std::string FileText(const GJson& file, bool verbose)
{
    const GJson& duration = file["duration"];
    std::string text = ValueText(file["file"]) + ": " + ValueText(file["container"]) + ", " +
                       (duration.is_null() ? "unknown duration" : TimeText(duration.get<std::int64_t>()));
    const auto title = file["properties"].find("title");
    if (title != file["properties"].end())
        text += ", \"" + ValueText(*title) + "\"";
    text += "\n";
    if (verbose)
        text += "  filter: " + ValueText(file["filter"]) + "\n" + PairsText(file["properties"], "  ");
    const auto unindexed = file["properties"].find("unindexed_bytes");
    if (unindexed != file["properties"].end())
        text += "  note: the index leaves out " + ValueText(*unindexed) + " bytes or more of the data\n";
    for (const GJson& pin : file["pins"])
        text += PinLine(pin) + (verbose ? PinDetails(pin) : "");
    for (const GJson& attachment : file["attachments"])
        text += "  attachment: " + ValueText(attachment["name"]) + " (" + ValueText(attachment["mimeType"]) + ", " +
                attachment["size"].dump() + " bytes)\n";
    return text;
}

}  // namespace

int RunProbe(const GSettings& settings)
{
    int status = kSound;
    GJson files = GJson::array();
    for (const std::string& file : settings.files) {
        GProblem problem;
        if (WasInterrupted())
            break;
        const auto session = GSession::Open(settings, file, problem);
        if (!session) {
            Complain(problem);
            files.push_back(FailureDocument(file, problem)["files"][0]);
            status = kUnusable;
            continue;
        }
        const GDamage damage = session->Damage();
        GJson json = FileJson(*session, damage);
        if (!settings.json)
            Print(FileText(json, settings.verbose));
        status = std::max(status, session->Verdict(damage));
        files.push_back(std::move(json));
    }
    if (settings.json)
        PrintDocument(FilesDocument(std::move(files)));
    return status;
}

}  // namespace vex
