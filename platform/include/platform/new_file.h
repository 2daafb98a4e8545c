// Files that get their name only once they are whole and on the disk.
#pragma once

#include "platform/unique_fd.h"

#include <string>
#include <string_view>
#include <sys/types.h>

// Writes everything, however many writes that takes. 0, or -1 with errno set (ENOSPC when nothing
// more is taken).
int platform_write_all(int fd, std::string_view bytes);
// Sees a directory's entries onto the disk: a name that was made, changed or removed in it. `name`
// is that of an entry; what holds it is meant. 0, or -1 with errno set.
int platform_sync_directory_of(int dirfd, const char *name);

// What of the way to a name failed.
enum class FileStep
{
    none,
    make, // the temporary file
    write,
    sync,
    name,
    sync_directory // the name is there, but a loss of power can take it back
};
// "can't be made", "can't be written" and so on; "" for none.
const char *file_step_text(FileStep step);

// Who else may be making a file of the same name.
enum class FileMakers
{
    one, // nobody, by a lock of the caller's: what a killed maker left is written over
    many // anybody: what a killed maker leaves stays, under a name that nobody looks for
};

// A file in the making, in the directory where it will be. It is removed unless it got its name.
class NewFile
{
public:
    NewFile() = default;
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;
    ~NewFile();

    // Its descriptor to write to, or -1 with errno set. A file that is already called `name` hands
    // down its mode in place of `mode`.
    int make(int dirfd, const char *name, mode_t mode, FileMakers makers);
    int fd() const { return m_fd.get(); }
    // Gives it its name, in place of the file of that name. 0, or -1 with errno set.
    int replace();
    // Gives it its name unless there is a file of that name (EEXIST). EPERM or ENOTSUP where files
    // can't have two names. 0, or -1 with errno set.
    int publish();
    // What the last call failed in.
    FileStep failed() const { return m_failed; }

private:
    int fail(FileStep step);

    int m_dirfd = -1;
    std::string m_name, m_temporary;
    UniqueFd m_fd;
    FileStep m_failed = FileStep::none;
};

// Gives a file a new text so that a kill or a loss of power leaves the old one or the new one, and
// success is on the disk. 0, or -1 with errno set and the step that failed.
int platform_replace_file(int dirfd, const char *name, std::string_view text, mode_t mode,
                          FileMakers makers, FileStep *failed = nullptr);
