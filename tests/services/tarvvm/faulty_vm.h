// A real supervisor whose QEMU fails, or falls silent, at a chosen message.
#pragma once

#include "tests/services/tarvvm/live_vm.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

// A VM whose QEMU is reached through the proxy that fails as planned.
class FaultyVm : public LiveVm
{
public:
    explicit FaultyVm(const std::string &guest, const std::string &config = "")
        : LiveVm(guest, config)
    {
        std::filesystem::create_symlink(ENGINE_PROXY, file("engine"));
        home().set("qemu_executable", file("engine"));
    }
    void plan(const std::string &text) const
    {
        std::filesystem::remove(file("plan"));
        if (!text.empty())
            write("plan", text);
    }
    // Files of the image library besides the disk.
    std::vector<std::string> images() const
    {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(file("images")))
            if (const std::string name = entry.path().filename();
                name != "disk.img" && name != ".removal-queue" && name != ".filler")
                names.push_back(name);
        return names;
    }
    // Neither socket nor process is left.
    void expectGone() const
    {
        EXPECT_FALSE(socketExists());
        EXPECT_TRUE(wait_for([this] { return processes_with(id()).empty(); }));
    }
};
