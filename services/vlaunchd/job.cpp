#include "services/vlaunchd/job.h"

#include <algorithm>

std::optional<JobState> job_state_next(JobState state, JobEvent event)
{
    static constexpr struct
    {
        JobState from;
        JobEvent event;
        JobState to;
    } transitions[] = {
        {JobState::absent, JobEvent::startAsked, JobState::running},
        {JobState::absent, JobEvent::removeAsked, JobState::absent},
        {JobState::running, JobEvent::processEnded, JobState::ended},
        {JobState::running, JobEvent::removeAsked, JobState::removing},
        {JobState::removing, JobEvent::removeAsked, JobState::removing},
        {JobState::removing, JobEvent::processEnded, JobState::absent},
        {JobState::ended, JobEvent::startAsked, JobState::running},
        {JobState::ended, JobEvent::removeAsked, JobState::absent},
    };
    for (const auto &transition : transitions)
        if (transition.from == state && transition.event == event)
            return transition.to;
    return {};
}

bool job_label_is_valid(std::string_view label)
{
    auto is_label_byte = [](char byte) {
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
               (byte >= '0' && byte <= '9') || byte == '.' || byte == '_' || byte == '-';
    };
    return !label.empty() && label.size() <= JOB_LABEL_MAX && label.front() != '.' &&
           std::all_of(label.begin(), label.end(), is_label_byte);
}

std::string job_end_text(int status)
{
    return status > 128 ? "job was killed by signal " + std::to_string(status - 128)
                        : "job ended with status " + std::to_string(status);
}
