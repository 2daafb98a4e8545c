#include "services/tarvctl/command.h"

#include <CLI/CLI.hpp>

namespace {

void declare_nothing(CLI::App &, Arguments &) {}

void declare_list(CLI::App &app, Arguments &arguments)
{
    app.add_flag("-q,--quiet", arguments.quiet, "Print the identifiers alone, one a line");
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
    app.add_option("--ram-size", arguments.ram_size,
                   "Memory in bytes, or with K, M, G or T (setting default_ram, else 2G)");
    app.add_option("--disk-size", arguments.disk_size,
                   "Size of the first disk, likewise (setting default_disk, else 64G)");
    app.add_option("--cpu-count", arguments.cpu_count,
                   "Number of processors (setting default_nvcpu, else 2)");
    app.add_option("--firmware", arguments.firmware,
                   "bios or uefi (else what the image boots with, bios where it takes both)");
    auto *list = app.add_flag("--list", arguments.list, "List the images to create VMs from");
    app.add_option("NAME", arguments.name, "Name of the new VM")->excludes(list);
    app.add_option("IMAGE", arguments.source,
                   "Image (iso, img, qcow2) as a path or file URL, or \"latest\"")
        ->excludes(list);
}

void declare_start(CLI::App &app, Arguments &arguments)
{
    // The application passes -u for a guest without add-ons and -f for every other start.
    auto *normal = app.add_flag("-f", arguments.force, "Start with mode 0 (normal), the default");
    auto *forced = app.add_flag("-u", arguments.no_addons,
                                "Start with mode 1 (forced): the guest has no add-ons")
                       ->excludes(normal);
    app.add_flag("--recovery", arguments.recovery, "Start with mode 2: afresh, from the CD first")
        ->excludes(normal)
        ->excludes(forced);
    app.add_flag("-v,--view", arguments.view,
                 "Then show the screen with the program of TARV_TARV_VIEWER");
    declare_vms(app, arguments);
}

void declare_stop(CLI::App &app, Arguments &arguments)
{
    app.add_flag("--force", arguments.force, "Without asking the guest; drops a suspended state");
    declare_vms(app, arguments);
}

void declare_delete(CLI::App &app, Arguments &arguments)
{
    app.add_flag("--yes", arguments.yes, "Don't ask");
    declare_vms(app, arguments);
}

void declare_clone(CLI::App &app, Arguments &arguments)
{
    app.add_flag("--copy", arguments.copy, "Copy the disks instead of sharing them");
    declare_vm(app, arguments);
    app.add_option("NAME", arguments.name, "Name of the new VM")->required();
}

void declare_modify(CLI::App &app, Arguments &arguments)
{
    declare_vm(app, arguments);
    app.add_option("WORD", arguments.word, "set")->required()->check(CLI::IsMember({"set"}));
    app.add_option("KEY VALUE", arguments.pairs, "Keys of the configuration and their new values")
        ->required();
}

void declare_show(CLI::App &app, Arguments &arguments)
{
    app.add_flag("--command", arguments.command, "Print how its engine would be started");
    declare_vm(app, arguments);
}

void declare_eula(CLI::App &app, Arguments &arguments)
{
    app.add_option("WORD", arguments.word, "accept or status")
        ->required()
        ->check(CLI::IsMember({"accept", "status"}));
}

constexpr Command commands[] = {
    {"list", "List the VMs and their states", declare_list, run_list},
    {"show", "Show one VM", declare_show, run_show},
    {"create", "Create a VM from an image", declare_create, run_create},
    {"start", "Start VMs", declare_start, run_start},
    {"stop", "Stop VMs", declare_stop, run_stop},
    {"suspend", "Save running VMs' state and end them", declare_vms, run_suspend},
    {"reboot", "Reboot running VMs", declare_vms, run_reboot},
    {"delete", "Delete VMs and the disks that are theirs alone", declare_delete, run_delete},
    {"clone", "Make a VM like another one", declare_clone, run_clone},
    {"modify", "Change a VM's configuration", declare_modify, run_modify},
    {"eula", "Accept the agreement, or say whether it was accepted", declare_eula, run_eula},
    {"doctor", "Say what is missing on this machine", declare_nothing, run_doctor},
    {"ping", "Make sure that the launch service runs", declare_nothing, run_ping, ""},
    {"completion", "Print completion for bash", declare_nothing, run_completion, ""},
    {"manual", "Print the manual page", declare_nothing, run_manual, ""},
};

} // namespace

std::span<const Command> command_table()
{
    return commands;
}
