#include "hostlib/vm/img.h"

#include "hostlib/config/config.h"
#include "hostlib/vm/line.h"
#include "hostlib/vm/owners.h"
#include "platform/file.h"
#include "platform/new_file.h"
#include "platform/unique_fd.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// The queue: one name a line, oldest first. It is replaced as a whole, so that a crash leaves the
// old one or the new one; who reads or replaces it holds the lock of the library directory.
constexpr const char *QUEUE_NAME = ".removal-queue";
constexpr size_t QUEUE_MAX = 65536; // names

using Names = std::vector<std::string>;

int failed(int error)
{
    errno = error;
    return -1;
}

UniqueFd lock_library()
{
    const int library = img_libfd();
    return UniqueFd(library < 0
                        ? -1
                        : platform_openat_locked(library, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC,
                                                 FileLock::exclusive, 0));
}

int load(int library, Names *names)
{
    UniqueFd fd(openat(library, QUEUE_NAME, O_RDONLY | O_CLOEXEC));
    if (!fd)
        return errno == ENOENT ? 0 : -1;
    const FileOwner stream(fdopen(fd.get(), "rb"));
    if (!stream)
        return -1;
    fd.release();
    std::string line;
    while (line_read(stream.get(), &line) > 0) {
        // Not a whole line: not a name of ours.
        if (line.back() != '\n' || line.size() < 2 || names->size() == QUEUE_MAX)
            continue;
        line.pop_back();
        names->push_back(std::move(line));
    }
    return ferror(stream.get()) ? -1 : 0;
}

int store(int library, const Names &names)
{
    std::string text;
    for (const std::string &name : names)
        text += name + "\n";
    return platform_replace_file(library, QUEUE_NAME, text, 0600, FileMakers::one);
}

// A relative name stays inside the library.
bool is_queueable(std::string_view name)
{
    if (name.empty() || name.find('\n') != name.npos)
        return false;
    const std::string path = "/" + std::string(name) + "/";
    return path.find("/../") == path.npos;
}

} // namespace

int img_libfd()
{
    static int library = -1;
    if (library < 0) {
        const char *path = config_get_path("img_lib_dir");
        if (!path)
            return failed(ENOENT);
        library = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }
    return library;
}

int img_unlink(const char *name)
{
    if (name && name[0] == '/')
        return unlink(name);
    if (!name || !is_queueable(name))
        return failed(EINVAL);
    const UniqueFd library = lock_library();
    Names names;
    if (!library || load(library.get(), &names) != 0)
        return -1;
    if (std::find(names.begin(), names.end(), name) != names.end())
        return 0;
    if (names.size() == QUEUE_MAX)
        return failed(ENOSPC);
    names.emplace_back(name);
    return store(library.get(), names);
}

int img_purge(bool (*in_use)(const char *name, void *arg), void *arg)
{
    const UniqueFd library = lock_library();
    Names names, kept;
    if (!library || load(library.get(), &names) != 0)
        return -1;
    int removed = 0;
    for (const std::string &name : names) {
        if (!is_queueable(name))
            continue;
        const bool needed = in_use && in_use(name.c_str(), arg);
        if (!needed && unlinkat(library.get(), name.c_str(), 0) == 0)
            ++removed;
        else if (needed || errno != ENOENT)
            kept.push_back(name);
    }
    // Names that are needed no more go from the queue after their images: a purge that is cut short
    // here finds them again, and finds their images gone.
    if (kept.size() != names.size() && store(library.get(), kept) != 0)
        return -1;
    return removed;
}
