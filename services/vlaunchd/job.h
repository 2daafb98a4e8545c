// One job of the launch service: a program that runs a VM, or the memory of how it ended.
//
//   state      event          next
//   absent     startAsked     running
//   absent     removeAsked    absent     (nothing to do)
//   running    processEnded   ended      (status and message kept)
//   running    removeAsked    removing   (SIGTERM, after a while SIGKILL)
//   removing   removeAsked    removing   (one more waits for it)
//   removing   processEnded   absent     (its record goes with it)
//   ended      startAsked     running
//   ended      removeAsked    absent
//
// Everything else is refused.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

inline constexpr size_t JOB_LABEL_MAX = 127;
// The environment variable that tells a job where to leave its report.
inline constexpr const char *JOB_REPORT_VARIABLE = "TARV_JOB_REPORT";
// The status of a job that ended unseen and left no report: as if it had been killed.
inline constexpr int JOB_STATUS_UNKNOWN = 137;

// What a client asks to run. `arguments` has no program name in front.
struct JobRequest
{
    std::string label;
    std::string program; // absolute path
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment; // the whole of it
};

enum class JobState
{
    absent, // never started, or removed
    running,
    removing, // asked to end for good
    ended
};

enum class JobEvent
{
    startAsked,
    processEnded,
    removeAsked
};

// The state after an event; none when the event is not allowed in this state.
std::optional<JobState> job_state_next(JobState state, JobEvent event);

struct Job
{
    std::string label;
    JobState state = JobState::running;
    pid_t pid = 0;         // while it runs
    uint64_t identity = 0; // tells the process from a later one of the same pid
    int status = 0;        // once ended: exit status, or 128 + the signal that killed it
    std::string message;   // once ended: why, for people
};

// How a job ended, as the job itself reports it.
struct JobReport
{
    int status = 0;
    std::string message;
};

// Letters, digits, ".", "_" and "-", not beginning with "."; 1 to JOB_LABEL_MAX of them. So a label
// is a file name as well.
bool job_label_is_valid(std::string_view label);
// "job ended with status N", or "job was killed by signal N" above 128.
std::string job_end_text(int status);
