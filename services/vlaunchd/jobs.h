// The jobs of the launch service: their processes, their ends and their records, moved by the table
// of job.h. Records are on disk before a process begins and after it ended, so that the next launch
// service continues where a killed one stopped.
#pragma once

#include "services/bounds.h"
#include "services/loop/event.h"
#include "services/vlaunchd/journal.h"

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

inline constexpr size_t JOBS_MAX = 4096;

struct JobOptions
{
    // How long a removed job may take to end after SIGTERM.
    std::chrono::milliseconds term_wait = STOP_WAIT_USUAL + SUPERVISOR_GRACE;
    // Where the output of the job of this label goes: a descriptor that is taken over, or -1.
    std::function<int(const std::string &label)> open_log;
    // Told the VM of a job that died without having said so itself, or that failed.
    std::function<void(const std::string &vm_id)> vm_died;
};

class JobTable
{
public:
    JobTable(sd_event *event, JobOptions options);
    // Opens the journal and finds the jobs of an earlier launch service again. 0, or -1 with errno.
    int open(const std::string &journal_path);

    struct Started
    {
        pid_t pid = 0;
        int error = 0; // an errno, with the message
        std::string message;
    };
    Started start(const JobRequest &request);
    // Ends and forgets a job; `done` is called once it is gone, perhaps before this returns.
    void remove(const std::string &label, std::function<void()> done);
    // The job of a label, or null when there never was one.
    const Job *find(const std::string &label) const;
    std::vector<Job> list() const;

private:
    struct Entry
    {
        Job job;
        JobTable *table = nullptr;
        UniqueFd watch;
        EventSource end, kill_timer;
        std::vector<std::function<void()>> waiters; // of its removal
    };

    JobState state(const std::string &label) const;
    Started refusal(const JobRequest &request) const;
    Started run(const JobRequest &request);
    int attach(Entry &entry);
    void adopt(const Job &job);
    void process_ended(Entry &entry);
    void settle(Entry &entry, int status, const std::string &message);
    void begin_removal(Entry &entry);
    void forget(const std::string &label);

    sd_event *m_event;
    JobOptions m_options;
    JobJournal m_journal;
    std::map<std::string, Entry> m_jobs;
};
