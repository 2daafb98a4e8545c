// Asking a VM's service socket for a screen, without ever waiting.
#pragma once

#include "platform/unique_fd.h"
#include "tarvhv/cli2/exchange.h"
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

// Drives the exchange with the supervisor: advance() does what can be done now.
class DisplayHandshake
{
public:
    using Step = Exchange::Step;

    // A ":N" at the end of the path does not belong to the socket's name.
    DisplayHandshake(const std::string &path, unsigned index, std::chrono::milliseconds patience);

    Step advance();
    int fd() const { return m_exchange.fd(); }
    short events() const { return m_exchange.events(); }
    Cli2Deadline wakeAt() const { return m_exchange.wakeAt(); }
    // An errno: those of an exchange, ENODEV when the supervisor answers that it has no such
    // screen, EPROTO for an answer that makes no sense, EMSGSIZE for one with too many descriptors.
    int error() const { return m_error; }
    // The screen, once, after `done`.
    std::optional<ScreenAnswer> take();

private:
    // 0, or an errno.
    int readScreen();

    unsigned m_index;
    Exchange m_exchange;
    std::optional<ScreenAnswer> m_screen;
    int m_error = 0;
};
