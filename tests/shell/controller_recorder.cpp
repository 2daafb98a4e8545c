// Plays the controller: stores its arguments and environment beside itself in "record", each text
// with its kind before it and a null byte after it, adds its arguments as one line to "commands",
// then does what the lines of the file "mode" say.
//
//   print TEXT   write TEXT          flood N   write N bytes
//   ignore-term  ignore SIGTERM      hang      wait for a signal
//   exit N       end with status N
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>

#include <unistd.h>

int main(int argc, char **argv)
{
    const std::string self = argv[0];
    const std::string folder = self.substr(0, self.rfind('/') + 1);
    const std::string fresh = folder + "record." + std::to_string(getpid());
    std::string command;
    {
        std::ofstream record(fresh);
        for (int i = 1; i < argc; ++i) {
            record << "argument " << argv[i] << '\0';
            command += argv[i] + std::string(i + 1 < argc ? " " : "\n");
        }
        for (char **entry = environ; *entry; ++entry)
            record << "environment " << *entry << '\0';
    }
    std::ifstream mode(folder + "mode");
    std::string line;
    bool announced = false;
    // The record appears once signals are handled as told.
    const auto announce = [&] {
        if (std::exchange(announced, true))
            return;
        rename(fresh.c_str(), (folder + "record").c_str());
        std::ofstream(folder + "commands", std::ios::app) << command << std::flush; // at one go
    };
    while (std::getline(mode, line)) {
        const std::string word = line.substr(0, line.find(' '));
        const std::string rest = line.substr(std::min(word.size() + 1, line.size()));
        if (word == "ignore-term") {
            signal(SIGTERM, SIG_IGN);
            continue;
        }
        announce();
        if (word == "print")
            std::cout << rest << std::flush;
        else if (word == "flood")
            std::cout << std::string(std::stoul(rest), ' ') << std::flush;
        else if (word == "hang")
            for (;;)
                pause();
        else if (word == "exit")
            return std::atoi(rest.c_str());
    }
    announce();
    return 0;
}
