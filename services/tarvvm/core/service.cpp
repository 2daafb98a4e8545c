#include "services/tarvvm/core/service.h"

#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr uint64_t REQUEST_PATIENCE_MS = 10000;
constexpr uint64_t PAUSE_MS = 200; // a descriptor may be free by then
constexpr uint64_t REMAKE_MS = 2000;

bool is_out_of_descriptors(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

bool wants_json(const char *command)
{
    return std::strcmp(command, "display") == 0;
}

} // namespace

ServiceRequest::ServiceRequest(UniqueFd socket, CollectedRequest collected)
    : m_socket(std::move(socket)), m_collected(std::move(collected))
{
}

void ServiceRequest::answer(JsonTree body, const int *fds, size_t count)
{
    cli2_answer(m_socket.get(), body.get(), fds, count);
    m_socket.reset();
}

void ServiceRequest::fail(int error, const std::string &message)
{
    cli2_answer_error(m_socket.get(), error, message.c_str(), nullptr);
    m_socket.reset();
}

std::unique_ptr<Service> Service::listen(sd_event *loop, const std::string &path, Handler handler)
{
    std::unique_ptr<Service> self(new Service);
    self->m_loop = loop;
    self->m_handler = std::move(handler);
    self->m_listener.reset(cli2_listen(path.c_str()));
    struct stat status;
    if (!self->m_listener || stat(path.c_str(), &status) != 0)
        return nullptr;
    self->m_path = path;
    self->m_inode = status.st_ino;
    Service *service = self.get();
    self->m_source =
        event_io(loop, self->m_listener.get(), EPOLLIN, [service](uint32_t) { service->accept(); });
    // Made here and not when it is needed: a timer takes a descriptor.
    self->m_pause = event_timer(loop, PAUSE_MS, [service] { service->resume(); });
    return self;
}

Service::~Service()
{
    // Whoever removes the job may have removed the file too, and a new supervisor made its own.
    if (fileIsOurs())
        unlink(m_path.c_str());
}

bool Service::fileIsOurs() const
{
    struct stat status;
    return !m_path.empty() && lstat(m_path.c_str(), &status) == 0 && status.st_ino == m_inode;
}

void Service::guard(Worker &worker)
{
    m_worker = &worker;
    watchFile();
}

void Service::watchFile()
{
    m_file_watch = event_file(m_loop, m_path, [this] {
        if (!fileIsOurs())
            remake();
    });
    // It may have gone before it was watched.
    if (!m_file_watch || !fileIsOurs())
        remake();
}

// Where another process serves the path by now, nothing is taken from it. This object may be gone
// when the worker is done.
void Service::remake()
{
    const bool taken = m_worker->run(
        [path = m_path] { return std::make_shared<UniqueFd>(cli2_listen(path.c_str())); },
        [this, alive = std::weak_ptr<int>(m_alive),
         path = m_path](const std::shared_ptr<UniqueFd> &listener) {
            if (!alive.expired())
                adopt(std::move(*listener));
            else if (*listener)
                unlink(path.c_str());
        });
    if (!taken)
        adopt(UniqueFd());
}

void Service::adopt(UniqueFd listener)
{
    struct stat status;
    if (!listener || lstat(m_path.c_str(), &status) != 0) {
        if (!m_file_watch || !fileIsOurs())
            m_retry = event_timer(m_loop, REMAKE_MS, [this] { remake(); });
        return;
    }
    m_inode = status.st_ino;
    m_source = event_io(m_loop, listener.get(), EPOLLIN, [this](uint32_t) { accept(); });
    m_listener = std::move(listener);
    watchFile();
}

void Service::accept()
{
    UniqueFd socket = acceptOne();
    if (!socket && is_out_of_descriptors(errno) && !m_connections.empty()) {
        m_connections.pop_front();
        socket = acceptOne();
    }
    if (!socket) {
        if (is_out_of_descriptors(errno))
            pause();
        return;
    }
    if (m_connections.size() >= CONNECTIONS_MAX)
        m_connections.pop_front();
    const auto connection = m_connections.emplace(m_connections.end());
    connection->socket = std::move(socket);
    connection->request.reset(cli2_request_new());
    connection->readable = event_io(m_loop, connection->socket.get(), EPOLLIN,
                                    [this, connection](uint32_t) { receive(connection); });
    connection->deadline = event_timer(m_loop, REQUEST_PATIENCE_MS,
                                       [this, connection] { m_connections.erase(connection); });
}

UniqueFd Service::acceptOne()
{
    return UniqueFd(cli2_accept(m_listener.get()));
}

// Whoever waits to be accepted keeps the listener readable. Without a descriptor for it the loop
// would be told so again and again.
void Service::pause()
{
    sd_event_source_set_enabled(m_source.get(), SD_EVENT_OFF);
    sd_event_source_set_time_relative(m_pause.get(), PAUSE_MS * 1000);
    sd_event_source_set_enabled(m_pause.get(), SD_EVENT_ONESHOT);
}

void Service::resume()
{
    sd_event_source_set_enabled(m_source.get(), SD_EVENT_ON);
}

void Service::receive(Connections::iterator connection)
{
    char buffer[4096];
    const ssize_t length = cli2_recv(connection->socket.get(), buffer, sizeof buffer, MSG_DONTWAIT);
    if (length < 0 && errno == EAGAIN)
        return;
    if (length <= 0) {
        m_connections.erase(connection);
        return;
    }
    size_t used = 0;
    const int result =
        cli2_request_feed(connection->request.get(), buffer, size_t(length), &used, wants_json);
    if (result == 0)
        return;
    if (result > 0) {
        complete(connection);
        return;
    }
    const int error = errno;
    cli2_answer_error(connection->socket.get(), error, std::strerror(error), nullptr);
    m_connections.erase(connection);
}

void Service::complete(Connections::iterator connection)
{
    auto request = std::make_unique<ServiceRequest>(std::move(connection->socket),
                                                    std::move(connection->request));
    m_connections.erase(connection);
    m_handler(std::move(request));
}
