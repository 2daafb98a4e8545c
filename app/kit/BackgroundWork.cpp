#include "app/kit/BackgroundWork.h"

#include "app/kit/WorkerLane.h"
#include "hostlib/config/config.h"

#include <QElapsedTimer>
#include <QMetaObject>
#include <QObject>
#include <QTimer>

#include <array>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <utility>

namespace {
// How long the main thread runs continuations before it looks after events again.
constexpr int SLICE_MS = 8;

constexpr char BOOT_RECORD_VARIABLE[] = "TARV_DO_NOT_EXIT_ON_BASE_MISS";
bool g_owns_boot_record_variable = false; // main thread

// Settings expand a path when it is first asked for, and the environment must not change while
// another thread reads it: both are settled before the first worker runs.
void settleWhatWorkersShare()
{
    static const bool settled = [] {
        for (ConfigEntry *entry = config_find(nullptr); entry; entry = entry->next)
            config_entry_get_path(entry);
        // Read and else set by the reader of boot records.
        if (!getenv(BOOT_RECORD_VARIABLE)) {
            g_owns_boot_record_variable = true;
            setenv(BOOT_RECORD_VARIABLE, "1", /*overwrite=*/1);
        }
        return true;
    }();
    (void)settled;
}

// A library of a thousand VMs keeps every processor busy for a while: the windows come first. The
// tools that read a guest's disk do not give way: somebody waits for the VM.
WorkerLane &laneOf(BackgroundWork::Lane lane)
{
    static auto *const lanes = new std::array<WorkerLane, 3>{{
        {16, /*giveWay=*/true}, // records
        {4, /*giveWay=*/true},  // launchService
        {8, /*giveWay=*/false}, // guests
    }};
    return lanes->at(static_cast<size_t>(lane));
}
} // namespace

// What workers have finished. Workers share it, so that it outlives the object that asked.
struct BackgroundWork::Mailbox : std::enable_shared_from_this<BackgroundWork::Mailbox>
{
    std::mutex mutex;
    std::deque<Continuation> finished;
    bool posted = false;         // a drain is on its way
    QObject *receiver = nullptr; // lives on the main thread; null once closed

    void add(Continuation continuation)
    {
        const std::lock_guard lock(mutex);
        if (!receiver)
            return;
        finished.push_back(std::move(continuation));
        if (!std::exchange(posted, true)) {
            QMetaObject::invokeMethod(
                receiver, [self = shared_from_this()] { self->drain(); }, Qt::QueuedConnection);
        }
    }

    Continuation take()
    {
        const std::lock_guard lock(mutex);
        if (!receiver || finished.empty()) {
            posted = false;
            return {};
        }
        Continuation first = std::move(finished.front());
        finished.pop_front();
        return first;
    }

    void drain()
    {
        QElapsedTimer timer;
        timer.start();
        while (Continuation next = take()) {
            next();
            if (timer.elapsed() >= SLICE_MS)
                return drainLater();
        }
    }

    // A timer and not a posted event: posted events are all delivered before any input is.
    void drainLater()
    {
        if (receiver)
            QTimer::singleShot(0, receiver, [self = shared_from_this()] { self->drain(); });
    }
};

BackgroundWork::BackgroundWork() : m_mailbox(std::make_shared<Mailbox>())
{
    settleWhatWorkersShare();
    m_mailbox->receiver = new QObject;
}

BackgroundWork::~BackgroundWork()
{
    std::deque<Continuation> dropped; // destroyed outside the lock
    const std::lock_guard lock(m_mailbox->mutex);
    delete std::exchange(m_mailbox->receiver, nullptr);
    m_mailbox->finished.swap(dropped);
}

QByteArrayList BackgroundWork::ownVariables()
{
    return g_owns_boot_record_variable ? QByteArrayList{BOOT_RECORD_VARIABLE} : QByteArrayList();
}

void BackgroundWork::run(Lane lane, Work work, int priority)
{
    laneOf(lane).add(
        [mailbox = m_mailbox, work = std::move(work)] {
            if (Continuation continuation = work())
                mailbox->add(std::move(continuation));
        },
        priority);
}

BackgroundWork::Post BackgroundWork::poster() const
{
    return
        [mailbox = m_mailbox](Continuation continuation) { mailbox->add(std::move(continuation)); };
}

BackgroundWork &BackgroundWork::shared()
{
    static auto *const work = new BackgroundWork;
    return *work;
}
