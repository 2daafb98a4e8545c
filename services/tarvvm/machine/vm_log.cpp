#include "services/tarvvm/machine/vm_log.h"

#include "hostlib/utils/utils.h"
#include "platform/new_file.h"
#include "services/bounds.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t CONSOLE_LINE_MAX = 1024;

std::string time_text()
{
    const time_t now = time(nullptr);
    char text[32] = "";
    return ctime_r(&now, text) ? std::string(text).substr(0, 19) : std::string();
}

} // namespace

bool VmLog::openFile(const std::string &directory, const std::string &id)
{
    const std::string path = directory + "/" + id + ".log";
    m_file.reset(openx(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    struct stat file, error;
    if (!m_file || fstat(m_file.get(), &file) != 0)
        return false;
    m_is_stderr = fstat(STDERR_FILENO, &error) == 0 && error.st_dev == file.st_dev &&
                  error.st_ino == file.st_ino;
    return true;
}

void VmLog::line(const std::string &text)
{
    const std::string full = time_text() + " tarvvm: " + text + "\r\n";
    if (!m_is_stderr)
        platform_write_all(STDERR_FILENO, full);
    write(full);
}

void VmLog::console(std::string_view bytes)
{
    for (const char c : bytes) {
        if (c == '\t' || !std::iscntrl(static_cast<unsigned char>(c)))
            m_console += c;
        if ((c != '\n' && m_console.size() < CONSOLE_LINE_MAX) || m_console.empty())
            continue;
        write(time_text() + " console: " + m_console + "\r\n");
        m_console.clear();
    }
}

void VmLog::write(const std::string &text)
{
    if (!m_file)
        return;
    // Others append too (what this process says on standard error), so the file is asked.
    struct stat status;
    if (fstat(m_file.get(), &status) == 0 && size_t(status.st_size) + text.size() > VM_LOG_MAX)
        makeRoom(size_t(status.st_size));
    // A log that can't be written (a full disk) must not end the VM.
    platform_write_all(m_file.get(), text);
}

// Every writer appends, so what comes between the steps lands behind what is kept.
void VmLog::makeRoom(size_t size)
{
    std::vector<char> kept(VM_LOG_MAX / 2);
    const ssize_t length = size < kept.size() ? 0
                                              : pread(m_file.get(), kept.data(), kept.size(),
                                                      off_t(size - kept.size()));
    if (ftruncate(m_file.get(), 0) != 0)
        return;
    std::string_view rest(kept.data(), length > 0 ? size_t(length) : 0);
    rest.remove_prefix(std::min(rest.size(), rest.find('\n') + 1)); // what is left of a line
    platform_write_all(m_file.get(), rest);
}
