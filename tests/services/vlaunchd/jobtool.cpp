// A job for the launch service's tests. Its first argument says how it behaves.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <unistd.h>

namespace {

void report(int status, const std::string &message)
{
    if (const char *path = getenv("TARV_JOB_REPORT")) {
        std::ofstream(std::string(path) + ".new")
            << "{\"status\":" << status << ",\"message\":\"" << message << "\"}";
        rename((std::string(path) + ".new").c_str(), path);
    }
}

} // namespace

int main(int argc, char **argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    // Who reads the mode can rely on what it does with signals.
    if (mode == "stubborn")
        signal(SIGTERM, SIG_IGN);
    if (mode == "report-on-term")
        signal(SIGTERM, [](int) {
            report(7, "asked to end");
            _exit(7);
        });
    printf("job tool: %s\n", mode.c_str());
    fflush(stdout);
    if (mode == "exit")
        return atoi(argv[2]);
    if (mode == "report") {
        report(atoi(argv[2]), argv[3]);
        return atoi(argv[2]);
    }
    for (;;)
        pause();
}
