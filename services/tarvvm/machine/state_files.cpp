#include "services/tarvvm/machine/state_files.h"

#include "platform/new_file.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace {

constexpr const char *STATE_SUFFIX = ".state";

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

std::string draft_prefix(const std::string &id)
{
    return "." + id + ".state-";
}

} // namespace

StateDraft state_begin(const std::string &directory, const std::string &id)
{
    StateDraft draft;
    draft.path = directory + "/" + draft_prefix(id) + "XXXXXX";
    draft.file.reset(mkostemp(draft.path.data(), O_CLOEXEC));
    if (!draft.file)
        draft.failure = ServiceFailure::of(draft.path);
    return draft;
}

ServiceFailure state_publish(const StateDraft &draft, const std::string &directory,
                             const std::string &name)
{
    const std::string path = directory + "/" + name;
    ServiceFailure failure;
    if (fsync(draft.file.get()) != 0 || rename(draft.path.c_str(), path.c_str()) != 0) {
        failure = ServiceFailure::of(path);
        unlink(draft.path.c_str());
    } else if (platform_sync_directory_of(AT_FDCWD, path.c_str()) != 0) {
        failure = ServiceFailure::of(directory);
        unlink(path.c_str());
    }
    return failure;
}

std::string state_name_now(const std::string &directory, const std::string &id,
                           const std::string &avoided)
{
    const std::string folder = directory + "/", owned = id + "-";
    for (time_t now = time(nullptr);; now++) {
        std::string name = owned + std::to_string(now);
        name += STATE_SUFFIX;
        if (name != avoided && access((folder + name).c_str(), F_OK) != 0)
            return name;
    }
}

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

void state_sweep_drafts(const std::string &directory, const std::string &id)
{
    const std::string folder = directory + "/";
    for (const std::string &name : find_files(directory, draft_prefix(id), ""))
        unlink((folder + name).c_str());
}
