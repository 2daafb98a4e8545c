#include "app/kit/AppLog.h"

#include "hostlib/utils/utils.h"

#include <ctime>

void appLog(const char *module, const QString &text)
{
    if (log_fd < 0)
        return; // dprintf would lose its buffer each time
    const time_t now = time(nullptr);
    char date[32] = "";
    ctime_r(&now, date);
    dprintf(log_fd, "%.19s %s: %s\r\n", date, module, text.toLocal8Bit().constData());
}
