// The VM's service socket: takes connections, collects one request from each, and gives it its
// answer when there is one.
#pragma once

#include "services/engine/trees.h"
#include "services/loop/event.h"
#include "services/loop/worker.h"

#include "platform/unique_fd.h"
#include "tarvhv/cli2.h"

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

struct ServiceRequestFree
{
    void operator()(cli2_request *request) const { cli2_request_free(request); }
};
using CollectedRequest = std::unique_ptr<cli2_request, ServiceRequestFree>;

// One request that waits for its answer. Dropping it unanswered hangs up.
class ServiceRequest
{
public:
    ServiceRequest(UniqueFd socket, CollectedRequest collected);

    std::string_view command() const { return cli2_request_command(m_collected.get()); }
    // The request's value; null when it has none.
    const json *arguments() const { return cli2_request_json(m_collected.get()); }
    // Each answers once and hangs up.
    void answer(JsonTree body, const int *fds = nullptr, size_t count = 0);
    void fail(int error, const std::string &message);

private:
    UniqueFd m_socket;
    CollectedRequest m_collected;
};

// The number of connections is capped, and none is silent for long: when there are too many, or no
// descriptor is left for another, the one that is silent for longest makes room. So whoever asks at
// once is heard, whatever others keep open.
class Service
{
public:
    static constexpr size_t CONNECTIONS_MAX = 64;

    using Handler = std::function<void(std::unique_ptr<ServiceRequest>)>;

    // Binds the socket. Null with errno set: EADDRINUSE when a live process has it.
    static std::unique_ptr<Service> listen(sd_event *loop, const std::string &path,
                                           Handler handler);
    // Sees to it that the socket's file stays: /tmp is cleaned by many hands, and a VM without it
    // looks stopped to everybody. It is made again on the worker, since that takes a lock.
    void guard(Worker &worker);
    ~Service(); // removes the socket file, unless it is another's by now
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

private:
    struct Connection
    {
        UniqueFd socket;
        CollectedRequest request;
        EventSource readable, deadline;
    };
    using Connections = std::list<Connection>;

    Service() = default;
    void accept();
    UniqueFd acceptOne();
    void watchFile();
    bool fileIsOurs() const;
    void remake();
    void adopt(UniqueFd listener);
    void pause();
    void resume();
    void receive(Connections::iterator connection);
    void complete(Connections::iterator connection);

    sd_event *m_loop = nullptr;
    std::string m_path;
    UniqueFd m_listener;
    ino_t m_inode = 0;
    EventSource m_source, m_pause, m_file_watch, m_retry;
    Worker *m_worker = nullptr;                             // while the file is guarded
    std::shared_ptr<int> m_alive = std::make_shared<int>(); // goes with this object
    Handler m_handler;
    Connections m_connections; // the oldest first
};
