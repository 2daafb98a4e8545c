#include "app/agreement/TarvCLI.h"

#include "app/agreement/AdministratorRight.h"
#include "app/kit/AppLog.h"
#include "hostlib/config/config.h"
#include "hostlib/utils/proc.h"
#include "hostlib/vms/vms.h"
#include "platform/unique_fd.h"
#include "policy/owners.h"
#include "tarvhv/cli2.h"

#include <QCoreApplication>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include <strings.h>

namespace {

constexpr timeval ANSWER_WAIT{30, 0};

TarvError posixError(int code, const char *description)
{
    return {QStringLiteral("POSIX"), code, QString::fromUtf8(description)};
}

// The controller starts the launch service where nobody listens.
bool startLaunchService()
{
    const char *controller = config_get_path("tarvctl_executable");
    return controller && proc_exec(controller, nullptr, nullptr, 1, "ping") == 0;
}

int connectToLaunchService(const char *command)
{
    const int fd = cli2_connect(vms_launch_socket(), command);
    if (fd >= 0 || (errno != ENOENT && errno != ECONNREFUSED))
        return fd;
    startLaunchService();
    return cli2_connect(vms_launch_socket(), command);
}

JsonOwner acceptance()
{
    JsonOwner request(json_mkobject());
    if (request)
        json_append_str(request.get(), "action", "accept");
    return request;
}

} // namespace

bool TarvCLI::ensureLaunchService()
{
    const UniqueFd connection(cli2_connect(vms_launch_socket(), nullptr));
    return !connection && (errno == ENOENT || errno == ECONNREFUSED) && startLaunchService();
}

bool TarvCLI::acceptEULA(TarvError *error)
{
    QString refusal;
    if (!obtainAdministratorRight(&refusal)) {
        *error = {QStringLiteral("Authorization"), EPERM, refusal};
        return false;
    }
    const UniqueFd connection(connectToLaunchService("eula"));
    if (!connection) {
        const int code = errno;
        const QString path = QString::fromLocal8Bit(vms_launch_socket());
        const QString reason = QString::fromLocal8Bit(strerror(code));
        appLog("ctl", QStringLiteral("%1: vlaunchd service unavailable: %2").arg(path, reason));
        *error = {
            QStringLiteral("POSIX"), code,
            QCoreApplication::translate("TarvCLI", "The launch service can't be reached at %1: %2")
                .arg(path, reason)};
        return false;
    }
    errno = 0;
    JsonOwner answer;
    if (cli2_send_json(connection.get(), acceptance().get()) == 0)
        answer.reset(cli2_recv_json_to(connection.get(), ANSWER_WAIT));
    const int current = errno != 0 ? errno : EPROTO;
    if (strcasecmp(json_find_str(answer.get(), "status", "ERROR"), "OK") == 0)
        return true;
    const int code = int(json_find_int64(answer.get(), "error", current));
    *error = posixError(code, json_find_str(answer.get(), "message", strerror(code)));
    return false;
}
