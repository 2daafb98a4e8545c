#include "services/tarvvm/machine/capped_file.h"

#include "hostlib/utils/utils.h"
#include "platform/new_file.h"

#include <algorithm>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

bool CappedFile::open(const std::string &path, size_t cap)
{
    m_cap = cap;
    m_fd.reset(openx(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    return bool(m_fd);
}

void CappedFile::append(const std::string &text)
{
    if (!m_fd)
        return;
    // Others may append too, so the file is asked.
    struct stat status;
    if (fstat(m_fd.get(), &status) == 0 && size_t(status.st_size) + text.size() > m_cap)
        makeRoom(size_t(status.st_size));
    platform_write_all(m_fd.get(), text);
}

// Every writer appends, so what comes between the steps lands behind what is kept.
void CappedFile::makeRoom(size_t size)
{
    std::vector<char> kept(m_cap / 2);
    const ssize_t length =
        size < kept.size() ? 0
                           : pread(m_fd.get(), kept.data(), kept.size(), off_t(size - kept.size()));
    if (ftruncate(m_fd.get(), 0) != 0)
        return;
    std::string_view rest(kept.data(), length > 0 ? size_t(length) : 0);
    rest.remove_prefix(std::min(rest.size(), rest.find('\n') + 1)); // what is left of a line
    platform_write_all(m_fd.get(), rest);
}
