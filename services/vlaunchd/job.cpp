#include "services/vlaunchd/job.h"

#include <algorithm>

bool job_label_is_valid(std::string_view label)
{
    auto is_label_byte = [](char byte) {
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
               (byte >= '0' && byte <= '9') || byte == '.' || byte == '_' || byte == '-';
    };
    return !label.empty() && label.size() <= JOB_LABEL_MAX && label.front() != '.' &&
           std::all_of(label.begin(), label.end(), is_label_byte);
}

std::string job_vm_id(std::string_view label)
{
    return std::string(label.starts_with(JOB_LABEL_PREFIX) ? label.substr(JOB_LABEL_PREFIX.size())
                                                           : "");
}

std::string job_end_text(int status)
{
    return status > 128 ? "job was killed by signal " + std::to_string(status - 128)
                        : "job ended with status " + std::to_string(status);
}
