#include "services/tarvctl/controller.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "services/tarvctl/cancel.h"
#include "services/tarvctl/command.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool is_machine_readable()
{
    const char *value = getenv("TARV_MACHINE_READABLE");
    return value && std::string_view(value) == "1";
}

std::string chosen_command(const CLI::App &app)
{
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? "" : chosen.front()->get_name();
}

// A command line that isn't to be run: help and version are answers, the rest wrong usage.
Answer parse_outcome(const CLI::App &app, const CLI::ParseError &error, const char *first)
{
    if (dynamic_cast<const CLI::CallForVersion *>(&error))
        return {.message = error.what(), .body = error.what()};
    const std::string command = chosen_command(app);
    if (dynamic_cast<const CLI::CallForHelp *>(&error)) {
        const std::string help =
            command.empty() ? app.help() : app.get_subcommand(command)->help(app.get_name());
        return {.body = help, .text = help};
    }
    const bool unknown = command.empty() && first && *first != '-';
    const std::string message = unknown           ? std::string(first) + ": no such command"
                                : command.empty() ? error.what()
                                                  : command + ": " + error.what();
    return {.status = ExitStatus::usage,
            .message =
                message + "; see tarvctl " + (command.empty() ? "" : command + " ") + "--help"};
}

// The host library's diagnostics go to a file where there is a place for it: what a user has to
// know is in the answer.
void open_log()
{
    constexpr off_t log_max = 1024 * 1024;
    const char *directory = config_find("log_dir") ? config_get_path("log_dir") : nullptr;
    if (!directory)
        return;
    const std::string path = std::string(directory) + "/tarvctl.log";
    const int fd = openx(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    log_fd = fd;
    struct stat status;
    if (fstat(fd, &status) == 0 && status.st_size > log_max && ftruncate(fd, 0) != 0)
        dprintf(log_fd, "tarvctl: %s: %s\r\n", path.c_str(), strerror(errno));
}

Answer run_chosen(const CLI::App &app, const Arguments &arguments)
{
    const std::string chosen = chosen_command(app);
    for (const Command &command : command_table())
        if (command.name == chosen)
            return command.run(arguments);
    return {.status = ExitStatus::usage, .message = "no command; see tarvctl --help"};
}

Answer run_line(int argc, char **argv)
try {
    Arguments arguments;
    const auto app = make_parser(arguments);
    try {
        app->parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return parse_outcome(*app, error, argc > 1 ? argv[1] : nullptr);
    }
    return run_chosen(*app, arguments);
} catch (const Failure &failure) {
    return {.status = failure.status(), .message = failure.what()};
} catch (const std::exception &error) {
    return {.status = ExitStatus::failed, .message = error.what()};
}

} // namespace

std::unique_ptr<CLI::App> make_parser(Arguments &arguments)
{
    auto app = std::make_unique<CLI::App>("Controls virtual machines.", "tarvctl");
    app->set_version_flag("--version", std::string("tarvctl ") + TARV_VERSION);
    app->set_help_flag("--help", "Print help");
    app->require_subcommand(1);
    for (const Command &command : command_table()) {
        CLI::App *sub = app->add_subcommand(command.name, command.help);
        sub->group(command.group);
        sub->set_version_flag("--version", std::string("tarvctl ") + TARV_VERSION);
        command.declare(*sub, arguments);
    }
    return app;
}

int tarvctl_main(int argc, char **argv)
{
    catch_cancel();
    open_log();
    return print_answer(run_line(argc, argv), is_machine_readable());
}
