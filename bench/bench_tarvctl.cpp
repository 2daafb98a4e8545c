// `tarvctl list` as a whole process over VM libraries of growing size; it must grow with the
// number, and take at most 150 ms for 1,000 VMs.
#include "hostlib/utils/proc.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// A library of `count` VMs with its settings, removed at the end.
class Home
{
public:
    explicit Home(int64_t count)
    {
        char name[] = "/tmp/bench-tarvctl-XXXXXX";
        m_dir = mkdtemp(name);
        for (int64_t number = 0; number < count; ++number)
            make(number);
        std::ofstream(m_dir / "settings.ini")
            << "[tarv]\nvm_lib_dir = " << (m_dir / "vms").string()
            << "\nlog_dir = " << m_dir.string()
            << "\nvlaunch_sock = " << (m_dir / "vlaunchd").string() << "\n";
    }
    ~Home() { fs::remove_all(m_dir); }
    Home(const Home &) = delete;
    Home &operator=(const Home &) = delete;
    std::string settings() const { return "TARV_CONFIG_PATH=" + (m_dir / "settings.ini").string(); }

private:
    void make(int64_t number) const
    {
        char id[64];
        snprintf(id, sizeof id, "00000000-0000-4000-8000-%012lld", static_cast<long long>(number));
        fs::create_directories(m_dir / "vms" / id);
        std::ofstream(m_dir / "vms" / id / "config.yaml")
            << "name: VM " << number << "\nuuid: " << id
            << "\ncpu: {count: 2}\nram: {size: 4294967296}\nfirmware: uefi\n"
               "hard_drives:\n  - file: disk.qcow2\n    controller: ablk\n"
               "network:\n  - mode: shared\n    controller: anet\n    mac: 52:54:00:12:34:56\n"
               "displays:\n  - width: 1920\n    height: 1080\n    hdpi: false\n";
    }
    fs::path m_dir;
};

ssize_t discard(void *, int out, int)
{
    char bytes[65536];
    return out >= 0 ? read(out, bytes, sizeof bytes) : 0;
}

void list(benchmark::State &state)
{
    const Home home(state.range(0));
    std::string settings = home.settings(), machine = "TARV_MACHINE_READABLE=1";
    char *const envp[] = {settings.data(), machine.data(), nullptr};
    for (auto _ : state)
        if (proc_exec(TARVCTL_PROGRAM, discard, nullptr, 1 | PROC_ENV, "list", envp) != 0)
            state.SkipWithError("tarvctl failed");
    state.SetComplexityN(state.range(0));
}

} // namespace

BENCHMARK(list)
    ->Arg(125)
    ->Arg(250)
    ->Arg(500)
    ->Arg(1000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);
