#include "app/model/StatusAsker.h"

#include "app/model/TarvVM.h"
#include "hostlib/vms/questions.h"
#include "platform/thread.h"
#include "policy/owners.h"
#include "tarvhv/cli2/exchange_pool.h"
#include "tarvhv/cli2/vm_status.h"

#include <fcntl.h>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// Supervisors asked at once. Each costs a descriptor; so many that are hung at the same time mean
// that the machine is, and then the others wait up to a question's time-out.
constexpr size_t SUPERVISORS_AT_ONCE = 128;
// The launch service answers one at a time anyway.
constexpr size_t LAUNCH_SERVICE_AT_ONCE = 8;

struct Question
{
    QString vmid;
    int priority;
    std::function<void(const QString &)> answered;
};

// Lives as long as the program: its thread is never waited for, so that nothing that a peer does
// delays the end of the application.
class Asker
{
public:
    Asker()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0) {
            m_wake = ends[0];
            m_bell = ends[1];
        }
        std::thread([this] { work(); }).detach();
    }

    void add(Question question)
    {
        const std::lock_guard lock(m_mutex);
        m_questions.push_back(std::move(question));
        // A full pipe rings already.
        [[maybe_unused]] const ssize_t rung = write(m_bell, "x", 1);
    }

private:
    [[noreturn]] void work()
    {
        platform_thread_give_way();
        ExchangePool *const pools[] = {&m_supervisors, &m_launchService};
        for (;;) {
            exchange_turn(pools, m_wake, std::nullopt);
            for (Question &question : taken())
                askSupervisor(std::move(question));
        }
    }

    std::vector<Question> taken()
    {
        char bytes[256];
        while (read(m_wake, bytes, sizeof bytes) > 0)
            ;
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_questions, {});
    }

    void askSupervisor(Question question)
    {
        const int priority = question.priority;
        const QByteArray id = question.vmid.toUtf8();
        m_supervisors.add(
            vms_status_question(id.constData()),
            [this, id, question = std::move(question)](Exchange &ended) mutable {
                const KvOwner status(vms_status_of(id.constData(), ended));
                if (status)
                    question.answered(QString::fromUtf8(kv_get_str(status.get(), "status", "")));
                else
                    askLaunchService(id, std::move(question));
            },
            priority);
    }

    void askLaunchService(const QByteArray &id, Question question)
    {
        const QString failed = QString::fromLatin1(vm_status_word(VmStatus::failed));
        if (TarvVM::hasFailedHere(question.vmid))
            return question.answered(failed);
        const int priority = question.priority;
        m_launchService.add(
            vms_exit_status_question(id.constData()),
            [id, failed, question = std::move(question)](Exchange &ended) {
                const bool clean = vms_exit_status_of(id.constData(), ended) == 0;
                question.answered(clean ? QString() : failed);
            },
            priority);
    }

    ExchangePool m_supervisors{SUPERVISORS_AT_ONCE};
    ExchangePool m_launchService{LAUNCH_SERVICE_AT_ONCE};
    std::mutex m_mutex;
    std::vector<Question> m_questions;
    int m_wake = -1;
    int m_bell = -1;
};

} // namespace

void askStatus(const QString &vmid, int priority, std::function<void(const QString &)> answered)
{
    static auto *const asker = new Asker;
    asker->add({vmid, priority, std::move(answered)});
}
