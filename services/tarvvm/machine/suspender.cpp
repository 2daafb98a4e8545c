#include "services/tarvvm/machine/suspender.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr const char *FD_NAME = "state";
constexpr const char *STATE_SUFFIX = ".state";
constexpr int64_t BANDWIDTH = int64_t{1} << 50; // bytes a second: as fast as it goes
constexpr uint64_t POLL_MS = 50;

bool sync_directory(const std::string &directory)
{
    const UniqueFd fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd && fsync(fd.get()) == 0;
}

// What the library holds under names that begin and end like this.
std::vector<std::string> find_files(const std::string &directory, const std::string &prefix,
                                    const std::string &suffix)
{
    std::error_code error;
    std::vector<std::string> found;
    for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error)) {
        std::string name = entry->path().filename().string();
        if (name.starts_with(prefix) && name.ends_with(suffix))
            found.push_back(std::move(name));
    }
    return found;
}

// Of the name under which a state is written.
std::string temporary_prefix(const std::string &id)
{
    return "." + id + ".state-";
}

} // namespace

std::vector<std::string> state_names(const std::string &directory, const std::string &id)
{
    const std::string prefix = id + "-";
    std::vector<std::string> names = find_files(directory, prefix, STATE_SUFFIX);
    std::erase_if(names, [&](const std::string &name) {
        return name.find_first_not_of("0123456789", prefix.size()) !=
               name.size() - std::strlen(STATE_SUFFIX);
    });
    return names;
}

Suspender::Suspender(sd_event *loop, Qmp &qmp, std::string directory)
    : m_loop(loop), m_qmp(qmp), m_directory(std::move(directory))
{
}

Suspender::~Suspender()
{
    dropUnfinished();
}

void Suspender::save(const std::string &id, Done done)
{
    m_done = std::move(done);
    m_name = id + "-" + std::to_string(time(nullptr)) + STATE_SUFFIX;
    m_temporary = m_directory + "/" + temporary_prefix(id) + "XXXXXX";
    m_file.reset(mkostemp(m_temporary.data(), O_CLOEXEC));
    if (!m_file) {
        const std::string error = m_temporary + ": " + std::strerror(errno);
        m_temporary.clear();
        finish(error);
        return;
    }
    m_qmp.execute("stop");
    migrate("migrate");
    poll(/*saving=*/true);
}

void Suspender::load(const std::string &name, Done done)
{
    m_done = std::move(done);
    m_name = name;
    const std::string path = name.starts_with('/') ? name : m_directory + "/" + name;
    m_file.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!m_file) {
        finish(path + ": " + std::strerror(errno));
        return;
    }
    migrate("migrate-incoming");
    poll(/*saving=*/false);
}

void Suspender::migrate(const char *command)
{
    JsonTree speed(json_mkobject());
    json_append_int64(speed.get(), "max-bandwidth", BANDWIDTH);
    m_qmp.execute("migrate-set-parameters", std::move(speed), {});
    JsonTree name(json_mkobject());
    json_append_str(name.get(), "fdname", FD_NAME);
    m_qmp.execute("getfd", std::move(name), {}, m_file.get());
    JsonTree address(json_mkobject());
    json_append_str(address.get(), "uri", (std::string("fd:") + FD_NAME).c_str());
    m_qmp.execute(command, std::move(address),
                  [this](const json *result, const std::string &error) {
                      if (!result && m_done)
                          finish(error);
                  });
}

void Suspender::poll(bool saving)
{
    m_poll = event_timer(m_loop, POLL_MS, [this, saving] {
        m_qmp.execute("query-migrate",
                      [this, saving](const json *result, const std::string &error) {
                          if (m_done)
                              judge(saving, result, error);
                      });
    });
}

void Suspender::judge(bool saving, const json *result, const std::string &error)
{
    const std::string status = json_find_str(result, "status", "");
    if (!result)
        finish(error);
    else if (status == "failed" || status == "cancelled")
        finish(json_find_str(result, "error-desc", "QEMU could not write or read the state"));
    else if (status != "completed")
        poll(saving);
    else if (saving)
        finishSave();
    else
        finish("");
}

void Suspender::finishSave()
{
    const std::string path = m_directory + "/" + m_name;
    if (fsync(m_file.get()) != 0 || rename(m_temporary.c_str(), path.c_str()) != 0) {
        finish(path + ": " + std::strerror(errno));
        return;
    }
    m_temporary.clear();
    finish(sync_directory(m_directory) ? "" : m_directory + ": " + std::strerror(errno));
}

void Suspender::sweep(const std::string &id)
{
    for (const std::string &name : find_files(m_directory, temporary_prefix(id), ""))
        unlink((m_directory + "/" + name).c_str());
}

void Suspender::discard(const std::string &name)
{
    unlink((m_directory + "/" + name).c_str());
}

void Suspender::cancel()
{
    m_poll.reset();
    m_done = nullptr;
    dropUnfinished();
}

void Suspender::finish(const std::string &error)
{
    m_poll.reset();
    if (!error.empty())
        dropUnfinished();
    m_file.reset();
    if (const Done done = std::exchange(m_done, nullptr))
        done(m_name, error);
}

void Suspender::dropUnfinished()
{
    m_file.reset();
    if (!m_temporary.empty())
        unlink(std::exchange(m_temporary, {}).c_str());
}
