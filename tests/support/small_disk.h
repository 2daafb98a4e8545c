// A small file system over a directory, seen by this process and what it starts alone.
#pragma once

#include "platform/unique_fd.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

// Mounts of this process are seen nowhere else. An ordinary user gets them with a user space of
// its own.
inline bool own_mounts()
{
    static const bool own = [] {
        const unsigned uid = geteuid(), gid = getegid();
        if (unshare(CLONE_NEWNS) != 0) {
            if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
                return false;
            const auto map = [](const char *file, unsigned number) {
                const std::string text =
                    std::to_string(number) + " " + std::to_string(number) + " 1";
                const UniqueFd fd(open(file, O_WRONLY | O_CLOEXEC));
                return write(fd.get(), text.data(), text.size()) == ssize_t(text.size());
            };
            const UniqueFd deny(open("/proc/self/setgroups", O_WRONLY | O_CLOEXEC));
            if (write(deny.get(), "deny", 4) != 4 || !map("/proc/self/uid_map", uid) ||
                !map("/proc/self/gid_map", gid))
                return false;
        }
        return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    }();
    return own;
}

class SmallDisk
{
public:
    // What the directory holds moves along. `size` as "64k".
    SmallDisk(std::string path, const std::string &size) : m_path(std::move(path))
    {
        const std::string before = m_path + ".before", options = "size=" + size;
        if (!own_mounts())
            return;
        std::filesystem::rename(m_path, before);
        std::filesystem::create_directory(m_path);
        m_mounted = mount("tmpfs", m_path.c_str(), "tmpfs", 0, options.c_str()) == 0;
        std::filesystem::copy(before, m_path, std::filesystem::copy_options::recursive);
        std::filesystem::remove_all(before);
    }
    ~SmallDisk()
    {
        if (m_mounted)
            umount2(m_path.c_str(), MNT_DETACH);
    }
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    bool mounted() const { return m_mounted; }
    // Takes all room but so many bytes, and gives it back.
    void fill(uint64_t left = 0) const
    {
        struct statvfs status;
        const UniqueFd file(open(filler().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        if (statvfs(m_path.c_str(), &status) != 0)
            return;
        const uint64_t room = uint64_t(status.f_bavail) * status.f_frsize;
        [[maybe_unused]] const int taken =
            room > left ? posix_fallocate(file.get(), 0, off_t(room - left)) : 0;
    }
    void release() const { unlink(filler().c_str()); }

private:
    std::string filler() const { return m_path + "/.filler"; }

    std::string m_path;
    bool m_mounted = false;
};
