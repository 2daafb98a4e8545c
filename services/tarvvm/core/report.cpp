#include "services/tarvvm/core/report.h"

#include "platform/unique_fd.h"
#include "services/engine/trees.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

int report_write(int status, const std::string &message)
{
    const char *path = std::getenv("TARV_JOB_REPORT");
    if (!path || !*path)
        return 0;
    const JsonTree tree(json_mkobject());
    json_append_int64(tree.get(), "status", status);
    json_append_str(tree.get(), "message", message.c_str());
    const std::string text = json_print(tree.get()) + "\n";
    std::string temporary = std::string(path) + ".XXXXXX";
    const UniqueFd fd(mkostemp(temporary.data(), O_CLOEXEC));
    if (!fd)
        return -1;
    if (write(fd.get(), text.data(), text.size()) == ssize_t(text.size()) && fsync(fd.get()) == 0 &&
        rename(temporary.c_str(), path) == 0)
        return 0;
    const int saved = errno;
    unlink(temporary.c_str());
    errno = saved;
    return -1;
}
