// Configurations to machines, machines to launches.
#include "platform/unique_fd.h"
#include "services/engine/bridge.h"
#include "services/engine/host.h"
#include "services/engine/launch.h"
#include "services/engine/machine.h"
#include "services/engine/machine_types.h"
#include "services/engine/trees.h"
#include "tests/support/scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace {

constexpr const char *ID = "5bb5d6ae-3c5f-4ad7-9cf3-0d2f2a1e9b77";

struct Parsed
{
    Machine machine;
    ServiceFailure failure;
};

Parsed parse(const std::string &yaml)
{
    KvTree tree(kv_new_type(KV_MAP));
    FILE *stream = fmemopen(const_cast<char *>(yaml.data()), yaml.size(), "r");
    EXPECT_EQ(kv_load_yaml(tree.get(), stream), 0) << kv_yaml_error();
    std::fclose(stream);
    Parsed result;
    result.failure = machine_parse(tree.get(), ID, "config.yaml", &result.machine);
    return result;
}

TEST(Machine, namesFileAndKeyOfWhatItCantTake)
{
    const std::pair<const char *, const char *> cases[] = {
        {"cpu: {count: 0}", "config.yaml: cpu.count: \"0\" is not a number from 1 to 255"},
        {"firmware: uefi\nram: {size: 16777216}", "config.yaml: ram.size: UEFI needs "},
        {"ram: {size: lots}", "config.yaml: ram.size: \"lots\" is not a number"},
        {"ram: {size: '1073741824'}", "config.yaml: ram.size: "},
        {"firmware: efi", "config.yaml: firmware: \"efi\" is not one of bios, uefi"},
        {"hard_drives: [{controller: ablk}]", "config.yaml: hard_drives[0].file: "},
        {"hard_drives: disk.img", "config.yaml: hard_drives: a list is expected"},
        {"network: [{}, {mac: 12}]", "config.yaml: network[1].mac: "},
        {"network: [text]", "config.yaml: network[0]: a mapping is expected"},
        {"displays: [{width: 10}]", "config.yaml: displays[0].width: "},
        {"displays: [{}, {}, {}, {}, {}]", "config.yaml: displays: at most 4"},
        {"uuid: abc", "config.yaml: uuid: \"abc\" is not a UUID"},
        {"machine: 'q35,dump=on'", "config.yaml: machine: \"q35,dump=on\" is no machine type"},
        {"audio: loud", "config.yaml: audio: true or false"},
    };
    for (const auto &[yaml, message] : cases) {
        const Parsed parsed = parse(yaml);
        EXPECT_TRUE(parsed.failure) << yaml;
        EXPECT_THAT(parsed.failure.text, testing::StartsWith(message));
    }
}

EngineHost host()
{
    EngineHost host;
    host.qemu = "/bin/qemu";
    host.vm_dir = "/vms/1";
    host.images_dir = "/images";
    host.uefi_code = "/fw/code";
    host.disk_formats = {"qcow2", "raw"};
    host.environment = {"LC_ALL=C"};
    return host;
}

std::string agent(int fd)
{
    return " -chardev socket,id=agent,fd=" + std::to_string(fd) +
           " -device virtio-serial-pci,id=ports"
           " -device virtserialport,bus=ports.0,id=agent-port,chardev=agent,"
           "name=com.redhat.spice.0";
}

TEST(MachineTypes, areThoseOfThisMachineTheNewestFirst)
{
    EXPECT_EQ(machine_types_in("Supported machines are:\nmicrovm   microvm (i386)\n"
                               "pc-i440fx-10.0   Standard PC\npc-q35-2.12   Standard PC\n"
                               "q35      Standard PC (alias of pc-q35-10.0)\n"
                               "pc-q35-10.0   Standard PC\npc-q35-9.2   Standard PC\n"),
              (std::vector<std::string>{"pc-q35-10.0", "pc-q35-9.2", "pc-q35-2.12"}));
}

TEST(Launch, describesTheSmallestMachineWhole)
{
    const Machine pinned = parse("machine: pc-q35-7.2\n").machine;
    EXPECT_NE(engine_launch_line(engine_launch(pinned, host(), LaunchOptions()))
                  .find(" -machine pc-q35-7.2,dump-guest-core=off "),
              std::string::npos);
    const Parsed parsed = parse("name: One\nram: {size: 67108864}\n");
    const Launch launch = engine_launch(parsed.machine, host(), LaunchOptions());
    EXPECT_EQ(
        engine_launch_line(launch),
        "/bin/qemu -name guest=One -uuid " + std::string(ID) +
            " -no-user-config -nodefaults -machine q35,dump-guest-core=off -accel "
            "tcg,tb-size=64 -cpu max"
            " -smp 1 -m size=67108864B -S"
            " -sandbox on,obsolete=deny,elevateprivileges=deny,spawn=deny,resourcecontrol=deny"
            " -chardev socket,id=monitor,fd=3 -mon chardev=monitor,mode=control"
            " -chardev socket,id=console,fd=4 -serial chardev:console"
            " -display dbus,p2p=yes"
            " -device virtio-vga,max_outputs=1,xres=1280,yres=800"
            " -device qemu-xhci,id=usb -device usb-tablet,bus=usb.0"
            " -device ide-cd,bus=ide.0" +
            agent(5));
    EXPECT_EQ(launch.environment, host().environment);
}

TEST(Launch, describesAFullMachineWholeWhateverElseItsRecordSays)
{
    const Parsed parsed = parse("name: A, b\ncpu: {count: 4, colour: red}\n"
                                "ram: {size: 67108864}\n"
                                "firmware: uefi\naudio: yes\nboot: network\n"
                                "hard_drives: [{file: 'a,1.qcow2', controller: virtio-blk},"
                                " {file: /b.dsk, format: raw}]\n"
                                "cdrom: /cd.iso\nsomething: else\n"
                                "network: [{mode: host},"
                                " {controller: virtio-net, mac: '52:54:00:00:00:02'},"
                                " {mode: bridge, mac: '52:54:00:00:00:03'},"
                                " {mode: bridge, bridge: lan0, mac: '52:54:00:00:00:04'},"
                                " {mode: disconnected, mac: '52:54:00:00:00:05'}]\n"
                                "displays: [{width: 1920, height: 1080, hdpi: true}, {}]\n");
    ASSERT_FALSE(parsed.failure) << parsed.failure.text;
    EXPECT_THAT(parsed.machine.displays, testing::ElementsAre(MachineDisplay{1920, 1080, true},
                                                              MachineDisplay{1280, 800, false}));
    EXPECT_EQ(parsed.machine.boot, BootDevice::network);
    EngineHost facts = host();
    facts.accel = Accel::kvm;
    const Launch launch =
        engine_launch(parsed.machine, facts, {StartMode::recovery, 7, 8, 9, /*incoming=*/true});
    EXPECT_EQ(engine_launch_line(launch),
              "/bin/qemu -name 'guest=A,, b' -uuid " + std::string(ID) +
                  " -no-user-config -nodefaults -machine q35,dump-guest-core=off -accel kvm -cpu "
                  "host -smp 4"
                  " -m size=67108864B -S -incoming defer -boot menu=on,splash-time=5000"
                  " -chardev socket,id=monitor,fd=7 -mon chardev=monitor,mode=control"
                  " -chardev socket,id=console,fd=8 -serial chardev:console"
                  " -drive if=pflash,unit=0,format=raw,readonly=on,file=/fw/code"
                  " -drive if=pflash,unit=1,format=raw,file=/vms/1/nvram"
                  " -display dbus,p2p=yes -device virtio-vga,max_outputs=2,xres=1920,yres=1080"
                  " -device qemu-xhci,id=usb -device usb-tablet,bus=usb.0 -device usb-kbd,bus=usb.0"
                  " -drive if=none,id=disk0,format=qcow2,discard=unmap,cache=writeback,"
                  "file=/images/a,,1.qcow2"
                  " -device virtio-blk-pci,drive=disk0,bootindex=11"
                  " -drive if=none,id=disk1,format=raw,discard=unmap,cache=writeback,file=/b.dsk"
                  " -device ide-hd,bus=ide.2,drive=disk1,bootindex=12"
                  " -drive if=none,id=cd0,format=raw,readonly=on,file=/cd.iso"
                  " -device ide-cd,bus=ide.0,drive=cd0,bootindex=1"
                  " -netdev user,id=net0,restrict=on"
                  " -device e1000e,id=nic0,mac=" +
                  machine_default_mac(ID, 0) +
                  ",bootindex=31,netdev=net0"
                  " -netdev user,id=net1"
                  " -device virtio-net-pci,id=nic1,mac=52:54:00:00:00:02,bootindex=32,netdev=net1"
                  " -netdev bridge,id=net2,br=br0,helper=/usr/lib/qemu/qemu-bridge-helper"
                  " -device e1000e,id=nic2,mac=52:54:00:00:00:03,bootindex=33,netdev=net2"
                  " -netdev bridge,id=net3,br=lan0,helper=/usr/lib/qemu/qemu-bridge-helper"
                  " -device e1000e,id=nic3,mac=52:54:00:00:00:04,bootindex=34,netdev=net3"
                  " -device e1000e,id=nic4,mac=52:54:00:00:00:05,bootindex=35"
                  " -audiodev none,id=sound -device intel-hda -device hda-duplex,audiodev=sound" +
                  agent(9));
    EXPECT_EQ(engine_launch_line({"/bin/a b", {"it's", "x=1,y"}, {}}),
              "'/bin/a b' 'it'\\''s' x=1,y");
}

TEST(Host, namesTheFileThatAMachineLacksAndKeepsTheReason)
{
    Machine machine =
        parse("firmware: uefi\nhard_drives: [{file: http://a/b}, {file: c.dsk}]").machine;
    EngineHost facts = host();
    facts.qemu = facts.uefi_code = facts.uefi_vars = "/bin/sh";
    facts.images_dir = "/no";
    ServiceFailure failure = engine_host_check(machine, &facts);
    EXPECT_EQ(failure.text, "hard_drives[1].file: disk image /no/c.dsk: No such file or directory");
    EXPECT_EQ(failure.error, ENOENT);
    machine.disks.pop_back();
    EXPECT_EQ(engine_host_check(machine, &facts).text, "");
    EXPECT_EQ(facts.disk_formats, std::vector<std::string>{"raw"});
    machine.cdrom = "/";
    EXPECT_EQ(engine_host_check(machine, &facts).text, "cdrom: image /: Is a directory");
    const ScratchDirectory directory;
    facts.vm_dir = directory.path();
    facts.uefi_vars = "/"; // opens, and can't be read
    failure = engine_host_make_nvram(machine, facts);
    EXPECT_EQ(failure.text, facts.vm_dir + "/nvram: can't be made from /: Is a directory");
    EXPECT_EQ(failure.error, EISDIR);
    EXPECT_TRUE(std::filesystem::is_empty(facts.vm_dir));
}

TEST(Bridge, namesWhatKeepsAVmFromItAndTheMend)
{
    std::string conf = testing::TempDir() + "/bridge-XXXXXX";
    const UniqueFd file(mkstemp(conf.data()));
    EngineHost facts = host();
    auto refusal = [&](const char *bridge) { return engine_bridge_check(facts, bridge).text; };
    facts.bridge_helper = "/no/helper";
    EXPECT_EQ(refusal("lo"), "network mode bridge: QEMU's helper /no/helper: No such file or "
                             "directory; apt install qemu-system-common");
    facts.bridge_helper = "/bin/su"; // runs as root, whoever starts it
    EXPECT_THAT(refusal("none0"), testing::EndsWith("ip link add name none0 type bridge"));
    facts.bridge_conf = conf;
    EXPECT_THAT(refusal("lo"), testing::EndsWith(conf + " does not allow \"lo\"; add the line: "
                                                        "allow lo"));
    ASSERT_EQ(write(file.get(), "# all\nallow lo\n", 15), 15);
    EXPECT_EQ(refusal("lo"), "");
    ASSERT_EQ(write(file.get(), "deny all\n", 9), 9);
    EXPECT_NE(refusal("lo"), "");
    unlink(conf.c_str());
}

TEST(Accel, followsTheSettingAndSaysWhyKvmIsRefused)
{
    Accel accel = Accel::kvm;
    EXPECT_FALSE(engine_accel_decide("tcg", 0, &accel));
    EXPECT_EQ(accel, Accel::tcg);
    EXPECT_FALSE(engine_accel_decide("auto", EACCES, &accel));
    EXPECT_EQ(accel, Accel::tcg);
    EXPECT_FALSE(engine_accel_decide("auto", 0, &accel));
    EXPECT_EQ(accel, Accel::kvm);
    EXPECT_EQ(engine_accel_decide("kvm", ENOTSUP, &accel).text,
              "engine_accel is kvm, but KVM can't be used: the processor offers no "
              "virtualisation");
    const ServiceFailure refused = engine_accel_decide("kvm", EACCES, &accel);
    EXPECT_EQ(refused.error, EACCES);
    EXPECT_THAT(refused.text, testing::HasSubstr("/dev/kvm: Permission denied"));
    EXPECT_EQ(accel, Accel::tcg);
}

} // namespace
