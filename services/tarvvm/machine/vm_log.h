// What is said about one VM: lines on standard error and in the VM's own log file, which also takes
// what the guest prints on its serial port and is kept below VM_LOG_MAX, whoever filled it. The
// launch service makes the same file the standard error of its job; a line stands in it once all
// the same.
#pragma once

#include "platform/unique_fd.h"

#include <string>
#include <string_view>

class VmLog
{
public:
    // Logs to standard error alone until a file is opened.
    VmLog() = default;
    ~VmLog() { console("\n"); } // what the guest has not ended is often what matters
    // Opens "<directory>/<id>.log", made with its directory if need be. False with errno set; the
    // log then goes on without.
    bool openFile(const std::string &directory, const std::string &id);

    // "Sat Nov 21 09:34:02 tarvvm: " and the line.
    void line(const std::string &text);
    // Bytes of the serial port, in lines marked "console: "; control characters are left out.
    void console(std::string_view bytes);

private:
    void write(const std::string &text);
    void makeRoom(size_t size);

    UniqueFd m_file;
    bool m_is_stderr = false; // the file is where standard error goes
    std::string m_console;
};
