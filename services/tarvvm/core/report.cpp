#include "services/tarvvm/core/report.h"

#include "platform/new_file.h"
#include "services/engine/trees.h"

#include <cstdlib>
#include <fcntl.h>

int report_write(int status, const std::string &message)
{
    const char *path = std::getenv("TARV_JOB_REPORT");
    if (!path || !*path)
        return 0;
    const JsonTree tree(json_mkobject());
    json_append_int64(tree.get(), "status", status);
    json_append_str(tree.get(), "message", message.c_str());
    const std::string text = json_print(tree.get()) + "\n";
    return platform_replace_file(AT_FDCWD, path, text, 0600, FileMakers::one);
}
