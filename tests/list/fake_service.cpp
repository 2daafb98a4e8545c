#include "tests/list/fake_service.h"

#include "tarvhv/cli2.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

FakeService::FakeService(const QString &path, Handler handler)
    : m_path(path), m_handler(std::move(handler))
{
    m_listener = cli2_listen(qPrintable(path));
    if (m_listener < 0 || pipe(m_wake) != 0) {
        qFatal("%s: %s", qPrintable(path), std::strerror(errno));
    }
    m_thread = std::thread([this] { serve(); });
}

FakeService::~FakeService()
{
    close(m_wake[1]);
    m_thread.join();
    close(m_wake[0]);
    close(m_listener);
    QFile::remove(m_path);
}

void FakeService::serve()
{
    std::vector<pollfd> fds = {{m_wake[0], POLLIN, 0}, {m_listener, POLLIN, 0}};
    while (poll(fds.data(), fds.size(), -1) >= 0 && fds[0].revents == 0) {
        if (fds[1].revents) {
            if (const int fd = accept(m_listener, nullptr, nullptr); fd >= 0) {
                fds.push_back({fd, POLLIN, 0});
            }
        }
        for (size_t i = 2; i < fds.size(); i++) {
            char buffer[512];
            const ssize_t got =
                fds[i].revents ? recv(fds[i].fd, buffer, sizeof buffer, MSG_DONTWAIT) : -1;
            if (got > 0) {
                const std::string answer = m_handler(std::string(buffer, size_t(got)));
                send(fds[i].fd, answer.data(), answer.size(), MSG_NOSIGNAL);
            } else if (got == 0) {
                close(std::exchange(fds[i].fd, -1));
            }
        }
    }
    for (size_t i = 2; i < fds.size(); i++) {
        close(fds[i].fd);
    }
}

QString supervisorPath(const QString &vmid)
{
    return QStringLiteral("/tmp/com.quelda.tarvhv.%1.%2.sock").arg(vmid, QString::number(getuid()));
}
