// Client of QEMU's machine protocol: one JSON object a line, answers matched by their number.
#pragma once

#include "services/engine/trees.h"
#include "services/loop/event.h"

#include "platform/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

inline constexpr size_t QMP_LINE_MAX = 1024 * 1024;

// Cuts a stream into its JSON objects, however the bytes arrive.
class QmpLines
{
public:
    // Appends the objects that these bytes complete. False for a line that is no JSON object or
    // too long; the stream is of no more use then.
    bool feed(std::string_view bytes, std::vector<JsonTree> *objects);

private:
    std::string m_line;
};

class Qmp
{
public:
    // The answer's "return", or null and QEMU's message.
    using Answer = std::function<void(const json *result, const std::string &error)>;
    struct Handlers
    {
        std::function<void()> ready; // greeted, commands may be given
        std::function<void(const std::string &name, const json *data)> event;
        std::function<void(const std::string &reason)> closed; // once; no call back after it
    };

    Qmp(sd_event *loop, UniqueFd socket, Handlers handlers);
    Qmp(const Qmp &) = delete;
    Qmp &operator=(const Qmp &) = delete;

    // Gives a command; a descriptor goes with it and is duplicated here. `answer` may be empty.
    void execute(const char *command, JsonTree arguments, Answer answer, int fd = -1);
    void execute(const char *command, Answer answer = {})
    {
        execute(command, nullptr, std::move(answer));
    }
    bool isClosed() const { return !m_socket; }
    // Takes all that has been said so far: what an engine said before its end may still wait here.
    void drain();

private:
    struct Outgoing
    {
        std::string bytes;
        UniqueFd fd;
    };
    bool receive(); // whether something came
    void handle(const json *object);
    void handleGreeting();
    void flush();
    void watch();
    void close(const std::string &reason);

    sd_event *m_loop;
    UniqueFd m_socket;
    Handlers m_handlers;
    EventSource m_source;
    QmpLines m_lines;
    std::deque<Outgoing> m_outgoing;
    std::map<int64_t, Answer> m_waiting;
    int64_t m_next_id = 1;
};
