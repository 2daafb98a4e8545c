#include "tests/app/kit/PrivateBus.h"

#include <csignal>
#include <sys/prctl.h>

using namespace Qt::StringLiterals;

PrivateBus::PrivateBus()
{
    m_daemon.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    start({});
}

void PrivateBus::start(const QStringList &more)
{
    m_daemon.start(u"dbus-daemon"_s,
                   QStringList{u"--session"_s, u"--nofork"_s, u"--print-address"_s} + more);
    m_daemon.waitForReadyRead(30000);
    m_address = QString::fromLocal8Bit(m_daemon.readLine()).trimmed();
}

void PrivateBus::stop()
{
    m_daemon.terminate();
    m_daemon.waitForFinished();
}

void PrivateBus::startAgain()
{
    start({u"--address="_s + m_address.section(u",guid="_s, 0, 0)});
}

PrivateBus::~PrivateBus()
{
    stop();
}
