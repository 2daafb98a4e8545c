#include "services/vlaunchd/journal.h"

#include "hostlib/utils/utils.h"
#include "platform/new_file.h"
#include "platform/owners.h"
#include "policy/owners.h"
#include "services/vlaunchd/holder.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t RECORD_MAX = 64 * 1024;
// A service whose socket was taken over leaves on its next turn; one that hangs is ended by whoever
// starts this one.
constexpr std::chrono::seconds HOLDER_LEAVES{10};
constexpr std::string_view RECORD_SUFFIX = ".json";

// A small regular file whole; none with errno when it is absent, too large or something else.
std::optional<std::string> read_file(int dir, const std::string &name)
{
    UniqueFd fd(openat(dir, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat info;
    if (!fd || fstat(fd.get(), &info) != 0)
        return {};
    if (!S_ISREG(info.st_mode) || info.st_size > static_cast<off_t>(RECORD_MAX)) {
        errno = EFBIG;
        return {};
    }
    std::string text(RECORD_MAX, '\0');
    size_t length = 0;
    for (ssize_t got; length < text.size(); length += static_cast<size_t>(got)) {
        got = read(fd.get(), text.data() + length, text.size() - length);
        if (got < 0 && errno == EINTR)
            got = 0;
        else if (got < 0)
            return {};
        else if (got == 0)
            break;
    }
    text.resize(length);
    return text;
}

std::string record_text(const Job &job)
{
    JsonOwner tree(json_mkobject());
    json_append_str(tree.get(), "label", job.label.c_str());
    json_append_str(tree.get(), "state", job.state == JobState::ended ? "ended" : "running");
    json_append_int64(tree.get(), "pid", job.pid);
    // As text: numbers of JSON trees are doubles, which don't hold 64 bits.
    json_append_str(tree.get(), "identity", std::to_string(job.identity).c_str());
    json_append_int64(tree.get(), "status", job.status);
    json_append_str(tree.get(), "message", job.message.c_str());
    return json_print(tree.get()) + "\n";
}

std::optional<Job> parse_record(const std::string &text, const std::string &label)
{
    JsonOwner tree(json_parse(text.data(), text.size()));
    Job job;
    job.label = json_find_str(tree.get(), "label", "");
    std::string_view state = json_find_str(tree.get(), "state", "");
    job.state = state == "ended" ? JobState::ended : JobState::running;
    job.pid = static_cast<pid_t>(json_find_int64(tree.get(), "pid", 0));
    job.identity = strtoull(json_find_str(tree.get(), "identity", "0"), nullptr, 10);
    job.status = static_cast<int>(json_find_int64(tree.get(), "status", 0));
    job.message = json_find_str(tree.get(), "message", "");
    bool sound = job.label == label && job_label_is_valid(label) &&
                 (state == "ended" || (state == "running" && job.pid > 0));
    return sound ? std::optional(job) : std::nullopt;
}

} // namespace

int JobJournal::open(const std::string &path)
{
    std::error_code error;
    m_path = std::filesystem::absolute(path, error).lexically_normal();
    if (mkdirat_p(AT_FDCWD, m_path.c_str(), 0700) != 0 && errno != EEXIST)
        return -1;
    m_dir.reset(::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    struct stat info;
    if (!m_dir || fstat(m_dir.get(), &info) != 0)
        return -1;
    // What stands here decides which processes get signals: nobody else may write it.
    if (info.st_uid != geteuid() || (info.st_mode & 022)) {
        errno = EPERM;
        return -1;
    }
    m_hold = hold_records(m_dir.get(), HOLDER_LEAVES);
    return m_hold ? 0 : -1;
}

int JobJournal::save(const Job &job)
{
    // A job's process is held until this is on the disk: one that ran without a record would be
    // nobody's after a kill. The temporary name begins with a dot, which load() passes over.
    return platform_replace_file(m_dir.get(), (job.label + ".json").c_str(), record_text(job), 0600,
                                 FileMakers::one);
}

void JobJournal::remove(const std::string &label)
{
    unlinkat(m_dir.get(), (label + ".json").c_str(), 0);
    remove_report(label);
    // A job that was removed must not come back with a loss of power, as one that failed.
    platform_sync_directory_of(m_dir.get(), label.c_str());
}

std::vector<Job> JobJournal::load() const
{
    std::vector<Job> jobs;
    DirOwner dir(opendir(m_path.c_str()));
    while (const dirent *entry = dir ? readdir(dir.get()) : nullptr) {
        std::string_view name = entry->d_name;
        if (name.starts_with('.') || !name.ends_with(RECORD_SUFFIX))
            continue;
        const std::string label(name.substr(0, name.size() - RECORD_SUFFIX.size()));
        auto text = read_file(m_dir.get(), entry->d_name);
        auto job = text ? parse_record(*text, label) : std::nullopt;
        if (job)
            jobs.push_back(*job);
        else
            dprintf(log_fd, "vlaunchd: %s/%s: not a job record, passed over\r\n", m_path.c_str(),
                    entry->d_name);
    }
    return jobs;
}

std::string JobJournal::report_path(const std::string &label) const
{
    return m_path + "/" + label + ".report";
}

std::optional<JobReport> JobJournal::read_report(const std::string &label) const
{
    auto text = read_file(m_dir.get(), label + ".report");
    JsonOwner tree(text ? json_parse(text->data(), text->size()) : nullptr);
    if (!json_find(tree.get(), "status"))
        return {};
    return JobReport{static_cast<int>(json_find_int64(tree.get(), "status", 0)),
                     json_find_str(tree.get(), "message", "")};
}

void JobJournal::remove_report(const std::string &label)
{
    unlinkat(m_dir.get(), (label + ".report").c_str(), 0);
}
