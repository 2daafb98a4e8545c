#include "services/tarvctl/command.h"

#include <CLI/CLI.hpp>

namespace {

void declare_nothing(CLI::App &, Arguments &) {}

// An option that takes one value, `value` saying what kind.
CLI::Option *add_value(CLI::App &app, const char *name, std::string &target, const char *value,
                       const char *help)
{
    return app.add_option(name, target, help)->type_name(value);
}

// A required argument that is one of the words that its name lists, as "accept|status".
void add_word(CLI::App &app, const std::string &name, std::string &target, const char *help)
{
    app.add_option(name, target, help)->required()->check([name](const std::string &word) {
        const bool known = ("|" + name + "|").find("|" + word + "|") != std::string::npos;
        return known ? "" : "\"" + word + "\" is none of: " + name;
    });
}

void declare_list(CLI::App &app, Arguments &arguments)
{
    app.add_flag("-q,--quiet", arguments.quiet, "Print the identifiers alone, one a line");
    app.add_flag("--names", arguments.names, "Print the names alone, one a line")->group("");
}

void declare_vm(CLI::App &app, Arguments &arguments)
{
    app.add_option("VM", arguments.vm, "Identifier or name of a VM")->required();
}

void declare_vms(CLI::App &app, Arguments &arguments)
{
    app.add_option("VM", arguments.vms, "Identifiers or names of VMs")->required();
}

void declare_create(CLI::App &app, Arguments &arguments)
{
    add_value(app, "--ram-size", arguments.ram_size, "BYTES",
              "Memory in bytes, or with K, M, G or T (setting default_ram, else 2G)");
    add_value(app, "--disk-size", arguments.disk_size, "BYTES",
              "Size of the first disk, likewise (setting default_disk, else 64G)");
    add_value(app, "--cpu-count", arguments.cpu_count, "NUMBER",
              "Number of processors (setting default_nvcpu, else 2)");
    add_value(app, "--firmware", arguments.firmware, "bios|uefi",
              "Firmware (else what the image boots with, bios where it takes both)");
    auto *list = app.add_flag("--list", arguments.list, "List the images to create VMs from");
    app.add_option("NAME", arguments.name, "Name of the new VM")->excludes(list);
    app.add_option("IMAGE", arguments.source,
                   "Image (iso, img, qcow2) as a path or file URL, or \"latest\": the newest of "
                   "those that --list names")
        ->excludes(list);
}

void declare_start(CLI::App &app, Arguments &arguments)
{
    // The application passes -u for a guest without add-ons and -f for every other start.
    const auto add_mode = [&](const char *flag, StartMode mode, const char *help) {
        return app.add_flag_callback(
            flag, [&arguments, mode] { arguments.mode = mode; }, help);
    };
    auto *normal = add_mode("-f", StartMode::normal, "Start with mode 0 (normal), the default");
    auto *forced =
        add_mode("-u", StartMode::forced, "Start with mode 1 (forced): the guest has no add-ons")
            ->excludes(normal);
    add_mode("--recovery", StartMode::recovery, "Start with mode 2: afresh, from the CD first")
        ->excludes(normal)
        ->excludes(forced);
    app.add_flag("-v,--view", arguments.view,
                 "Then show the screen with the program of TARV_TARV_VIEWER, also of a VM that "
                 "runs already");
    declare_vms(app, arguments);
}

void declare_stop(CLI::App &app, Arguments &arguments)
{
    app.add_flag("--force", arguments.force,
                 "Don't ask the guest; of a suspended VM, drop the saved state");
    declare_vms(app, arguments);
}

void declare_delete(CLI::App &app, Arguments &arguments)
{
    app.add_flag("--yes", arguments.yes, "Don't ask for confirmation");
    declare_vms(app, arguments);
}

void declare_clone(CLI::App &app, Arguments &arguments)
{
    app.add_flag("--copy", arguments.copy,
                 "Copy the disks; else both VMs write into layers above the same images");
    declare_vm(app, arguments);
    app.add_option("NAME", arguments.name, "Name of the new VM")->required();
}

void declare_modify(CLI::App &app, Arguments &arguments)
{
    declare_vm(app, arguments);
    add_word(app, "set", arguments.word, "The word set");
    app.add_option("KEY", arguments.pairs, "Keys of the configuration and their new values")
        ->required();
    app.footer(modify_keys_help());
}

void declare_show(CLI::App &app, Arguments &arguments)
{
    app.add_flag("--command", arguments.command, "Print how its engine would be started");
    declare_vm(app, arguments);
}

void declare_eula(CLI::App &app, Arguments &arguments)
{
    add_word(app, "accept|status", arguments.word, "Accept it, or say whether it was accepted");
}

constexpr Command COMMANDS[] = {
    {"list", "List the VMs and their states", declare_list, run_list},
    {"show", "Show a VM's state and configuration", declare_show, run_show},
    {"create", "Create a VM from an image", declare_create, run_create},
    {"start", "Start VMs, resuming those that are suspended", declare_start, run_start},
    {"stop", "Ask the guests of running VMs to power off, and end those that don't", declare_stop,
     run_stop},
    {"suspend", "Save the state of running VMs and end them", declare_vms, run_suspend},
    {"reboot", "Reboot running VMs", declare_vms, run_reboot},
    {"delete", "Delete VMs and the disks that are theirs alone", declare_delete, run_delete},
    {"clone", "Make a VM like another one that does not run", declare_clone, run_clone},
    {"modify", "Change the configuration of a VM", declare_modify, run_modify},
    {"eula", "Accept the agreement, or say whether it was accepted", declare_eula, run_eula},
    {"doctor", "Say what is missing on this machine, and what mends it", declare_nothing,
     run_doctor},
    {"ping", "Make sure that the launch service runs", declare_nothing, run_ping, ""},
    {"completion", "Print completion for bash", declare_nothing, run_completion, ""},
    {"manual", "Print the manual page", declare_nothing, run_manual, ""},
};

} // namespace

std::string argument_text(const CLI::Option &argument)
{
    const std::string name = argument.get_name();
    return name == "KEY" ? "KEY VALUE" : name;
}

std::span<const Command> command_table()
{
    return COMMANDS;
}
