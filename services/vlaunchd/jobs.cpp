#include "services/vlaunchd/jobs.h"

#include "hostlib/utils/utils.h"
#include "platform/process.h"
#include "platform/watch.h"
#include "services/vlaunchd/spawn.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include <sys/epoll.h>
#include <sys/wait.h>

namespace {

// How this process's own child ended; none when the process is somebody else's.
std::optional<int> reap(pid_t pid)
{
    siginfo_t info = {};
    int result;
    do
        result = waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG);
    while (result != 0 && errno == EINTR);
    if (result != 0 || info.si_pid != pid)
        return {};
    return info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
}

} // namespace

JobTable::JobTable(sd_event *event, JobOptions options)
    : m_event(event), m_options(std::move(options))
{
}

int JobTable::open(const std::string &journal_path)
{
    if (m_journal.open(journal_path) != 0)
        return -1;
    for (const Job &job : m_journal.load())
        adopt(job);
    return 0;
}

const Job *JobTable::find(const std::string &label) const
{
    auto found = m_jobs.find(label);
    return found == m_jobs.end() ? nullptr : &found->second.job;
}

std::vector<Job> JobTable::list() const
{
    std::vector<Job> jobs;
    for (const auto &[label, entry] : m_jobs)
        jobs.push_back(entry.job);
    return jobs;
}

JobTable::Started JobTable::refusal(const JobRequest &request) const
{
    auto refuse = [](int error, const std::string &text) { return Started{0, error, text}; };
    if (!job_label_is_valid(request.label))
        return refuse(EINVAL, "label: not a job label");
    if (!request.program.starts_with('/'))
        return refuse(EINVAL, "program: not an absolute path: " + request.program);
    const JobState now = state(request.label);
    if (!job_state_next(now, JobEvent::startAsked))
        return now == JobState::running
                   ? refuse(EEXIST, "job " + request.label + " is already running")
                   : refuse(EBUSY, "job " + request.label + " is being removed");
    if (now == JobState::absent && m_jobs.size() >= JOBS_MAX)
        return refuse(ENOSPC, "too many jobs");
    return {};
}

JobState JobTable::state(const std::string &label) const
{
    const Job *job = find(label);
    return job ? job->state : JobState::absent;
}

JobTable::Started JobTable::start(const JobRequest &request)
{
    Started refused = refusal(request);
    return refused.error ? refused : run(request);
}

JobTable::Started JobTable::run(const JobRequest &request)
{
    auto failed = [&](const std::string &what) {
        const int error = errno;
        forget(request.label);
        return Started{0, error, what + ": " + strerror(error)};
    };
    JobRequest actual = request;
    actual.environment[JOB_REPORT_VARIABLE] = m_journal.report_path(request.label);
    m_journal.remove_report(request.label);

    UniqueFd log(m_options.open_log ? m_options.open_log(request.label) : -1);
    HeldProcess process;
    if (process.prepare(actual, log ? log.get() : STDERR_FILENO) != 0)
        return failed("failed to make a process");
    Entry &entry = m_jobs[request.label];
    entry.job = {request.label,
                 JobState::running,
                 process.pid(),
                 platform_process_identity(process.pid()),
                 0,
                 ""};
    if (attach(entry) != 0)
        return failed("failed to watch the process");
    if (m_journal.save(entry.job) != 0)
        return failed("failed to record the job");
    if (process.release() != 0)
        return failed("failed to start " + request.program);
    dprintf(log_fd, "vlaunchd: %s: started, pid %d\r\n", request.label.c_str(), entry.job.pid);
    return {entry.job.pid, 0, ""};
}

int JobTable::attach(Entry &entry)
{
    entry.table = this;
    entry.end.reset();
    entry.watch.reset(platform_watch_process(entry.job.pid));
    if (!entry.watch)
        return -1;
    sd_event_source *source = nullptr;
    int result = sd_event_add_io(
        m_event, &source, entry.watch.get(), EPOLLIN,
        [](sd_event_source *, int, uint32_t, void *user) {
            auto *ended = static_cast<Entry *>(user);
            ended->table->process_ended(*ended);
            return 0;
        },
        &entry);
    entry.end.reset(source);
    // An end that has happened is told before a question that came later is answered: who has seen
    // a process end may rely on its job being known to have ended.
    if (result >= 0)
        result = sd_event_source_set_priority(source, SD_EVENT_PRIORITY_IMPORTANT);
    errno = result < 0 ? -result : 0;
    return result < 0 ? -1 : 0;
}

// A record of an earlier launch service: its process is looked for by pid and identity.
void JobTable::adopt(const Job &job)
{
    Entry &entry = m_jobs[job.label];
    entry.job = job;
    if (job.state == JobState::ended)
        return;
    // Watched first, compared then: what is compared is what is watched.
    if (attach(entry) == 0 && platform_process_identity(job.pid) == job.identity) {
        dprintf(log_fd, "vlaunchd: %s: found running, pid %d\r\n", job.label.c_str(), job.pid);
        return;
    }
    process_ended(entry);
}

void JobTable::process_ended(Entry &entry)
{
    const std::string label = entry.job.label;
    const auto status = reap(entry.job.pid);
    const auto report = m_journal.read_report(label);
    // A supervisor says that its VM ended just before it ends itself. Whoever asks too soon is told
    // that it runs, so a failure is told once more.
    if ((!report || report->status != 0) && m_options.vm_died && !place_vm_of_job(label).empty())
        m_options.vm_died(place_vm_of_job(label));
    const auto next = job_state_next(entry.job.state, JobEvent::processEnded);
    if (next == JobState::absent)
        return forget(label);
    const int known = status ? *status : report ? report->status : JOB_STATUS_UNKNOWN;
    settle(entry, known,
           report && !report->message.empty() ? report->message : job_end_text(known));
}

void JobTable::settle(Entry &entry, int status, const std::string &message)
{
    entry.end.reset();
    entry.watch.reset();
    entry.job.state = JobState::ended;
    entry.job.pid = 0;
    entry.job.identity = 0;
    entry.job.status = status;
    entry.job.message = message;
    dprintf(log_fd, "vlaunchd: %s: ended: %s\r\n", entry.job.label.c_str(), message.c_str());
    if (m_journal.save(entry.job) == 0)
        m_journal.remove_report(entry.job.label);
    else
        dprintf(log_fd, "vlaunchd: %s: failed to record the end: %s\r\n", entry.job.label.c_str(),
                strerror(errno));
}

void JobTable::forget(const std::string &label)
{
    m_journal.remove(label);
    auto node = m_jobs.extract(label);
    if (node)
        for (auto &done : node.mapped().waiters)
            done();
}

void JobTable::remove(const std::string &label, std::function<void()> done)
{
    auto found = m_jobs.find(label);
    if (found == m_jobs.end())
        return done();
    Entry &entry = found->second;
    entry.waiters.push_back(std::move(done));
    const JobState before = entry.job.state;
    const auto next = job_state_next(before, JobEvent::removeAsked);
    if (next == JobState::absent)
        return forget(label);
    if (next == JobState::removing && before != JobState::removing)
        begin_removal(entry);
}

void JobTable::begin_removal(Entry &entry)
{
    entry.job.state = JobState::removing;
    dprintf(log_fd, "vlaunchd: %s: removing, SIGTERM to pid %d\r\n", entry.job.label.c_str(),
            entry.job.pid);
    platform_watch_queue(entry.watch.get(), SIGTERM, JOB_REMOVED);
    platform_watch_signal(entry.watch.get(), SIGCONT); // a stopped one hears it too
    sd_event_source *timer = nullptr;
    const auto wait = std::chrono::duration_cast<std::chrono::microseconds>(m_options.term_wait);
    int result = sd_event_add_time_relative(
        m_event, &timer, CLOCK_MONOTONIC, static_cast<uint64_t>(wait.count()), 0,
        [](sd_event_source *, uint64_t, void *user) {
            auto *stuck = static_cast<Entry *>(user);
            dprintf(log_fd, "vlaunchd: %s: still there, SIGKILL\r\n", stuck->job.label.c_str());
            platform_watch_signal(stuck->watch.get(), SIGKILL);
            return 0;
        },
        &entry);
    entry.kill_timer.reset(timer);
    if (result < 0)
        platform_watch_signal(entry.watch.get(), SIGKILL);
}
