#include "services/tarvctl/command.h"
#include "services/tarvctl/controller.h"

#include <algorithm>

#include <CLI/CLI.hpp>

namespace {

// Text for troff: a line that begins with a dot or quote, and dashes and backslashes, are escaped.
std::string troff(const std::string &text)
{
    std::string result;
    for (const char byte : text) {
        if (byte == '\\' || byte == '-')
            result += '\\';
        result += byte;
    }
    return result.starts_with('.') || result.starts_with('\'') ? "\\&" + result : result;
}

bool is_shown(const CLI::App *command)
{
    return !command->get_group().empty();
}

std::string synopsis(const CLI::App &command)
{
    std::string text = ".B tarvctl " + command.get_name() + "\n";
    for (const CLI::Option *option : command.get_options()) {
        if (option->nonpositional() && option->get_name() != "--help" &&
            option->get_name() != "--version")
            text += "[\\fB" + troff(option->get_name()) + "\\fR" +
                    (option->get_items_expected() > 0 ? " \\fIVALUE\\fR" : "") + "]\n";
    }
    for (const CLI::Option *option : command.get_options())
        if (!option->nonpositional())
            text += "\\fI" + troff(option->get_name()) + "\\fR" +
                    (option->get_items_expected_max() > 1 ? " ..." : "") + "\n";
    return text;
}

std::string section_of(const CLI::App &command)
{
    std::string text = ".SS " + command.get_name() + "\n" + troff(command.get_description()) +
                       ".\n.PP\n" + synopsis(command);
    for (const CLI::Option *option : command.get_options())
        text += ".TP\n\\fB" + troff(option->get_name(false, true)) + "\\fR\n" +
                troff(option->get_description()) + "\n";
    return text;
}

constexpr struct
{
    ExitStatus status;
    const char *meaning;
} statuses[] = {
    {ExitStatus::ok, "It was done."},
    {ExitStatus::failed, "It failed."},
    {ExitStatus::usage, "The arguments are wrong."},
    {ExitStatus::not_found, "There is no such VM, or several have the name."},
    {ExitStatus::state, "The VM is not in a state that allows it."},
    {ExitStatus::exists, "The name is taken."},
    {ExitStatus::input, "An image, size, value or configuration can't be used."},
    {ExitStatus::space, "The disk is full."},
    {ExitStatus::service, "The launch service or a supervisor can't be asked."},
    {ExitStatus::cancelled, "It was cancelled by a signal, or not confirmed."},
};

constexpr const char *manual_end =
    ".SH ENVIRONMENT\n"
    ".TP\n\\fBTARV_MACHINE_READABLE\\fR\n1: print one JSON object with the members status, message "
    "and body.\n"
    ".TP\n\\fBTARV_TARV_VIEWER\\fR\nThe program that shows a screen; it gets a URL.\n"
    ".TP\n\\fBTARV_DISK_CONTROLLER\\fR\nOf a new VM: ablk or virtio\\-blk.\n"
    ".TP\n\\fBTARV_NETWORK_MODE\\fR\nOf a new VM: host, shared, bridge or disconnected.\n"
    ".TP\n\\fBTARV_NETWORK_CONTROLLER\\fR\nOf a new VM: anet or virtio\\-net.\n"
    ".TP\n\\fBTARV_DEFAULT_USER\\fR\nOf a new VM: noted in its configuration.\n"
    ".TP\n\\fBTARV_CONFIG_PATH\\fR\nWhere the settings are read from.\n";

// The words that complete a command line, by command.
std::string completion_cases(const CLI::App &app)
{
    std::string text;
    for (const CLI::App *command : app.get_subcommands({})) {
        std::string words;
        for (const CLI::Option *option : command->get_options())
            for (const std::string &name : option->get_lnames())
                words += (words.empty() ? "--" : " --") + name;
        text += "    " + command->get_name() + ") words='" + words + "' ;;\n";
    }
    return text;
}

} // namespace

Answer run_manual(const Arguments &)
{
    Arguments unused;
    const auto app = make_parser(unused);
    std::string text = ".TH TARVCTL 1 \"\" \"tarvctl " TARV_VERSION "\" \"User commands\"\n"
                       ".SH NAME\ntarvctl \\- control virtual machines\n"
                       ".SH SYNOPSIS\n.B tarvctl\n\\fICOMMAND\\fR [\\fIARGUMENTS\\fR]\n"
                       ".SH DESCRIPTION\nVMs are named by identifier or name. Options may stand "
                       "before and after them.\n"
                       ".SH COMMANDS\n";
    for (const CLI::App *command : app->get_subcommands({}))
        if (is_shown(command))
            text += section_of(*command);
    text += ".SH EXIT STATUS\n";
    for (const auto &[status, meaning] : statuses)
        text += ".TP\n" + std::to_string(static_cast<int>(status)) + "\n" + meaning + "\n";
    text += manual_end;
    return {.body = text, .text = text};
}

Answer run_completion(const Arguments &)
{
    Arguments unused;
    const auto app = make_parser(unused);
    std::string commands;
    for (const CLI::App *command : app->get_subcommands({}))
        if (is_shown(command))
            commands += (commands.empty() ? "" : " ") + command->get_name();
    const std::string text =
        "# Completion of tarvctl for bash; made by: tarvctl completion\n"
        "_tarvctl()\n{\n"
        "    local word=${COMP_WORDS[COMP_CWORD]} words= names IFS=$' \\t\\n'\n"
        "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
        "        COMPREPLY=($(compgen -W '" +
        commands +
        " --help --version' -- \"$word\"))\n        return\n    fi\n"
        "    case ${COMP_WORDS[1]} in\n" +
        completion_cases(*app) +
        "    esac\n"
        "    if [[ $word == -* ]]; then\n"
        "        COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
        "    else\n"
        "        names=$(tarvctl list --quiet 2>/dev/null)\n"
        "        COMPREPLY=($(compgen -f -W \"$names\" -- \"$word\"))\n"
        "    fi\n}\n"
        "complete -o filenames -F _tarvctl tarvctl\n";
    return {.body = text, .text = text};
}
