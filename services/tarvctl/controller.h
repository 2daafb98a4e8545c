// The controller as a whole: command line to answer.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}
struct Arguments;

// The parser of all command lines, made from the command table; it fills `arguments`.
std::unique_ptr<CLI::App> make_parser(Arguments &arguments);

// Runs one command and prints its answer. The exit status.
int tarvctl_main(int argc, char **argv);
