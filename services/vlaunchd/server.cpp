#include "services/vlaunchd/server.h"

#include "hostlib/utils/utils.h"
#include "tarvhv/cli2.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace {

constexpr uint64_t ACCEPT_PAUSE_MS = 100;
constexpr std::chrono::seconds COMPLAIN_EVERY{10};

} // namespace

void Server::RequestDelete::operator()(cli2_request *request) const
{
    cli2_request_free(request);
}

Server::Server(sd_event *event, JobTable &jobs, int listener)
    : m_event(event), m_jobs(jobs), m_listener(listener)
{
}

Server::~Server() = default;

int Server::listen_on(int listener)
{
    m_accept.reset();
    m_listener.reset(listener);
    return open();
}

int Server::open()
{
    sd_event_source *source = nullptr;
    int result = sd_event_add_io(
        m_event, &source, m_listener.get(), EPOLLIN,
        [](sd_event_source *, int, uint32_t, void *user) {
            static_cast<Server *>(user)->accept_client();
            return 0;
        },
        this);
    m_accept.reset(source);
    errno = result < 0 ? -result : 0;
    return result < 0 ? -1 : 0;
}

void Server::accept_client()
{
    UniqueFd fd(cli2_accept(m_listener.get()));
    if (fd)
        return add_client(std::move(fd));
    if (errno == EAGAIN)
        return;
    if (errno == EPERM)
        return complain("a client of another user was turned away");
    // Without a free descriptor the waiting client stays in the queue; one that dawdles gives way.
    const int error = errno;
    if ((error == EMFILE || error == ENFILE) && make_room())
        return;
    // Nobody can give way. The listener stays ready all the while, so that it is left alone for a
    // moment: else the loop would spin, and fill its log.
    complain(std::string("failed to accept a client: ") + strerror(error));
    sd_event_source_set_enabled(m_accept.get(), SD_EVENT_OFF);
    m_accept_again = event_timer(m_event, ACCEPT_PAUSE_MS, [this] {
        sd_event_source_set_enabled(m_accept.get(), SD_EVENT_ON);
    });
    if (!m_accept_again)
        sd_event_source_set_enabled(m_accept.get(), SD_EVENT_ON);
}

// What strangers can bring about is told once in a while, with how often it happened.
void Server::complain(const std::string &what)
{
    const auto now = std::chrono::steady_clock::now();
    ++m_complaints;
    if (now < m_complain_next)
        return;
    dprintf(log_fd, "vlaunchd: %s (%zu such since the last line)\r\n", what.c_str(),
            std::exchange(m_complaints, 0));
    m_complain_next = now + COMPLAIN_EVERY;
}

// Drops the client that has been sending its request, or taking its answer, for longest.
bool Server::make_room()
{
    auto slowest = std::find_if(m_clients.begin(), m_clients.end(), [](const auto &item) {
        return item.second.stage != Stage::working;
    });
    if (slowest == m_clients.end())
        return false;
    m_clients.erase(slowest);
    return true;
}

void Server::add_client(UniqueFd fd)
{
    if (m_clients.size() >= SERVER_CLIENTS_MAX && !make_room())
        return;
    Client &client = m_clients[m_next];
    client.server = this;
    client.number = m_next++;
    client.fd = std::move(fd);
    client.request.reset(cli2_request_new());
    sd_event_source *source = nullptr;
    int result = sd_event_add_io(
        m_event, &source, client.fd.get(), EPOLLIN,
        [](sd_event_source *, int, uint32_t events, void *user) {
            auto *ready = static_cast<Client *>(user);
            ready->server->client_ready(*ready, events);
            return 0;
        },
        &client);
    client.io.reset(source);
    if (result < 0 || !client.request || set_deadline(client) < 0)
        m_clients.erase(client.number);
}

int Server::set_deadline(Client &client)
{
    sd_event_source *source = nullptr;
    int result = sd_event_add_time_relative(
        m_event, &source, CLOCK_MONOTONIC, SERVER_CLIENT_USEC, 0,
        [](sd_event_source *, uint64_t, void *user) {
            auto *slow = static_cast<Client *>(user);
            slow->server->m_clients.erase(slow->number);
            return 0;
        },
        &client);
    client.deadline.reset(source);
    return result;
}

void Server::client_ready(Client &client, uint32_t events)
{
    if (client.stage == Stage::writing)
        return write_client(client);
    if (client.stage == Stage::reading)
        return read_client(client);
    // While its command works a client has nothing to say; only its leaving matters.
    if (events & (EPOLLHUP | EPOLLERR))
        m_clients.erase(client.number);
}

void Server::read_client(Client &client)
{
    char bytes[16 * 1024];
    const ssize_t got = cli2_recv(client.fd.get(), bytes, sizeof bytes, 0);
    if (got < 0 && errno == EAGAIN)
        return;
    if (got <= 0) {
        m_clients.erase(client.number);
        return;
    }
    const uint64_t number = client.number;
    size_t used = 0;
    const int state = cli2_request_feed(client.request.get(), bytes, static_cast<size_t>(got),
                                        &used, command_wants_json);
    if (state < 0)
        return answer_client(number, command_refusal(errno));
    if (state == 0)
        return;
    // Whoever has hung up by now waits for nothing: a service that was stopped for a while finds
    // such requests in its queue, and what was given up must not be carried out.
    pollfd gone{client.fd.get(), 0, 0};
    if (poll(&gone, 1, 0) != 0) {
        dprintf(log_fd, "vlaunchd: %s: its sender has given up, not carried out\r\n",
                cli2_request_command(client.request.get()));
        m_clients.erase(number);
        return;
    }
    client.stage = Stage::working;
    client.deadline.reset();
    sd_event_source_set_io_events(client.io.get(), 0);
    // The client may be gone by the time of the answer, and by the end of this call.
    command_run(m_jobs, cli2_request_command(client.request.get()),
                cli2_request_json(client.request.get()),
                [this, number](std::string answer) { answer_client(number, std::move(answer)); });
}

void Server::answer_client(uint64_t number, std::string answer)
{
    auto found = m_clients.find(number);
    if (found == m_clients.end())
        return;
    Client &client = found->second;
    client.stage = Stage::writing;
    client.answer = std::move(answer);
    // Written from the event loop: the request that is being answered may still be in use.
    if (sd_event_source_set_io_events(client.io.get(), EPOLLOUT) < 0 || set_deadline(client) < 0)
        m_clients.erase(found);
}

void Server::write_client(Client &client)
{
    const ssize_t put = send(client.fd.get(), client.answer.data(), client.answer.size(),
                             MSG_NOSIGNAL | MSG_DONTWAIT);
    if (put < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (put > 0)
        client.answer.erase(0, static_cast<size_t>(put));
    if (put < 0 || client.answer.empty())
        m_clients.erase(client.number);
}
