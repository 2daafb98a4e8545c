// Asking a VM's service socket for a screen, without ever waiting.
#pragma once

#include "platform/unique_fd.h"
#include "tarvhv/cli2/json_end.h"
#include "tarvhv/display/packets.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// The answer of a supervisor: the screen's description, its picture and its channel.
struct ScreenAnswer
{
    std::string uuid;
    std::string name;
    unsigned index = 0;
    unsigned total = 0;
    DisplayState state;
    UniqueFd channel;
};

// Connects, asks, reads the answer: advance() does what can be done now.
//
//   connecting --(queue of the peer full)--> connecting
//   connecting -> sending -> receiving -> done
//   any -> failed
class DisplayHandshake
{
public:
    enum class Step
    {
        retry,   // try again a little later: there is nothing to wait for
        writing, // wait until fd() can be written
        reading, // wait until fd() can be read
        done,
        failed // error() says why
    };

    // A ":N" at the end of the path does not belong to the socket's name.
    DisplayHandshake(const std::string &path, unsigned index);

    Step advance();
    int fd() const { return m_socket.get(); }
    // An errno: ENOENT also for a socket that another user serves, ENODEV when the supervisor
    // answers that it has no such screen, EPROTO for an answer that makes no sense.
    int error() const { return m_error; }
    // The screen, once, after `done`.
    std::optional<ScreenAnswer> take();

private:
    Step connectNow();
    Step sendNow();
    Step receiveNow();
    Step parse();
    Step fail(int error);

    std::string m_path;
    unsigned m_index;
    UniqueFd m_socket;
    std::string m_request; // what is left to send
    std::string m_answer;
    JsonEnd m_end;
    std::vector<UniqueFd> m_descriptors;
    std::optional<ScreenAnswer> m_screen;
    int m_error = 0;
};
