// The table of the controller's commands: command lines, help, completion and manual all come
// from it.
#pragma once

#include "services/tarvctl/answer.h"
#include "tarvhv/cli2/start_mode.h"

#include <span>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

// What a command line said. Each command fills and reads its own share.
struct Arguments
{
    std::vector<std::string> vms; // identifiers or names, as typed
    std::string vm;               // the one of a command that takes one
    std::string name, source;     // new VM: its name, the image it is made from
    std::string ram_size, disk_size, cpu_count, firmware;
    std::vector<std::string> pairs; // KEY VALUE KEY VALUE …
    std::string word;               // a sub-command
    StartMode mode = StartMode::normal;
    bool force = false, view = false, yes = false;
    bool copy = false, list = false, command = false, quiet = false, names = false;
};

struct Command
{
    const char *name;
    const char *help; // one sentence
    void (*declare)(CLI::App &app, Arguments &arguments);
    Answer (*run)(const Arguments &arguments);
    const char *group = "Commands"; // "": not shown in help
};

std::span<const Command> command_table();

// What help and the manual call an argument. Pairs are one argument of the parser, whose names have
// no blanks.
std::string argument_text(const CLI::Option &argument);

// The keys that modify can set, for help: a line each.
std::string modify_keys_help();
// The same as words to type, the first device standing for all.
std::vector<std::string> modify_keys();

// The commands, by file.
Answer run_list(const Arguments &arguments);
Answer run_show(const Arguments &arguments);
Answer run_create(const Arguments &arguments);
Answer run_start(const Arguments &arguments);
Answer run_stop(const Arguments &arguments);
Answer run_suspend(const Arguments &arguments);
Answer run_reboot(const Arguments &arguments);
Answer run_delete(const Arguments &arguments);
Answer run_clone(const Arguments &arguments);
Answer run_modify(const Arguments &arguments);
Answer run_eula(const Arguments &arguments);
Answer run_doctor(const Arguments &arguments);
Answer run_ping(const Arguments &arguments);
Answer run_completion(const Arguments &arguments);
Answer run_manual(const Arguments &arguments);
