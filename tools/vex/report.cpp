#include "tools/vex/report.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vex {

namespace {

bool writeFailed = false;

}  // namespace

void Complain(std::string_view message)
{
    std::fprintf(stderr, "vex: %.*s\n", static_cast<int>(message.size()), message.data());
}

void Complain(const GProblem& problem)
{
    Complain(problem.file.empty() ? problem.message : problem.file + ": " + problem.message);
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
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
        writeFailed = true;
}

void PrintDocument(const GJson& document)
{
    Print(document.dump(2, ' ', false, GJson::error_handler_t::replace) + "\n");
}

bool FinishOutput()
{
    if (std::fflush(stdout) == 0 && !writeFailed)
        return true;
    Complain(std::string("standard output: ") + std::strerror(errno));
    return false;
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
