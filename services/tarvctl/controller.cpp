#include "services/tarvctl/controller.h"

#include "hostlib/config/config.h"
#include "hostlib/utils/utils.h"
#include "services/tarvctl/cancel.h"
#include "services/tarvctl/command.h"

#include <algorithm>
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

// The parser takes "[a,b]" for a list and "++" for the end of a command. Names may be just that, so
// such words are parsed behind a mark that no argument begins with.
constexpr char MARK = '\1';

std::vector<std::string> marked_words(int argc, char **argv)
{
    std::vector<std::string> words;
    for (int index = argc - 1; index > 0; --index) { // the parser takes them from the end
        const std::string_view word = argv[index];
        const bool special = word.starts_with('[') || word == "++";
        words.push_back((special ? std::string(1, MARK) : "") + std::string(word));
    }
    return words;
}

void remove_marks(Arguments &arguments)
{
    auto clean = [](std::string &text) {
        if (text.starts_with(MARK))
            text.erase(0, 1);
    };
    for (std::string *text :
         {&arguments.vm, &arguments.name, &arguments.source, &arguments.ram_size,
          &arguments.disk_size, &arguments.cpu_count, &arguments.firmware, &arguments.word})
        clean(*text);
    std::for_each(arguments.vms.begin(), arguments.vms.end(), clean);
    std::for_each(arguments.pairs.begin(), arguments.pairs.end(), clean);
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
                                : !first          ? "no command"
                                : command.empty() ? error.what()
                                                  : command + ": " + error.what();
    std::string text =
        message + "; see tarvctl " + (command.empty() ? "" : command + " ") + "--help";
    std::erase(text, MARK);
    return {.status = ExitStatus::usage, .message = text};
}

// Help in the words of the manual: what a value is, and nothing of how the parser is set up.
class HelpFormatter : public CLI::Formatter
{
public:
    HelpFormatter()
    {
        column_width(26);
        label("SUBCOMMAND", "COMMAND");
        label("Positionals", "Arguments");
    }
    std::string make_option_name(const CLI::Option *option, bool is_positional) const override
    {
        return is_positional ? argument_text(*option)
                             : CLI::Formatter::make_option_name(option, false);
    }
    std::string make_option_opts(const CLI::Option *option) const override
    {
        const bool has_value = option->nonpositional() && option->get_items_expected_max() > 0;
        return has_value ? " " + option->get_type_name() : "";
    }
};

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
        app->parse(marked_words(argc, argv));
    } catch (const CLI::ParseError &error) {
        return parse_outcome(*app, error, argc > 1 ? argv[1] : nullptr);
    }
    remove_marks(arguments);
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
    app->formatter(std::make_shared<HelpFormatter>());
    app->set_version_flag("--version", std::string("tarvctl ") + TARV_VERSION, "Print the version");
    app->set_help_flag("--help", "Print this help");
    app->require_subcommand(1);
    for (const Command &command : command_table()) {
        CLI::App *sub = app->add_subcommand(command.name, command.help);
        sub->group(command.group);
        sub->set_version_flag("--version", std::string("tarvctl ") + TARV_VERSION,
                              "Print the version");
        command.declare(*sub, arguments);
    }
    return app;
}

int tarvctl_main(int argc, char **argv)
{
    // Else an image or a record that is opened gets a standard descriptor's number, and whatever
    // is printed goes into it.
    if (standard_fds_open() != 0)
        return static_cast<int>(ExitStatus::failed);
    catch_cancel();
    open_log();
    return print_answer(run_line(argc, argv), is_machine_readable());
}
