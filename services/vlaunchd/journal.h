// The launch service's memory on disk: one small file per job, and the reports that jobs leave.
//
//   <label>.json    the record; replaced as a whole, so that it is always the old or the new one
//   <label>.report  written by the job when it ends
#pragma once

#include "services/vlaunchd/job.h"

#include <optional>
#include <string>
#include <vector>

#include "platform/unique_fd.h"

class JobJournal
{
public:
    // Opens the directory (made with mode 0700 when missing) and makes this process its holder
    // (holder.h). 0, or -1 with errno set: EBUSY where another service keeps it.
    int open(const std::string &path);

    // Saves a record. 0, or -1 with errno set and the earlier record whole.
    int save(const Job &job);
    // Forgets a job: its record and its report.
    void remove(const std::string &label);
    // Every readable record. One that is damaged is logged and left out.
    std::vector<Job> load() const;

    // Where the job of this label has to leave its report; absolute.
    std::string report_path(const std::string &label) const;
    // The report that a job left, or none.
    std::optional<JobReport> read_report(const std::string &label) const;
    void remove_report(const std::string &label);

private:
    std::string m_path;
    UniqueFd m_dir, m_hold;
};
