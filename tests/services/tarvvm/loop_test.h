// A test that has an event loop, and sockets at whose other end it is the peer.
#pragma once

#include "tests/support/scratch.h"

#include <gtest/gtest.h>

#include <systemd/sd-event.h>

class LoopTest : public testing::Test
{
protected:
    static constexpr int SOCKET_FLAGS = SOCK_CLOEXEC | SOCK_NONBLOCK;

    LoopTest() { sd_event_new(&m_loop); }
    ~LoopTest() override { sd_event_unref(m_loop); }
    // Handles all there is.
    void turn()
    {
        while (sd_event_run(m_loop, 1000) > 0)
            ;
    }

    sd_event *m_loop = nullptr;
};
