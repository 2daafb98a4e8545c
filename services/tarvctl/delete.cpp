#include "hostlib/utils/utils.h"
#include "hostlib/vm/img.h"
#include "services/notify/notify.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/disks.h"
#include "services/tarvctl/each.h"
#include "services/tarvctl/power.h"
#include "services/tarvctl/service.h"
#include "services/tarvctl/stage.h"
#include "tarvhv/cli2/places.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <unistd.h>

namespace {

// Asks on the terminal. Without one the answer must be given beforehand.
bool confirmed(const std::vector<std::string> &vms)
{
    if (!isatty(STDIN_FILENO) || !isatty(STDERR_FILENO))
        throw Failure(ExitStatus::usage, "delete: needs --yes where nobody can be asked");
    std::string names;
    for (const std::string &vm : vms)
        names += (names.empty() ? "" : ", ") + vm;
    fprintf(stderr, "Delete %s and all data on the disks? [y/N] ", names.c_str());
    char line[16];
    return fgets(line, sizeof line, stdin) && (line[0] == 'y' || line[0] == 'Y');
}

// False when the disk has no room for the queue.
bool queue_images(const std::vector<std::string> &images)
{
    for (const std::string &image : images) {
        if (img_unlink(image.c_str()) == 0)
            continue;
        if (errno == ENOSPC || errno == EDQUOT)
            return false;
        throw system_failure("failed to queue the image " + image + " for removal", errno);
    }
    return true;
}

// What a supervisor left that was killed while it saved the VM's state.
std::vector<std::string> stray_states(const std::string &id)
{
    std::vector<std::string> result;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(image_directory(), error), end;
         !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.starts_with("." + id + ".state-") ||
            (name.starts_with(id + "-") && name.ends_with(".state")))
            result.push_back(name);
    }
    return result;
}

// A VM whose configuration can't be read can be deleted all the same; its images then stay.
KvOwner readable_config(Library &library, const VmRef &ref)
{
    VmOwner vm = library.open(ref);
    return KvOwner(vm_read_config(vm.get()));
}

// What makes room must work without room: the record itself is the note of what is to go. It gets a
// name that lists no VM (a rename takes no room), then its images go, but for those that another VM
// stands on, and the directory last. A deletion that is cut short is finished by sweep_leftovers().
void remove_without_room(Library &library, const VmRef &ref, const std::vector<std::string> &images)
{
    unlist_record(library.directory() + "/" + ref.id);
    if (!remove_unused_images(library, images))
        throw Failure(ExitStatus::space, ref.label() + " is deleted, but its images stay until all "
                                                       "records of the library can be read");
}

void delete_one(const VmRef &ref)
{
    Library library;
    service_ensure();
    UniqueFd lock = library.lock(ref);
    check_not_running(ref, "delete");
    // Queued first: until the record is gone each of them is in use, and a deletion that is cut
    // short here loses nothing.
    std::vector<std::string> images = stray_states(ref.id);
    if (KvOwner record = readable_config(library, ref))
        for (std::string &image : images_to_drop(record.get()))
            images.push_back(std::move(image));
    if (!queue_images(images))
        remove_without_room(library, ref, images);
    library.remove(ref);
    service_request("remove", place_vm_job(ref.id), std::chrono::seconds(30));
    unlink(place_vm_socket(ref.id).c_str());
    purge_images(library);
    notify_post("delete", ref.id.c_str());
}

} // namespace

Answer run_delete(const Arguments &arguments)
{
    if (!arguments.yes && !confirmed(arguments.vms))
        throw Failure(ExitStatus::cancelled, "nothing deleted");
    return for_each_vm(arguments.vms, EachOrder::in_turn, delete_one);
}
