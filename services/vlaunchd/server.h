// The launch service's socket: many clients at once, one request each, none waiting for another.
#pragma once

#include "platform/unique_fd.h"
#include "services/loop/event.h"
#include "services/vlaunchd/commands.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

struct cli2_request;

// Clients at once. One more takes the place of that which has dawdled longest over its request.
inline constexpr size_t SERVER_CLIENTS_MAX = 256;
// How long a client may take to send its request, and again to take its answer.
inline constexpr uint64_t SERVER_CLIENT_USEC = 10'000'000;

class Server
{
public:
    // Serves the jobs on a listening socket, which is taken over.
    Server(sd_event *event, JobTable &jobs, int listener);
    ~Server();
    // 0, or -1 with errno set.
    int open();
    // Goes on on another listening socket, which is taken over. 0, or -1 with errno set.
    int listen_on(int listener);

private:
    struct RequestDelete
    {
        void operator()(cli2_request *request) const;
    };
    enum class Stage
    {
        reading,
        working, // a command that answers later
        writing
    };
    struct Client
    {
        Server *server = nullptr;
        uint64_t number = 0;
        UniqueFd fd;
        Stage stage = Stage::reading;
        std::unique_ptr<cli2_request, RequestDelete> request;
        std::string answer; // what is still to be written
        EventSource io, deadline;
    };

    void accept_client();
    void complain(const std::string &what);
    void add_client(UniqueFd fd);
    bool make_room();
    int set_deadline(Client &client);
    void client_ready(Client &client, uint32_t events);
    void read_client(Client &client);
    void write_client(Client &client);
    void answer_client(uint64_t number, std::string answer);

    sd_event *m_event;
    JobTable &m_jobs;
    UniqueFd m_listener;
    EventSource m_accept, m_accept_again;
    size_t m_complaints = 0;
    std::chrono::steady_clock::time_point m_complain_next;
    uint64_t m_next = 1;
    // By arrival, so that the first that still reads is the slowest.
    std::map<uint64_t, Client> m_clients;
};
