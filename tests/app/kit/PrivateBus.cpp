#include "tests/app/kit/PrivateBus.h"

#include <csignal>
#include <sys/prctl.h>

using namespace Qt::StringLiterals;

PrivateBus::PrivateBus()
{
    m_daemon.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    m_daemon.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address"_s});
    m_daemon.waitForReadyRead(30000);
    m_address = QString::fromLocal8Bit(m_daemon.readLine()).trimmed();
}

PrivateBus::~PrivateBus()
{
    m_daemon.terminate();
    m_daemon.waitForFinished();
}
