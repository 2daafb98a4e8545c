#include "services/tarvctl/command.h"
#include "services/tarvctl/controller.h"

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

// "\fB-q\fR, \fB--quiet\fR" and the kind of its value.
std::string option_head(const CLI::Option &option)
{
    std::string text;
    for (const std::string &name : option.get_snames())
        text += (text.empty() ? "\\fB" : ", \\fB") + troff("-" + name) + "\\fR";
    for (const std::string &name : option.get_lnames())
        text += (text.empty() ? "\\fB" : ", \\fB") + troff("--" + name) + "\\fR";
    return text +
           (option.get_items_expected_max() > 0 ? " \\fI" + option.get_type_name() + "\\fR" : "");
}

// Every command has these; they are told once.
bool is_general(const CLI::Option &option)
{
    return option.get_name() == "--help" || option.get_name() == "--version";
}

bool is_shown(const CLI::Option &option)
{
    return !option.get_group().empty() && !is_general(option);
}

std::string synopsis(const CLI::App &command)
{
    std::string text = ".PP\n\\fBtarvctl " + command.get_name() + "\\fR";
    for (const CLI::Option *option : command.get_options())
        if (option->nonpositional() && is_shown(*option))
            text +=
                " [\\fB" + troff(option->get_name()) + "\\fR" +
                (option->get_items_expected_max() > 0 ? " \\fI" + option->get_type_name() + "\\fR"
                                                      : "") +
                "]";
    for (const CLI::Option *option : command.get_options())
        if (!option->nonpositional())
            text += " \\fI" + troff(argument_text(*option)) + "\\fR" +
                    (option->get_items_expected_max() > 1 ? " ..." : "");
    return text + "\n";
}

std::string section_of(const CLI::App &command)
{
    std::string text = ".SS " + command.get_name() + "\n" + synopsis(command) + ".PP\n" +
                       troff(command.get_description()) + ".\n";
    for (const CLI::Option *option : command.get_options()) {
        const std::string name = option->get_name();
        if (option->nonpositional() ? is_shown(*option) : name != "VM" && name != "set")
            text += ".TP\n" +
                    (option->nonpositional() ? option_head(*option)
                                             : "\\fI" + argument_text(*option) + "\\fR") +
                    "\n" + troff(option->get_description()) + "\n";
    }
    const std::string footer = command.get_footer();
    return text + (footer.empty() ? "" : ".PP\n.nf\n" + troff(footer) + "\n.fi\n");
}

constexpr struct
{
    ExitStatus status;
    const char *meaning;
} STATUSES[] = {
    {ExitStatus::ok, "It was done."},
    {ExitStatus::failed, "It failed."},
    {ExitStatus::usage, "The arguments are wrong."},
    {ExitStatus::not_found, "There is no such VM, or several have the name."},
    {ExitStatus::state, "The VM is not in a state that allows it, or another command is at work "
                        "on it."},
    {ExitStatus::exists, "The name is taken."},
    {ExitStatus::input, "An image, size, value or configuration can't be used."},
    {ExitStatus::space, "The disk is full."},
    {ExitStatus::service, "The launch service or a supervisor can't be asked."},
    {ExitStatus::cancelled, "It was cancelled by a signal, or not confirmed. What was begun is "
                            "undone."},
    {ExitStatus::guest, "The guest did not power off in its time. The VM runs on; stop --force "
                        "ends it."},
};

struct Entry
{
    const char *head, *text;
};
constexpr Entry VARIABLES[] = {
    {"TARV_MACHINE_READABLE",
     "1: print one JSON object with the members status, message and body."},
    {"TARV_TARV_VIEWER", "The program that shows a screen; it gets a URL."},
    {"TARV_DISK_CONTROLLER", "Of a new VM: ablk (the default) or virtio-blk."},
    {"TARV_NETWORK_MODE", "Of a new VM: host, shared (the default), bridge or disconnected."},
    {"TARV_NETWORK_CONTROLLER", "Of a new VM: anet or virtio-net (the default)."},
    {"TARV_DEFAULT_USER", "Of a new VM: noted in its configuration."},
    {"TARV_CONFIG_PATH", "Settings files and directories with them, separated by colons."},
    {"TARV_SUPPORT_DIR", "The support directory, where the settings are looked for first."},
    {"NO_COLOR", "Print no colours on a terminal."},
};
constexpr Entry FILES[] = {
    {"~/.tarv/settings.ini", "The user's settings."},
    {"settings.ini in the support directory", "The settings of this machine."},
    {"tarvctl.log, vlaunchd.log and ID.log in the setting log_dir",
     "What the controller, the launch service and a VM's supervisor and engine had to say."},
    {"ID.console.log in the setting log_dir", "What a VM's guest printed on its serial port."},
};
constexpr Entry EXAMPLES[] = {
    {"tarvctl create --ram-size 4G --disk-size 40G work ~/Downloads/debian.iso",
     "Makes a VM that installs from a disc."},
    {"tarvctl start work && tarvctl list", "Starts it and looks at the states of all."},
    {"tarvctl suspend work; tarvctl clone work trial",
     "Saves its state and makes a VM that goes on from there, sharing the disk so far."},
    {"tarvctl modify work set ram.size 8G network[0].mode host",
     "Gives it more memory and keeps it off the network."},
};

template <size_t count>
std::string section(const std::string &title, const Entry (&entries)[count])
{
    std::string text = ".SH " + title + "\n";
    for (const Entry &entry : entries)
        text += ".TP\n\\fB" + troff(entry.head) + "\\fR\n" + troff(entry.text) + "\n";
    return text;
}

constexpr const char *MANUAL_START =
    ".SH NAME\ntarvctl \\- control virtual machines\n"
    ".SH SYNOPSIS\n"
    "\\fBtarvctl\\fR \\fICOMMAND\\fR [\\fIOPTION\\fR ...] [\\fIARGUMENT\\fR ...]\n.br\n"
    "\\fBtarvctl\\fR [\\fICOMMAND\\fR] \\fB\\-\\-help\\fR\n.br\n"
    "\\fBtarvctl\\fR \\fB\\-\\-version\\fR\n"
    ".SH DESCRIPTION\n"
    "A VM is named by its identifier or its name. Options may stand before and after the other "
    "arguments; the word \\fB\\-\\-\\fR ends them.\n"
    ".PP\n"
    "Commands on several VMs do what they can and tell of each that failed. "
    "\\fBcreate\\fR and \\fBclone\\fR print how far they are on standard error, as lines "
    "\\fINN\\fR%. SIGTERM, SIGINT and SIGHUP cancel a command, which then undoes what it began.\n"
    ".SH COMMANDS\n";

} // namespace

Answer run_manual(const Arguments &)
{
    Arguments unused;
    const auto app = make_parser(unused);
    std::string text = ".TH TARVCTL 1 \"\" \"tarvctl " TARV_VERSION "\" \"User commands\"\n";
    text += MANUAL_START;
    for (const CLI::App *command : app->get_subcommands({}))
        if (!command->get_group().empty())
            text += section_of(*command);
    text += ".SH EXIT STATUS\n";
    for (const auto &[status, meaning] : STATUSES)
        text += ".TP\n" + std::to_string(static_cast<int>(status)) + "\n" + troff(meaning) + "\n";
    text +=
        section("ENVIRONMENT", VARIABLES) + section("FILES", FILES) + section("EXAMPLES", EXAMPLES);
    return {.body = text, .text = text};
}
