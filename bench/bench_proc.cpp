// A run of the process runner beside a bare posix_spawn and waitpid of the same tool, in turns. The
// counter "ratio" is that of the medians; the goal is 1.1.
#include "hostlib/utils/proc.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr char tool[] = "/bin/true";

template <typename Function>
double seconds(Function run)
{
    const auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> &values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void run_bare()
{
    char name[] = "/bin/true";
    char *const argv[] = {name, nullptr};
    pid_t pid;
    int status;
    if (posix_spawn(&pid, tool, nullptr, nullptr, argv, environ) == 0)
        waitpid(pid, &status, 0);
}

// `ballast`: bytes that the calling process holds and has touched, as a program at work does.
void process_run(benchmark::State &state)
{
    const std::vector<char> ballast(size_t(state.range(0)) << 20, 'x');
    std::vector<double> bare, runner;
    for (auto _ : state) {
        bare.push_back(seconds(run_bare));
        runner.push_back(seconds([] { proc_exec(tool, nullptr, nullptr, 0); }));
        state.SetIterationTime(runner.back());
    }
    const double bare_median = median(bare);
    state.counters["bare_us"] = bare_median * 1e6;
    state.counters["runner_us"] = median(runner) * 1e6;
    state.counters["ratio"] = median(runner) / bare_median;
}
BENCHMARK(process_run)->UseManualTime()->ArgName("ballast_mb")->Arg(0)->Arg(256)->Iterations(2000);

} // namespace
