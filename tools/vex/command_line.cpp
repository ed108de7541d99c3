#include "tools/vex/command_line.h"

#include <algorithm>

#include <CLI/CLI.hpp>

#include "tools/vex/report.h"
#include "tools/vex/time_text.h"
#include "tools/vex/version.h"

namespace vex {

namespace {

constexpr char kHint[] = "Try 'vex --help'.";

std::string NotEmpty(const std::string& value) { return value.empty() ? "value must not be empty" : ""; }

std::string Dashed(const GOptionRow& row)
{
    const std::string longName = std::string("--") + row.name;
    return *row.letter ? std::string("-") + row.letter + "," + longName : longName;
}

void AddOption(CLI::App& command, const GOptionRow& row, GSettings& settings)
{
    std::visit(
        [&](auto member) {
            using Target = std::remove_reference_t<decltype(settings.*member)>;
            if constexpr (std::is_same_v<Target, bool>)
                command.add_flag(Dashed(row), settings.*member, row.help);
            else
                command.add_option(Dashed(row), settings.*member, row.help)->type_name(row.value)->check(NotEmpty);
        },
        row.target);
}

std::string Description(const GCommandRow& row)
{
    std::string description = row.description;
    if (row.command != GCommand::Filters)
        description += std::string("\n\n") + kUrlHelp;
    return row.command == GCommand::Seek ? description + "\n\n" + kTimeHelp : description;
}

void AddCommand(CLI::App& app, const GCommandRow& row, GSettings& settings)
{
    CLI::App* command = app.add_subcommand(row.name, row.help)->group("Commands");
    command->footer("Exit status: " + std::string(kExitStatus));
    command->set_version_flag("--version", std::string(kVersionText), "Print the version and exit");
    command->callback([&settings, which = row.command] { settings.command = which; });
    if (row.command == GCommand::Probe)
        command->add_option("FILE", settings.files, "Media files")->required()->type_name("")->check(NotEmpty);
    else if (row.command != GCommand::Filters)
        command
            ->add_option_function<std::string>(
                "FILE", [&settings](const std::string& file) { settings.files = {file}; }, "Media file")
            ->required()
            ->type_name("")
            ->check(NotEmpty);
    if (row.command == GCommand::Seek)
        command->add_option("TIME", settings.times, "Where to seek to")->required()->type_name("");
    for (const GOptionRow& option : OptionTable())
        if (option.commands & CommandBit(row.command))
            AddOption(*command, option, settings);
}

const GCommandRow* FindCommand(const std::string& name)
{
    for (const GCommandRow& row : CommandTable())
        if (name == row.name)
            return &row;
    return nullptr;
}

// Why the arguments do not begin as they should; empty when they do.
std::string NoCommand(const std::vector<std::string>& arguments)
{
    if (arguments.empty())
        return "missing COMMAND";
    const std::string& first = arguments.front();
    if (FindCommand(first) || first == "-h" || first == "--help" || first == "--version")
        return {};
    return first.starts_with('-') ? "'" + first + "': expected a COMMAND first; options follow it"
                                  : "unknown command '" + first + "'";
}

// Why settings that can be parsed make no sense; empty when they do.
std::string Contradiction(const GSettings& settings)
{
    if (settings.json && settings.csv)
        return "--json and --csv cannot be combined";
    if (settings.preroll && settings.noPreroll)
        return "--preroll and --no-preroll cannot be combined";
    if (settings.keyFrameSeek && settings.noPreroll)
        return "--key-frame-seek has no effect with --no-preroll";
    if (settings.samples && (*settings.samples < 1 || *settings.samples > kMostSamples))
        return "--samples takes 1 to " + std::to_string(kMostSamples);
    if (settings.attachments && (settings.pin || settings.raw || !settings.seek.empty()))
        return "--attachments cannot be combined with --pin, --raw or --seek";
    if (!settings.seek.empty() && !ParseTime(settings.seek))
        return "'" + settings.seek + "': invalid TIME. " + kTimeHelp;
    for (const std::string& time : settings.times)
        if (!ParseTime(time))
            return "'" + time + "': invalid TIME. " + kTimeHelp;
    return {};
}

}  // namespace

GCommandLine ReadCommandLine(std::vector<std::string> arguments)
{
    CLI::App app{kSummary, "vex"};
    app.allow_windows_style_options(false);
    app.set_version_flag("--version", std::string(kVersionText), "Print the version and exit");
    app.footer("Exit status: " + std::string(kExitStatus) + "\n'vex COMMAND --help' describes a command.");
    app.require_subcommand(1);
    app.get_formatter()->column_width(32);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");

    GSettings settings;
    for (const GCommandRow& row : CommandTable())
        AddCommand(app, row, settings);

    if (const std::string why = NoCommand(arguments); !why.empty()) {
        Complain(why + "\n" + kHint);
        return {{}, kUnusable};
    }
    std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
    try {
        app.parse(std::move(arguments));
    } catch (const CLI::CallForHelp&) {
        // The help asked for is that of the innermost command named.
        const auto chosen = app.get_subcommands();
        if (!chosen.empty())
            chosen.front()->description(Description(*FindCommand(chosen.front()->get_name())));
        Print((chosen.empty() ? app.help() : chosen.front()->help("vex")) + "\n");
        return {{}, kSound};
    } catch (const CLI::CallForVersion& version) {
        Print(std::string(version.what()) + "\n");
        return {{}, kSound};
    } catch (const CLI::ParseError& error) {
        Complain(std::string(error.what()) + "\n" + kHint);
        return {{}, kUnusable};
    }
    if (const std::string why = Contradiction(settings); !why.empty()) {
        Complain(why);
        return {{}, kUnusable};
    }
    if (settings.pin && settings.output == "-")
        settings.output.clear();
    return {std::move(settings), kSound};
}

}  // namespace vex
