// One virtual machine as its configuration describes it.
#pragma once

#include "services/failure.h"

#include <cstdint>
#include <string>
#include <vector>

struct kv;

inline constexpr unsigned MACHINE_DISPLAY_MAX = 4;
inline constexpr unsigned MACHINE_DISK_MAX = 8;
inline constexpr unsigned MACHINE_NETWORK_MAX = 8;

enum class Firmware
{
    bios,
    uefi
};

enum class DiskController
{
    ablk, // an emulated SATA disk, which every guest has a driver for
    virtio_blk
};

enum class NetworkController
{
    anet, // an emulated e1000e
    virtio_net
};

enum class NetworkMode
{
    host,        // an address, and nothing that it reaches
    shared,      // the guest shares the host's addresses
    bridge,      // the guest is a peer of the host's network
    disconnected // the cable is out
};

enum class BootDevice
{
    disk,
    cdrom,
    network
};

struct MachineDisk
{
    std::string file;   // as configured: absolute, relative to the image library, or a URL
    std::string format; // "qcow2", "raw", or empty: found out from the file
    DiskController controller = DiskController::ablk;
    bool operator==(const MachineDisk &) const = default;
};

struct MachineNetwork
{
    NetworkMode mode = NetworkMode::shared;
    NetworkController controller = NetworkController::anet;
    std::string mac;    // never empty: without a configured one it is derived from the identifier
    std::string bridge; // the host's bridge in mode bridge
    bool operator==(const MachineNetwork &) const = default;
};

struct MachineDisplay
{
    uint32_t width = 1280; // pixels
    uint32_t height = 800; // pixels
    bool hdpi = false;
    bool operator==(const MachineDisplay &) const = default;
};

struct Machine
{
    std::string id;
    std::string name;
    std::string uuid; // that the guest sees
    unsigned cpu_count = 1;
    uint64_t ram_size = 1ull << 30; // bytes
    std::string type;               // of QEMU's machine, as "pc-q35-7.2"; empty: not settled yet
    Firmware firmware = Firmware::bios;
    std::vector<MachineDisk> disks;
    std::string cdrom; // as a disk's file; empty: an empty drive
    std::vector<MachineNetwork> networks;
    std::vector<MachineDisplay> displays; // at least one
    bool audio = false;
    BootDevice boot = BootDevice::disk; // tried first
    std::string state_file;             // the saved state; empty: not suspended
};

// Reads a configuration tree. `file` names it in messages. A failure names the file and the key: a
// value of the wrong kind, out of range or not one of the words that the key takes.
// Unknown keys are left alone.
ServiceFailure machine_parse(const struct kv *config, const char *id, const char *file,
                             Machine *machine);

// A locally administered address that stays the same for a VM's network card.
std::string machine_default_mac(const std::string &id, unsigned index);
// Whether a disk's file is a URL, which is never looked for on disk.
bool machine_is_url(const std::string &file);
