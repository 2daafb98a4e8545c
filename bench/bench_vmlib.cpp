// Listing, lookup and status over VM libraries of growing size; each must grow with the number.
#include "hostlib/vm/owners.h"
#include "hostlib/vm/vmlib.h"
#include "hostlib/vms/vms.h"
#include "policy/owners.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

namespace fs = std::filesystem;

namespace {
using Library = std::unique_ptr<vmlib, decltype(&vmlib_close)>;

// Libraries of `count` VMs, made when first asked for and removed at the end.
class Libraries
{
public:
    Libraries()
    {
        char name[] = "/tmp/bench-vmlib-XXXXXX";
        m_dir = mkdtemp(name);
    }
    ~Libraries() { fs::remove_all(m_dir); }

    Library open(int64_t count)
    {
        const fs::path path = m_dir / std::to_string(count);
        if (!fs::exists(path))
            for (int64_t i = 0; i < count; ++i)
                make(path, i);
        return Library(vmlib_open(path.c_str()), vmlib_close);
    }

private:
    static void make(const fs::path &path, int64_t number)
    {
        char id[37];
        snprintf(id, sizeof id, "00000000-0000-4000-8000-%012lld", static_cast<long long>(number));
        fs::create_directories(path / id);
        std::ofstream(path / id / "config.yaml")
            << "name: VM " << number << "\nuuid: " << id
            << "\ncpu: {count: 2}\nram: {size: 4294967296}\nfirmware: uefi\n"
               "hard_drives:\n  - file: disk.qcow2\n    controller: ablk\n"
               "network:\n  - mode: shared\n    controller: anet\n    mac: 52:54:00:12:34:56\n"
               "displays:\n  - width: 1920\n    height: 1080\n    hdpi: false\n";
        std::ofstream(path / id / "localversion") << "1.0\n";
    }
    fs::path m_dir;
};

Libraries &libraries()
{
    static Libraries all;
    return all;
}

void list(benchmark::State &state)
{
    const Library lib = libraries().open(state.range(0));
    for (auto _ : state) {
        vmlib_reset(lib.get());
        int64_t count = 0;
        while (vmlib_next(lib.get()))
            ++count;
        if (count != state.range(0))
            state.SkipWithError("VMs are missing");
    }
    state.SetComplexityN(state.range(0));
}

void lookup_missing_name(benchmark::State &state)
{
    const Library lib = libraries().open(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(VmOwner(vmlib_lookup(lib.get(), "no such VM", nullptr)));
    state.SetComplexityN(state.range(0));
}

// What a list of VMs reads of each: record, configuration, version, status.
void reload(benchmark::State &state)
{
    const Library lib = libraries().open(state.range(0));
    for (auto _ : state) {
        vmlib_reset(lib.get());
        while (const char *id = vmlib_next(lib.get())) {
            const VmOwner vm(vmlib_get(lib.get(), id, nullptr));
            const KvOwner config(vm_read_config(vm.get()));
            const KvOwner version(vm_read_version(vm.get()));
            const KvOwner status(vms_status(id));
            benchmark::DoNotOptimize(kv_get_str(config.get(), "name", ""));
        }
    }
    state.SetComplexityN(state.range(0));
}

void status(benchmark::State &state)
{
    const Library lib = libraries().open(state.range(0));
    for (auto _ : state) {
        vmlib_reset(lib.get());
        while (const char *id = vmlib_next(lib.get()))
            benchmark::DoNotOptimize(KvOwner(vms_status(id)));
    }
    state.SetComplexityN(state.range(0));
}
void sizes(benchmark::internal::Benchmark *bench)
{
    bench->Arg(125)->Arg(250)->Arg(500)->Arg(1000);
    bench->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);
}
} // namespace

BENCHMARK(list)->Apply(sizes);
BENCHMARK(lookup_missing_name)->Apply(sizes);
BENCHMARK(status)->Apply(sizes);
BENCHMARK(reload)->Apply(sizes);
