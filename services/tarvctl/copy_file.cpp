#include "services/tarvctl/copy_file.h"

#include "platform/new_file.h"
#include "platform/reflink.h"
#include "platform/unique_fd.h"
#include "services/tarvctl/answer.h"
#include "services/tarvctl/cancel.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Two files, open, and what they are called in messages.
struct Pair
{
    UniqueFd source, target;
    const std::string &from, &to;
};

// Copies what lies between two offsets; `progress` gets how far it is.
void copy_part(const Pair &pair, off_t start, off_t end, const std::function<void(off_t)> &progress)
{
    std::vector<char> bytes(1 << 20);
    if (lseek(pair.source.get(), start, SEEK_SET) < 0)
        throw system_failure(pair.from, errno);
    if (lseek(pair.target.get(), start, SEEK_SET) < 0)
        throw system_failure(pair.to, errno);
    while (start < end) {
        check_cancelled();
        const size_t wanted = std::min(bytes.size(), static_cast<size_t>(end - start));
        const ssize_t got = read(pair.source.get(), bytes.data(), wanted);
        if (got == 0)
            throw Failure(ExitStatus::failed, pair.from + ": became shorter while it was copied");
        if (got < 0 && errno != EINTR)
            throw system_failure(pair.from, errno);
        if (got < 0)
            continue;
        if (platform_write_all(pair.target.get(), {bytes.data(), static_cast<size_t>(got)}) != 0)
            throw system_failure(pair.to, errno);
        start += got;
        progress(start);
    }
}

// Where the next bytes from an offset on begin that are no hole, or the end of the file. A file
// system that knows of no holes has none.
off_t next_data(const Pair &pair, off_t offset, off_t size)
{
    const off_t start = lseek(pair.source.get(), offset, SEEK_DATA);
    return start >= 0 ? start : errno == ENXIO ? size : offset;
}

off_t next_hole(const Pair &pair, off_t offset, off_t size)
{
    const off_t end = lseek(pair.source.get(), offset, SEEK_HOLE);
    return end > offset && end < size ? end : size;
}

} // namespace

void copy_file(const std::string &from, const std::string &to,
               const std::function<void(double)> &progress)
{
    Pair pair{UniqueFd(open(from.c_str(), O_RDONLY | O_CLOEXEC)), UniqueFd(), from, to};
    struct stat status;
    if (!pair.source || fstat(pair.source.get(), &status) != 0)
        throw system_failure(from, errno);
    pair.target.reset(
        open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!pair.target)
        throw system_failure(to, errno);
    if (platform_reflink(pair.source.get(), pair.target.get()) != 0) {
        const off_t size = status.st_size;
        if (ftruncate(pair.target.get(), size) != 0)
            throw system_failure(to, errno);
        for (off_t at = next_data(pair, 0, size); at < size;) {
            const off_t end = next_hole(pair, at, size);
            copy_part(pair, at, end, [&](off_t done) {
                progress(static_cast<double>(done) / static_cast<double>(size));
            });
            at = next_data(pair, end, size);
        }
    }
    if (fsync(pair.target.get()) != 0)
        throw system_failure(to, errno);
    progress(1);
}
