// How QEMU is run for a machine: a pure function from the machine and what is known of the host to
// a value that says what to start.
#pragma once

#include "services/engine/machine.h"
#include "tarvhv/cli2/start_mode.h"

#include <string>
#include <vector>

enum class Accel
{
    kvm,
    tcg
};

// What of the host goes into a launch.
struct EngineHost
{
    std::string qemu = "/usr/bin/qemu-system-x86_64";
    Accel accel = Accel::tcg;
    std::string vm_dir;     // of the VM's own files
    std::string images_dir; // of relative image names
    std::string uefi_code = "/usr/share/OVMF/OVMF_CODE_4M.fd";
    std::string uefi_vars = "/usr/share/OVMF/OVMF_VARS_4M.fd"; // template of a VM's own store
    std::string bridge_helper = "/usr/lib/qemu/qemu-bridge-helper";
    std::string bridge_conf = "/etc/qemu/bridge.conf"; // what the helper may connect to
    std::string audio_driver = "none";
    std::vector<std::string> disk_formats; // of each disk: "qcow2" or "raw"
    std::vector<std::string> environment;  // NAME=value
};

struct LaunchOptions
{
    StartMode mode = StartMode::normal;
    int monitor_fd = 3;    // the machine protocol's end of a socket pair
    int console_fd = 4;    // the serial port's end of a socket pair
    int agent_fd = 5;      // the end of one of the port that the guest's agent opens
    bool incoming = false; // waits for a saved state
};

struct Launch
{
    std::string program;
    std::vector<std::string> arguments; // without argv[0]
    std::vector<std::string> environment;
    bool operator==(const Launch &) const = default;
};

// The launch description. The machine starts halted: the supervisor lets it run. Network card N has
// the device name "nicN"; one in mode disconnected has no network behind it.
Launch engine_launch(const Machine &machine, const EngineHost &host, const LaunchOptions &options);

// Where an image file lies: a relative name is in the image library. A URL is left as it is.
std::string engine_image_path(const EngineHost &host, const std::string &file);
// One line for a shell: what `show --command` prints.
std::string engine_launch_line(const Launch &launch);
