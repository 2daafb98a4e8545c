// Services that the list asks, played on local sockets.
#pragma once

#include <QString>

#include <functional>
#include <string>
#include <thread>

// A service on a local socket, on a thread of its own. It hands what it read to the handler and
// sends what that answers; to an empty answer it says nothing and keeps the connection.
class FakeService
{
public:
    using Handler = std::function<std::string(const std::string &request)>;
    FakeService(const QString &path, Handler handler);
    ~FakeService();

private:
    void serve();

    const QString m_path;
    const Handler m_handler;
    int m_listener = -1;
    int m_wake[2] = {-1, -1};
    std::thread m_thread;
};

// Where a VM's supervisor is expected.
QString supervisorPath(const QString &vmid);
