// A guest that QEMU paused because a disk of the host is full: it is let go on again and again
// until there is room.
#pragma once

#include "services/loop/event.h"
#include "services/tarvvm/core/run_state.h"
#include "services/tarvvm/machine/qmp.h"
#include "services/tarvvm/machine/vm_log.h"

#include <string>

class RoomWait
{
public:
    RoomWait(sd_event *loop, Run &run, Qmp &qmp, VmLog &log)
        : m_loop(loop), m_run(run), m_qmp(qmp), m_log(log)
    {
    }
    // The data of QEMU's BLOCK_IO_ERROR: one that paused the guest makes it wait for room.
    void onDiskError(const json *data);

private:
    void retry();

    sd_event *m_loop;
    Run &m_run;
    Qmp &m_qmp;
    VmLog &m_log;
    EventSource m_retry, m_settled;
};
