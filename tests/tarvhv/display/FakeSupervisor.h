// A supervisor's side of one screen, on a real socket in a directory of its own.
#pragma once

#include "platform/mapping.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/display_protocol.h"
#include "tests/support/scratch.h"

#include <QString>

#include <vector>

class FakeSupervisor
{
public:
    QString path() const { return QString::fromStdString(m_path); }
    bool asked() const; // a viewer waits to be accepted
    // Accepts a viewer, reads its request and answers with a screen.
    void answer(int width, int height);
    // Accepts a viewer and answers with these bytes and descriptors.
    void answerRaw(const std::string &bytes, const std::vector<int> &descriptors = {});

    void setPixel(int x, int y, uint32_t colour);
    void send(uint32_t type, std::initializer_list<int32_t> arguments, UniqueFd descriptor = {});
    // Closes the connection to the viewer, and the channel.
    void hangUp();
    int channel() const { return m_channel.near.get(); }

    // Packets of a type that the viewer sent so far.
    std::vector<display_packet> received(uint32_t type);

    std::string request; // the last one read

private:
    const ScratchDirectory m_directory;
    const std::string m_path = m_directory.path("vm.sock");
    const UniqueFd m_listener{cli2_listen(m_path.c_str())};
    UniqueFd m_connection;
    Ends m_channel{SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK};
    MappedMemory m_screen;
    size_t m_width = 0;
    std::vector<display_packet> m_received;
};
