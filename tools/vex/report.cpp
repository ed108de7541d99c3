#include "tools/vex/report.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/console.h"

namespace vex {

namespace {

int writeError = 0;  // errno of the first write that failed

}  // namespace

// A program that was interrupted ends without a word.
void Complain(std::string_view message)
{
    if (WasInterrupted())
        return;
    std::fprintf(stderr, "vex: %.*s\n", static_cast<int>(message.size()), message.data());
}

void Complain(const GProblem& problem)
{
    Complain(OneLine(problem.file.empty() ? problem.message : problem.file + ": " + problem.message));
}

GJson ProblemJson(const GProblem& problem)
{
    GJson json;
    json["file"] = JsonText(problem.file);
    json["message"] = problem.message;
    json["code"] = problem.code == S_OK ? GJson(nullptr) : GJson(ResultText(problem.code));
    json["offset"] = problem.offset ? GJson(*problem.offset) : GJson(nullptr);
    return json;
}

void Print(std::string_view text)
{
    if (!WasInterrupted() && std::fwrite(text.data(), 1, text.size(), stdout) != text.size() && writeError == 0)
        writeError = errno;
}

void PrintDocument(const GJson& document)
{
    Print(document.dump(2, ' ', false, GJson::error_handler_t::replace) + "\n");
}

bool FinishOutput()
{
    if (std::fflush(stdout) != 0 && writeError == 0)
        writeError = errno;
    if (writeError == 0)
        return true;
    Complain(std::string("standard output: ") + std::strerror(writeError));
    return false;
}

std::string ValueText(const GJson& value)
{
    return value.is_string() ? OneLine(value.get_ref<const std::string&>()) : value.dump();
}

std::string OneLine(std::string_view raw)
{
    const auto at = [&](std::size_t i) { return i < raw.size() ? static_cast<unsigned char>(raw[i]) : 0u; };
    std::string text;
    for (std::size_t i = 0; i < raw.size(); ++i) {
        const bool c1 = at(i) == 0xC2 && at(i + 1) >= 0x80 && at(i + 1) < 0xA0;  // U+0080 to U+009F in UTF-8
        const unsigned code = c1 ? at(++i) : at(i);
        if (!c1 && code >= 0x20 && code != 0x7F) {
            text += raw[i];
            continue;
        }
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, code == '\n' ? "\\n" : "\\x%02X", code);
        text += escaped;
    }
    return text;
}

GJson FilesDocument(GJson files)
{
    GJson document;
    document["schema"] = kJsonSchema;
    document["files"] = std::move(files);
    return document;
}

GJson FileDocument(GJson file)
{
    GJson files = GJson::array();
    files.push_back(std::move(file));
    return FilesDocument(std::move(files));
}

GJson FailureDocument(const std::string& file, const GProblem& problem)
{
    GJson json;
    json["file"] = file;
    json["error"] = ProblemJson(problem);
    return FileDocument(std::move(json));
}

GJson JsonTime(REFERENCE_TIME time) { return time == kNoTime ? GJson(nullptr) : GJson(time); }

GJson JsonText(const std::string& text) { return text.empty() ? GJson(nullptr) : GJson(text); }

}  // namespace vex
