#include "services/engine/launch.h"

#include <initializer_list>
#include <string_view>

namespace {

constexpr const char *NVRAM = "nvram";
constexpr size_t OWN_SATA_DISKS = 5;

// A comma in a value of QEMU's options is written twice.
std::string quoted(std::string_view value)
{
    std::string result;
    for (const char c : value)
        result.append(c == ',' ? 2 : 1, c);
    return result;
}

class Arguments
{
public:
    Arguments &add(std::initializer_list<std::string> values)
    {
        list.insert(list.end(), values);
        return *this;
    }
    std::vector<std::string> list;
};

bool cdrom_first(const Machine &machine, const LaunchOptions &options)
{
    return machine.boot == BootDevice::cdrom || options.mode == StartMode::recovery;
}

// Boot indexes: the device of the setting gets 1, the others follow in the order disks, CD,
// network.
std::string boot_index(const Machine &machine, const LaunchOptions &options, BootDevice device,
                       size_t number)
{
    const BootDevice first = cdrom_first(machine, options) ? BootDevice::cdrom : machine.boot;
    size_t index = 1 + number;
    if (device != first)
        index += device == BootDevice::disk ? 10 : device == BootDevice::cdrom ? 20 : 30;
    return ",bootindex=" + std::to_string(index);
}

// QEMU needs no other program and no further rights once it runs, so a guest that breaks out of it
// finds none. The one exception is the helper that connects to a bridge: it is started by QEMU and
// has rights of its own, which no child of a filtered process gets.
void add_sandbox(Arguments &arguments, const Machine &machine)
{
    for (const MachineNetwork &network : machine.networks)
        if (network.mode == NetworkMode::bridge)
            return;
    arguments.add({"-sandbox", "on,obsolete=deny,elevateprivileges=deny,spawn=deny,"
                               "resourcecontrol=deny"});
}

void add_base(Arguments &arguments, const Machine &machine, const EngineHost &host,
              const LaunchOptions &options)
{
    const bool kvm = host.accel == Accel::kvm;
    arguments.add({"-name", "guest=" + quoted(machine.name.empty() ? machine.id : machine.name)})
        .add({"-uuid", machine.uuid})
        .add({"-no-user-config", "-nodefaults"})
        .add({"-machine", (machine.type.empty() ? "q35" : machine.type) + ",dump-guest-core=off"})
        // The translation cache grows by megabytes a second unless it is held.
        .add({"-accel", kvm ? "kvm" : "tcg,tb-size=64"})
        .add({"-cpu", kvm ? "host" : "max"})
        .add({"-smp", std::to_string(machine.cpu_count)})
        .add({"-m", "size=" + std::to_string(machine.ram_size) + "B"})
        .add({"-S"});
    if (options.incoming)
        arguments.add({"-incoming", "defer"});
    if (options.mode == StartMode::recovery)
        arguments.add({"-boot", "menu=on,splash-time=5000"});
    add_sandbox(arguments, machine);
    const std::string monitor = std::to_string(options.monitor_fd);
    const std::string console = std::to_string(options.console_fd);
    arguments.add({"-chardev", "socket,id=monitor,fd=" + monitor})
        .add({"-mon", "chardev=monitor,mode=control"})
        .add({"-chardev", "socket,id=console,fd=" + console})
        .add({"-serial", "chardev:console"});
}

void add_firmware(Arguments &arguments, const Machine &machine, const EngineHost &host)
{
    if (machine.firmware == Firmware::bios)
        return;
    arguments
        .add({"-drive", "if=pflash,unit=0,format=raw,readonly=on,file=" + quoted(host.uefi_code)})
        .add({"-drive", "if=pflash,unit=1,format=raw,file=" + quoted(host.vm_dir + "/" + NVRAM)});
}

void add_screens_and_input(Arguments &arguments, const Machine &machine)
{
    const MachineDisplay &first = machine.displays.front();
    arguments.add({"-display", "dbus,p2p=yes"})
        .add({"-device", "virtio-vga,max_outputs=" + std::to_string(machine.displays.size()) +
                             ",xres=" + std::to_string(first.width) +
                             ",yres=" + std::to_string(first.height)})
        .add({"-device", "qemu-xhci,id=usb"})
        .add({"-device", "usb-tablet,bus=usb.0"});
    // A USB keyboard takes the keys from the machine's own one, which is all that a guest started
    // by a BIOS can be counted on to read.
    if (machine.firmware == Firmware::uefi)
        arguments.add({"-device", "usb-kbd,bus=usb.0"});
}

// The machine's own SATA controller has six ports, the first of which is the CD's. Disks past it
// are on a second one.
std::string sata_bus(size_t disk)
{
    return disk < OWN_SATA_DISKS ? "ide." + std::to_string(disk + 1)
                                 : "sata." + std::to_string(disk - OWN_SATA_DISKS);
}

void add_disks(Arguments &arguments, const Machine &machine, const EngineHost &host,
               const LaunchOptions &options)
{
    if (machine.disks.size() > OWN_SATA_DISKS)
        arguments.add({"-device", "ahci,id=sata"});
    for (size_t i = 0; i < machine.disks.size(); i++) {
        const MachineDisk &disk = machine.disks[i];
        const std::string id = "disk" + std::to_string(i);
        const std::string &format = disk.format.empty() ? host.disk_formats.at(i) : disk.format;
        std::string drive = "if=none,id=";
        drive.append(id).append(",format=").append(format);
        drive.append(",discard=unmap,cache=writeback,file=");
        drive.append(quoted(engine_image_path(host, disk.file)));
        arguments.add({"-drive", drive});
        std::string device = "virtio-blk-pci";
        if (disk.controller != DiskController::virtio_blk)
            device = "ide-hd,bus=" + sata_bus(i);
        device.append(",drive=").append(id);
        device.append(boot_index(machine, options, BootDevice::disk, i));
        arguments.add({"-device", device});
    }
}

void add_cdrom(Arguments &arguments, const Machine &machine, const EngineHost &host,
               const LaunchOptions &options)
{
    std::string device = "ide-cd,bus=ide.0";
    if (!machine.cdrom.empty()) {
        arguments.add({"-drive", "if=none,id=cd0,format=raw,readonly=on,file=" +
                                     quoted(engine_image_path(host, machine.cdrom))});
        device += ",drive=cd0" + boot_index(machine, options, BootDevice::cdrom, 0);
    }
    arguments.add({"-device", device});
}

void add_networks(Arguments &arguments, const Machine &machine, const EngineHost &host,
                  const LaunchOptions &options)
{
    for (size_t i = 0; i < machine.networks.size(); i++) {
        const MachineNetwork &network = machine.networks[i];
        const std::string number = std::to_string(i);
        std::string device =
            network.controller == NetworkController::virtio_net ? "virtio-net-pci" : "e1000e";
        device += ",id=nic" + number + ",mac=" + network.mac +
                  boot_index(machine, options, BootDevice::network, i);
        const std::string id = "net" + number;
        if (network.mode == NetworkMode::bridge)
            arguments.add({"-netdev", "bridge,id=" + id + ",br=" + quoted(network.bridge) +
                                          ",helper=" + quoted(host.bridge_helper)});
        else if (network.mode != NetworkMode::disconnected)
            arguments.add(
                {"-netdev",
                 "user,id=" + id + (network.mode == NetworkMode::host ? ",restrict=on" : "")});
        if (network.mode != NetworkMode::disconnected)
            device += ",netdev=" + id;
        arguments.add({"-device", device});
    }
}

void add_audio(Arguments &arguments, const Machine &machine, const EngineHost &host)
{
    if (!machine.audio)
        return;
    arguments.add({"-audiodev", host.audio_driver + ",id=sound"})
        .add({"-device", "intel-hda", "-device", "hda-duplex,audiodev=sound"});
}

// The port on which a guest's agent shares the pasteboard. Last, so that it takes no device's place
// on the bus.
void add_agent(Arguments &arguments, const LaunchOptions &options)
{
    arguments.add({"-chardev", "socket,id=agent,fd=" + std::to_string(options.agent_fd)})
        .add({"-device", "virtio-serial-pci,id=ports"})
        .add({"-device",
              "virtserialport,bus=ports.0,id=agent-port,chardev=agent,name=com.redhat.spice.0"});
}

std::string shell_word(const std::string &word)
{
    constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                       "0123456789_-+=./:,@%";
    if (!word.empty() && word.find_first_not_of(plain) == std::string::npos)
        return word;
    std::string result = "'";
    for (const char c : word)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

} // namespace

Launch engine_launch(const Machine &machine, const EngineHost &host, const LaunchOptions &options)
{
    Arguments arguments;
    add_base(arguments, machine, host, options);
    add_firmware(arguments, machine, host);
    add_screens_and_input(arguments, machine);
    add_disks(arguments, machine, host, options);
    add_cdrom(arguments, machine, host, options);
    add_networks(arguments, machine, host, options);
    add_audio(arguments, machine, host);
    add_agent(arguments, options);
    return {host.qemu, std::move(arguments.list), host.environment};
}

std::string engine_image_path(const EngineHost &host, const std::string &file)
{
    if (file.starts_with('/') || machine_is_url(file))
        return file;
    return host.images_dir + "/" + file;
}

std::string engine_launch_line(const Launch &launch)
{
    std::string line = shell_word(launch.program);
    for (const std::string &argument : launch.arguments)
        line += " " + shell_word(argument);
    return line;
}
