#include "services/tarvvm/machine/vm_log.h"

#include "platform/new_file.h"
#include "services/bounds.h"

#include <cctype>
#include <ctime>
#include <sys/stat.h>
#include <unistd.h>

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
    const std::string path = directory + "/" + id;
    struct stat file, error;
    if (!m_console_file.open(path + ".console.log", VM_LOG_MAX) ||
        !m_file.open(path + ".log", VM_LOG_MAX) || fstat(m_file.fd(), &file) != 0)
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
    m_file.append(full);
}

void VmLog::console(std::string_view bytes)
{
    std::string lines;
    for (const char c : bytes) {
        if (c == '\t' || !std::iscntrl(static_cast<unsigned char>(c)))
            m_console += c;
        if ((c != '\n' && m_console.size() < CONSOLE_LINE_MAX) || m_console.empty())
            continue;
        lines += time_text() + " " + m_console + "\r\n";
        m_console.clear();
    }
    if (!lines.empty())
        m_console_file.append(lines);
}
