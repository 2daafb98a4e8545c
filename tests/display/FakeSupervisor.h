// A supervisor's side of one screen, on a real socket in a directory of its own.
#pragma once

#include "platform/unique_fd.h"
#include "tarvhv/cli2/display_protocol.h"

#include <QString>
#include <QTemporaryDir>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

// Runs the event loop until a condition holds; false after a generous deadline.
bool spin_until(const std::function<bool()> &condition);

class FakeSupervisor
{
public:
    // Serves a socket in a directory of its own, or at this path.
    explicit FakeSupervisor(const QString &path = {});
    ~FakeSupervisor();

    QString path() const { return m_path; }
    bool asked() const; // a viewer waits to be accepted
    // Accepts a viewer, reads its request and answers with a screen.
    void answer(int width, int height);
    // Accepts a viewer and answers with these bytes and descriptors.
    void answerRaw(const std::string &bytes, const std::vector<int> &descriptors = {});
    // Accepts a viewer and says nothing.
    void accept();

    void setPixel(int x, int y, uint32_t colour);
    void changeMode(int width, int height);
    void send(uint32_t type, std::initializer_list<int32_t> arguments, UniqueFd descriptor = {});
    // Closes the connection to the viewer, and the channel.
    void hangUp();
    int channel() const { return m_channel.get(); }

    // Packets of a type that the viewer sent so far.
    std::vector<display_packet> received(uint32_t type);

    std::string request; // the last one read

private:
    UniqueFd makeScreen(int width, int height);

    QTemporaryDir m_directory;
    QString m_path;
    UniqueFd m_listener;
    UniqueFd m_connection;
    UniqueFd m_channel;
    UniqueFd m_screen;
    int m_width = 0;
    std::vector<display_packet> m_received;
};
