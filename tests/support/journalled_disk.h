// A journalling file system in a file, mounted over a loop device, whose power can be cut: a copy
// of the file is what the device has been given by that moment, and nothing that waits in memory.
#pragma once

#include "tests/support/scratch.h"
#include "tests/support/small_disk.h"

#include <string>
#include <sys/mount.h>
#include <unistd.h>

// Runs a line of the shell; its exit status.
inline int run_shell(const std::string &line)
{
    return wait_child(run_child([&] {
        execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        return 127;
    }));
}

class JournalledDisk
{
public:
    // `kind` as mkfs.KIND names it. Nothing is mounted where that program or the right to is
    // missing.
    JournalledDisk(std::string kind, std::string point)
        : m_kind(std::move(kind)), m_point(std::move(point))
    {
        // The smallest that mkfs.xfs makes; the file is sparse. Quiet of its own for five minutes,
        // so that what is on it got there because somebody asked for it.
        const std::string make = m_kind == "xfs" ? "mkfs.xfs -q " : "mkfs.ext4 -q -F ";
        std::filesystem::create_directory(m_point);
        if (own_mounts() && run_shell("PATH=$PATH:/sbin:/usr/sbin; truncate -s 300M " + m_file +
                                      " && " + make + m_file + " 2>/dev/null") == 0)
            m_mounts += mount(m_file, m_point);
    }
    ~JournalledDisk()
    {
        while (m_mounts-- > 0)
            umount2(m_point.c_str(), MNT_DETACH);
    }
    JournalledDisk(const JournalledDisk &) = delete;
    JournalledDisk &operator=(const JournalledDisk &) = delete;

    bool mounted() const { return m_mounts > 0; }
    // Cuts the power of a copy.
    void cut() const { run_shell("cp --sparse=always " + m_file + " " + copy()); }
    // Mounts the copy somewhere, which replays its journal.
    bool openCopy(const std::string &point) const { return mount(copy(), point); }
    // Unmounts it, and says whether the file system is whole.
    bool closeCopy(const std::string &point) const
    {
        const std::string check = m_kind == "xfs" ? "xfs_repair -n -f " : "fsck.ext4 -fn ";
        return umount2(point.c_str(), 0) == 0 &&
               run_shell("PATH=$PATH:/sbin:/usr/sbin; " + check + copy() + " >/dev/null 2>&1") == 0;
    }
    // Puts the copy in the place of the disk, for programs that are started from now on.
    bool replaceByCopy()
    {
        m_file += "+";
        std::filesystem::rename(copy(), m_file);
        const bool done = mount(m_file, m_point);
        m_mounts += done;
        return done;
    }

private:
    std::string copy() const { return m_directory.path("copy"); }
    bool mount(const std::string &file, const std::string &point) const
    {
        const std::string options = m_kind == "ext4" ? "loop,commit=300" : "loop,nouuid";
        return run_shell("PATH=$PATH:/sbin:/usr/sbin; mount -t " + m_kind + " -o " + options + " " +
                         file + " " + point + " 2>/dev/null") == 0;
    }

    ScratchDirectory m_directory;
    std::string m_kind, m_point, m_file = m_directory.path("disk");
    int m_mounts = 0;
};
