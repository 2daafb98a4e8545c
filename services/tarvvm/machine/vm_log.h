// What is said about one VM: lines on standard error and in the VM's own log file. The launch
// service makes the same file the standard error of its job; a line stands in it once all the same.
// What the guest prints on its serial port has a file of its own, so that no guest can wash out
// what was said about it. Both are kept below VM_LOG_MAX.
#pragma once

#include "services/tarvvm/machine/capped_file.h"

#include <string>
#include <string_view>

class VmLog
{
public:
    // Logs to standard error alone until the files are opened.
    VmLog() = default;
    ~VmLog() { console("\n"); } // what the guest has not ended is often what matters
    // Opens "<directory>/<id>.log" and "<id>.console.log" beside it, made with their directory if
    // need be. False with errno set; the log then goes on without.
    bool openFile(const std::string &directory, const std::string &id);

    // "Sat Nov 21 09:34:02 tarvvm: " and the line.
    void line(const std::string &text);
    // Bytes of the serial port, in lines that begin with the time; control characters are left out.
    void console(std::string_view bytes);

private:
    CappedFile m_file, m_console_file;
    bool m_is_stderr = false; // the file is where standard error goes
    std::string m_console;    // the line that the guest is printing
};
