#include "framework/media/media_type_text.h"
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

GJson PinJson(GSession& session, std::size_t pin)
{
    GJson json;
    json["index"] = pin;
    json["name"] = session.PinName(pin);
    json["language"] = JsonText(session.PinLanguage(pin));
    const auto types = session.Graph().PinTypes(pin);
    json.update(TypeJson(types.empty() ? CMediaType() : types.front()));
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

// The people's form of the same document.
std::string FileText(const GJson& file)
{
    const auto time = [](const GJson& value) {
        return value.is_null() ? "unknown" : TimeText(value.get<std::int64_t>());
    };
    std::string text = ValueText(file["file"]) + "\n";
    text += "  container: " + ValueText(file["container"]) + "\n";
    text += "  filter:    " + ValueText(file["filter"]) + "\n";
    text += "  duration:  " + time(file["duration"]) + "\n";
    text += PairsText(file["properties"], "  ");
    for (const GJson& pin : file["pins"]) {
        text += "  pin " + pin["index"].dump() + ": " + ValueText(pin["name"]);
        if (!pin["language"].is_null())
            text += " [" + ValueText(pin["language"]) + "]";
        text += "\n    " + ValueText(pin["major"]) + " / " + ValueText(pin["subtype"]) + " / " +
                ValueText(pin["formatType"]) + "\n";
        text += PairsText(pin["format"], "      ");
        for (const GJson& other : pin["alternatives"])
            text += "    or " + ValueText(other["major"]) + " / " + ValueText(other["subtype"]) + " / " +
                    ValueText(other["formatType"]) + "\n";
        text += PairsText(pin["properties"], "    ");
    }
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
            Print(FileText(json));
        status = std::max(status, session->Verdict(damage));
        files.push_back(std::move(json));
    }
    if (settings.json)
        PrintDocument(FilesDocument(std::move(files)));
    return status;
}

}  // namespace vex
