// The VM's service socket: takes connections, collects one request from each, and gives it its
// answer when there is one.
#pragma once

#include "services/engine/trees.h"
#include "services/loop/event.h"

#include "platform/unique_fd.h"
#include "tarvhv/cli2.h"

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <sys/types.h>

// One request that waits for its answer. Dropping it unanswered hangs up.
class ServiceRequest
{
public:
    ServiceRequest(UniqueFd socket, std::string command, const json *arguments);

    const std::string &command() const { return m_command; }
    // The request's value; null when it has none.
    const json *arguments() const { return m_arguments.get(); }
    // Each answers once and hangs up.
    void answer(JsonTree body, const int *fds = nullptr, size_t count = 0);
    void fail(int error, const std::string &message);

private:
    UniqueFd m_socket;
    std::string m_command;
    JsonTree m_arguments;
};

class Service
{
public:
    using Handler = std::function<void(std::unique_ptr<ServiceRequest>)>;

    // Binds the socket. Null with errno set: EADDRINUSE when a live process has it.
    static std::unique_ptr<Service> listen(sd_event *loop, const std::string &path,
                                           Handler handler);
    ~Service(); // removes the socket file, unless it is another's by now
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

private:
    struct RequestFree
    {
        void operator()(cli2_request *request) const { cli2_request_free(request); }
    };
    struct Connection
    {
        UniqueFd socket;
        std::unique_ptr<cli2_request, RequestFree> request;
        EventSource readable, deadline;
    };
    using Connections = std::list<Connection>;

    Service() = default;
    void accept();
    void receive(Connections::iterator connection);
    void complete(Connections::iterator connection);

    sd_event *m_loop = nullptr;
    std::string m_path;
    UniqueFd m_listener;
    ino_t m_inode = 0;
    EventSource m_source;
    Handler m_handler;
    Connections m_connections;
};
