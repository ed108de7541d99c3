#include "tools/vex/generate.h"

#include "host/filter_catalog.h"
#include "tools/vex/settings.h"
#include "tools/vex/version.h"

namespace vex {

namespace {

// Text for troff: a dash is a dash, a backslash a backslash, and a line may begin with a dot.
std::string Roff(std::string_view text)
{
    std::string safe;
    for (const char c : text) {
        if (c == '-')
            safe += "\\-";
        else if (c == '\\')
            safe += "\\e";
        else
            safe += c;
    }
    return safe.starts_with('.') || safe.starts_with('\'') ? "\\&" + safe : safe;
}

// Inside single quotes of a shell.
std::string Quoted(std::string_view text)
{
    std::string safe;
    for (const char c : text)
        safe += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return safe;
}

std::string FilterNames(const char* separator)
{
    std::string names;
    for (const GFilterInfo* const entry : FilterCatalog())
        names += (names.empty() ? "" : separator) + std::string(entry->shortName);
    return names;
}

bool Has(const GOptionRow& option, GCommand command) { return (option.commands & CommandBit(command)) != 0; }

std::string ManOption(const GOptionRow& option)
{
    std::string text = ".TP\n";
    if (*option.letter)
        text += "\\fB\\-" + std::string(option.letter) + "\\fR, ";
    text += "\\fB\\-\\-" + Roff(option.name) + "\\fR";
    if (*option.value)
        text += " \\fI" + Roff(option.value) + "\\fR";
    return text + "\n" + Roff(option.help) + ".\n";
}

std::string Man()
{
    std::string text = ".TH VEX 1 \"\" \"" + std::string(kVersionText) + "\"\n.SH NAME\nvex \\- " + Roff(kSummary) +
                       "\n.SH SYNOPSIS\n";
    for (const GCommandRow& row : CommandTable())
        text += ".B vex " + std::string(row.name) + "\n[\\fIOPTION\\fR]... \\fI" + Roff(row.arguments) + "\\fR\n.br\n";
    text += ".SH COMMANDS\n";
    for (const GCommandRow& row : CommandTable()) {
        text +=
            ".SS \"vex " + std::string(row.name) + " " + Roff(row.arguments) + "\"\n" + Roff(row.description) + "\n";
        for (const GOptionRow& option : OptionTable())
            if (Has(option, row.command))
                text += ManOption(option);
    }
    text += ".SH OPTIONS OF EVERY COMMAND\n.TP\n\\fB\\-h\\fR, \\fB\\-\\-help\\fR\nPrint how it is used.\n.TP\n"
            "\\fB\\-\\-version\\fR\nPrint the version.\n";
    text += ".SH URLS\n" + Roff(kUrlHelp) + "\n";
    text += ".SH TIMES\n" + Roff(kTimeHelp) + "\n";
    text += ".SH FILTERS\nThe short names of the filters are " + Roff(FilterNames(", ")) + ".\n";
    text += ".SH EXIT STATUS\n" + Roff(kExitStatus) + "\n";
    return text;
}

std::string BashOptions(GCommand command)
{
    std::string words = "-h --help --version";
    for (const GOptionRow& option : OptionTable()) {
        if (!Has(option, command))
            continue;
        words += std::string(" --") + option.name;
        if (*option.letter)
            words += std::string(" -") + option.letter;
    }
    return words;
}

// "--filter|-f" for every option whose value is of this kind.
std::string BashNamesOf(GValueKind kind)
{
    std::string names;
    for (const GOptionRow& option : OptionTable()) {
        if (option.kind != kind)
            continue;
        names += (names.empty() ? "--" : "|--") + std::string(option.name);
        if (*option.letter)
            names += std::string("|-") + option.letter;
    }
    return names;
}

std::string Bash()
{
    std::string text =
        "# bash completion for vex\n_vex()\n{\n"
        "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command=${COMP_WORDS[1]}\n"
        "    COMPREPLY=()\n    if [ \"$COMP_CWORD\" -eq 1 ]; then\n        COMPREPLY=($(compgen -W '";
    for (const GCommandRow& row : CommandTable())
        text += std::string(row.name) + " ";
    text += "--help --version' -- \"$word\"))\n        return\n    fi\n    case $before in\n    " +
            BashNamesOf(GValueKind::Filter) + ") COMPREPLY=($(compgen -W '" + FilterNames(" ") +
            "' -- \"$word\")); return ;;\n    " + BashNamesOf(GValueKind::File) +
            ") mapfile -t COMPREPLY < <(compgen -f -- \"$word\"); return ;;\n    " + BashNamesOf(GValueKind::Text) +
            ") return ;;\n    esac\n    case $word in\n    -*)\n        case $command in\n";
    for (const GCommandRow& row : CommandTable())
        text += "        " + std::string(row.name) + ") COMPREPLY=($(compgen -W '" + BashOptions(row.command) +
                "' -- \"$word\")) ;;\n";
    return text + "        esac ;;\n    *) mapfile -t COMPREPLY < <(compgen -f -- \"$word\") ;;\n    esac\n}\n"
                  "complete -o filenames -F _vex vex\n";
}

std::string ZshAction(const GOptionRow& option)
{
    switch (option.kind) {
    case GValueKind::None:
        return "";
    case GValueKind::File:
        return std::string(":") + option.value + ":_files";
    case GValueKind::Filter:
        return std::string(":") + option.value + ":(" + FilterNames(" ") + ")";
    case GValueKind::Text:
        return std::string(":") + option.value + ": ";
    }
    return "";
}

// Colons and brackets part the fields of what describes an option.
std::string ZshText(std::string_view text)
{
    std::string safe;
    for (const char c : Quoted(text)) {
        if (c == ':' || c == '[' || c == ']')
            safe += '\\';
        safe += c;
    }
    return safe;
}

std::string Zsh()
{
    std::string text = "#compdef vex\n_vex()\n{\n    if (( CURRENT == 2 )); then\n        local -a commands=(\n";
    for (const GCommandRow& row : CommandTable())
        text += "            '" + std::string(row.name) + ":" + Quoted(row.help) + "'\n";
    text += "        )\n        _describe command commands\n        return\n    fi\n    case $words[2] in\n";
    for (const GCommandRow& row : CommandTable()) {
        text += "    " + std::string(row.name) +
                ")\n        shift words; (( CURRENT-- ))\n        _arguments"
                " '(- *)'{-h,--help}'[Print how it is used]' '(- *)--version[Print the version]'";
        for (const GOptionRow& option : OptionTable()) {
            if (!Has(option, row.command))
                continue;
            const std::string rest = "[" + ZshText(option.help) + "]" + ZshAction(option) + "'";
            if (*option.letter)
                text += std::string(" \\\n            {-") + option.letter + ",--" + option.name + "}'" + rest;
            else
                text += std::string(" \\\n            '--") + option.name + rest;
        }
        text += *row.arguments ? " \\\n            '*:file:_files' ;;\n" : " ;;\n";
    }
    return text + "    esac\n}\n_vex \"$@\"\n";
}

std::string Fish()
{
    std::string text = "# fish completion for vex\n";
    for (const GCommandRow& row : CommandTable())
        text += "complete -c vex -n __fish_use_subcommand -f -a " + std::string(row.name) + " -d '" + Quoted(row.help) +
                "'\n";
    text +=
        "complete -c vex -s h -l help -d 'Print how it is used'\ncomplete -c vex -l version -d 'Print the version'\n";
    for (const GOptionRow& option : OptionTable()) {
        std::string commands;
        for (const GCommandRow& row : CommandTable())
            if (Has(option, row.command))
                commands += std::string(" ") + row.name;
        text += "complete -c vex -n '__fish_seen_subcommand_from" + commands + "'";
        if (*option.letter)
            text += std::string(" -s ") + option.letter;
        text += std::string(" -l ") + option.name;
        if (option.kind == GValueKind::Filter)
            text += " -x -a '" + FilterNames(" ") + "'";
        else if (option.kind != GValueKind::None)
            text += option.kind == GValueKind::Text ? " -x" : " -r";
        text += " -d '" + Quoted(option.help) + "'\n";
    }
    return text;
}

}  // namespace

std::string Generate(std::string_view what)
{
    if (what == "man")
        return Man();
    if (what == "bash")
        return Bash();
    if (what == "zsh")
        return Zsh();
    return what == "fish" ? Fish() : std::string();
}

}  // namespace vex
