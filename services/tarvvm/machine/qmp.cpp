#include "services/tarvvm/machine/qmp.h"

#include "tarvhv/cli2/descriptors.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

bool QmpLines::feed(std::string_view bytes, std::vector<JsonTree> *objects)
{
    while (!bytes.empty()) {
        const size_t end = bytes.find('\n');
        const std::string_view part = bytes.substr(0, end);
        if (part.size() > QMP_LINE_MAX - m_line.size())
            return false;
        m_line += part;
        if (end == std::string_view::npos)
            return true;
        bytes.remove_prefix(end + 1);
        const std::string line = std::exchange(m_line, {});
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        JsonTree object(json_parse(line.data(), line.size()));
        if (json_kind(object.get()) != JSON_OBJECT)
            return false;
        objects->push_back(std::move(object));
    }
    return true;
}

Qmp::Qmp(sd_event *loop, UniqueFd socket, Handlers handlers)
    : m_loop(loop), m_socket(std::move(socket)), m_handlers(std::move(handlers))
{
    watch();
}

void Qmp::watch()
{
    const uint32_t events = EPOLLIN | (m_outgoing.empty() ? 0u : uint32_t{EPOLLOUT});
    if (m_source) {
        sd_event_source_set_io_events(m_source.get(), events);
        return;
    }
    m_source = event_io(m_loop, m_socket.get(), events, [this](uint32_t ready) {
        if (ready & EPOLLOUT)
            flush();
        if (m_socket && (ready & ~uint32_t{EPOLLOUT}) != 0)
            receive();
    });
}

void Qmp::execute(const char *command, JsonTree arguments, Answer answer, int fd)
{
    const int64_t id = m_next_id++;
    JsonTree object(json_mkobject());
    json_append_str(object.get(), "execute", command);
    if (arguments)
        json_append(object.get(), "arguments", arguments.release());
    json_append_int64(object.get(), "id", id);
    Outgoing outgoing{json_print(object.get()) + "\n", UniqueFd()};
    if (fd >= 0)
        outgoing.fd.reset(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (!m_socket || (fd >= 0 && !outgoing.fd)) {
        if (answer)
            answer(nullptr, m_socket ? std::strerror(errno) : "QEMU is gone");
        return;
    }
    m_waiting.emplace(id, std::move(answer));
    m_outgoing.push_back(std::move(outgoing));
    flush();
}

void Qmp::flush()
{
    while (!m_outgoing.empty()) {
        Outgoing &first = m_outgoing.front();
        const int fd = first.fd.get();
        const ssize_t length = descriptors_send(m_socket.get(), first.bytes.data(),
                                                first.bytes.size(), {&fd, first.fd ? 1u : 0u});
        if (length < 0)
            break; // no room now, or the end, which reading will meet
        first.bytes.erase(0, size_t(length));
        first.fd.reset();
        if (first.bytes.empty())
            m_outgoing.pop_front();
    }
    watch();
}

bool Qmp::receive()
{
    char buffer[16384];
    const ssize_t length = recv(m_socket.get(), buffer, sizeof buffer, MSG_DONTWAIT);
    if (length < 0 && (errno == EAGAIN || errno == EINTR))
        return false;
    if (length <= 0) {
        close(length == 0 ? "QEMU closed its monitor" : std::strerror(errno));
        return false;
    }
    std::vector<JsonTree> objects;
    const bool sound = m_lines.feed({buffer, size_t(length)}, &objects);
    for (const JsonTree &object : objects)
        if (m_socket)
            handle(object.get());
    if (!sound && m_socket)
        close("QEMU's monitor speaks something else than JSON lines");
    return true;
}

void Qmp::drain()
{
    while (m_socket && receive())
        ;
}

void Qmp::handle(const json *object)
{
    if (json_find_member(object, "QMP")) {
        handleGreeting();
        return;
    }
    if (json_find_member(object, "event")) {
        m_handlers.event(json_find_str(object, "event", ""), json_find_member(object, "data"));
        return;
    }
    const auto waiting = m_waiting.find(json_find_int64(object, "id", 0));
    if (waiting == m_waiting.end())
        return;
    const Answer answer = std::move(waiting->second);
    m_waiting.erase(waiting);
    if (!answer)
        return;
    const json *result = json_find_member(object, "return");
    answer(result, result ? "" : json_find_str(object, "error.desc", "QEMU gave no reason"));
}

void Qmp::handleGreeting()
{
    execute("qmp_capabilities", [this](const json *result, const std::string &error) {
        if (!result) {
            close("QEMU's monitor refused to start: " + error);
            return;
        }
        m_handlers.ready();
    });
}

void Qmp::close(const std::string &reason)
{
    m_source.reset();
    m_socket.reset();
    m_outgoing.clear();
    for (const auto &[id, answer] : std::exchange(m_waiting, {}))
        if (answer)
            answer(nullptr, "QEMU is gone");
    m_handlers.closed(reason);
}
