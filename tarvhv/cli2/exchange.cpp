#include "tarvhv/cli2/exchange.h"

#include "platform/socket.h"
#include "policy/json.h"
#include "tarvhv/cli2/address.h"
#include "tarvhv/cli2/descriptors.h"
#include "tarvhv/cli2/peer.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>

namespace {

using std::chrono::milliseconds;

// A local connection is made at once or not at all. There is nothing to poll while a peer's queue
// is full, so it is tried again: soon at first, since a service that lives takes a connection
// within a turn of its loop, and then seldom enough to cost a hung one's clients nothing.
constexpr milliseconds PAUSE_FIRST{1};
constexpr milliseconds PAUSE_MAX{20};
// How often a wait looks up, for a command that may have been cancelled.
constexpr milliseconds LOOK_UP{100};

} // namespace

Exchange::Exchange(std::string path, std::string request, milliseconds patience,
                   size_t descriptor_room)
    : m_path(std::move(path)),
      m_request(std::move(request)),
      m_patience(patience),
      m_reader(descriptor_room),
      m_pause(PAUSE_FIRST)
{
}

Exchange::Step Exchange::advance()
{
    if (ended())
        return m_step;
    if (!m_begun && m_patience.count() > 0)
        m_deadline = Cli2Clock::now() + m_patience;
    m_begun = true;
    m_again.reset();
    if (!m_socket)
        m_step = connectNow();
    else
        m_step = m_sent ? receiveNow() : sendNow();
    // What can be had without waiting is had, also late: a deadline ends a wait only.
    if (!ended() && m_deadline && Cli2Clock::now() >= *m_deadline)
        m_step = fail(ETIMEDOUT);
    return m_step;
}

short Exchange::events() const
{
    return m_step == Step::writing ? POLLOUT : m_step == Step::reading ? POLLIN : 0;
}

Cli2Deadline Exchange::wakeAt() const
{
    if (m_step != Step::retry)
        return m_deadline;
    const auto again = m_again.value_or(Cli2Clock::now());
    return m_deadline ? std::min(again, *m_deadline) : again;
}

UniqueFd Exchange::takeConnection()
{
    if (m_socket && fcntl(m_socket.get(), F_SETFL, 0) != 0)
        m_socket.reset();
    return std::move(m_socket);
}

Exchange::Step Exchange::connectNow()
{
    sockaddr_un address;
    if (cli2_address(m_path.c_str(), &address) != 0)
        return fail(errno);
    UniqueFd fd(platform_socket_stream());
    if (!fd || fcntl(fd.get(), F_SETFL, O_NONBLOCK) != 0)
        return fail(errno);
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        if (errno != EAGAIN && errno != EINTR)
            return fail(errno);
        m_served = m_served || errno == EAGAIN;
        return retryLater();
    }
    if (!peer_is_trusted(fd.get())) {
        m_served = false;
        return fail(ENOENT);
    }
    m_served = true;
    m_socket = std::move(fd);
    return sendNow();
}

Exchange::Step Exchange::retryLater()
{
    m_again = Cli2Clock::now() + m_pause;
    m_pause = std::min(m_pause * 2, PAUSE_MAX);
    return Step::retry;
}

Exchange::Step Exchange::sendNow()
{
    while (!m_request.empty()) {
        const ssize_t sent =
            descriptors_send(m_socket.get(), m_request.data(), m_request.size(), {});
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return Step::writing;
        // A service may refuse and hang up before it has read all: its answer is there to be read.
        if (sent < 0 && errno != EPIPE && errno != ECONNRESET)
            return fail(errno);
        m_request.erase(0, sent < 0 ? m_request.size() : size_t(sent));
    }
    m_sent = true;
    return Step::reading;
}

Exchange::Step Exchange::receiveNow()
{
    switch (m_reader.read(m_socket.get())) {
    case AnswerReader::Step::more:
        return Step::reading;
    case AnswerReader::Step::done:
        return Step::done;
    case AnswerReader::Step::failed:
        break;
    }
    return fail(m_reader.error());
}

Exchange::Step Exchange::fail(int error)
{
    m_error = error == 0 ? EIO : error;
    return Step::failed;
}

Exchange::Step exchange_run(Exchange &exchange, Exchange::Step until,
                            const std::function<void()> &meanwhile)
{
    for (;;) {
        const Exchange::Step step = exchange.advance();
        if (exchange.ended() || step == until)
            return step;
        if (meanwhile)
            meanwhile();
        Cli2Deadline wake = exchange.wakeAt();
        const auto look_up = Cli2Clock::now() + LOOK_UP;
        if (meanwhile && (!wake || *wake > look_up))
            wake = look_up;
        cli2_wait(step == Exchange::Step::retry ? -1 : exchange.fd(), exchange.events(), wake);
    }
}

int64_t request_deadline(milliseconds patience)
{
    const auto until = Cli2Clock::now() + patience;
    return std::chrono::duration_cast<milliseconds>(until.time_since_epoch()).count();
}

bool request_is_late(const struct json *request)
{
    const struct json *deadline = json_find_member(request, REQUEST_DEADLINE);
    return deadline && json_kind(deadline) == JSON_NUMBER &&
           json_number(deadline) < double(request_deadline(milliseconds(0)));
}

std::string exchange_request(const std::string &command, const std::string &value)
{
    return command + "\r\n" + value;
}
