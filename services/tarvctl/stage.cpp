#include "services/tarvctl/stage.h"

#include "hostlib/utils/utils.h"
#include "platform/file.h"
#include "platform/new_file.h"
#include "services/tarvctl/disks.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <random>
#include <set>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::string_view PREFIX = ".new-";
constexpr size_t ID_LENGTH = 36;
constexpr const char *DELETED_RECORD = "/config.deleted";

std::vector<std::string> names_in(const std::string &directory)
{
    std::vector<std::string> names;
    DirOwner dir(opendir(directory.c_str()));
    while (const dirent *entry = dir ? readdir(dir.get()) : nullptr)
        names.emplace_back(entry->d_name);
    return names;
}

void sync_path(const std::string &path)
{
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd || fsync(fd.get()) != 0)
        throw system_failure(path, errno);
}

// Sees the names in a directory onto the disk; its path ends with a slash.
void sync_names_of(const std::string &directory)
{
    if (platform_sync_directory_of(AT_FDCWD, directory.c_str()) != 0)
        throw system_failure(directory, errno);
}

void rename_path(const std::string &from, const std::string &to)
{
    if (rename(from.c_str(), to.c_str()) != 0)
        throw system_failure(from, errno);
}

// Removes the images of a VM that was never published. A source that was given one of them before
// its clone came to nothing keeps it.
void remove_images(Library &library, const std::string &id)
{
    const std::string directory = image_directory();
    std::set<std::string> used;
    const bool complete =
        library.each_config([&](const struct kv *record) { used.merge(library_images(record)); });
    const std::string folder = directory + "/", owned = id + "-",
                      begun = std::string(PREFIX) + owned;
    for (const std::string &name : names_in(directory))
        if (name.starts_with(begun) ||
            (complete && name.starts_with(owned) && !used.contains(name)))
            unlink((folder + name).c_str());
}

void finish_deletion(Library &library, const std::string &path)
{
    VmOwner vm(vm_open((path + DELETED_RECORD).c_str()));
    const KvOwner record(vm_read_config(vm.get()));
    if (record && !remove_unused_images(library, images_to_drop(record.get())))
        return;
    rmdirat(AT_FDCWD, path.c_str());
}

// The lock of a directory in the making, or none while its maker lives.
UniqueFd try_lock(const std::string &path)
{
    return UniqueFd(platform_openat_locked(
        AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK, FileLock::exclusive, 0));
}

void sweep_directory(Library &library, const std::string &name)
{
    const std::string path = library.directory() + "/" + name;
    const bool in_the_making = name.starts_with(PREFIX);
    const bool unfinished = !in_the_making && is_own_image_name(name + "-") &&
                            access((path + "/config.new").c_str(), F_OK) == 0;
    const bool deleted = !in_the_making && access((path + DELETED_RECORD).c_str(), F_OK) == 0;
    if (!in_the_making && !unfinished && !deleted)
        return;
    UniqueFd lock = try_lock(path);
    if (!lock)
        return;
    if (deleted) {
        finish_deletion(library, path);
    } else if (unfinished && access((path + "/config.yaml").c_str(), F_OK) != 0) {
        rename_path(path + "/config.new", path + "/config.yaml");
    } else if (in_the_making) {
        remove_images(library, name.substr(PREFIX.size()));
        rmdirat(AT_FDCWD, path.c_str());
    }
}

std::array<uint8_t, 16> random_bytes()
{
    std::random_device source;
    std::array<uint8_t, 16> bytes;
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(source());
    return bytes;
}

} // namespace

Stage::Stage(Library &library) : m_library(library), m_id(random_uuid())
{
    m_directory = library.directory() + "/" + std::string(PREFIX) + m_id;
    if (mkdir(m_directory.c_str(), 0700) != 0)
        throw system_failure(m_directory, errno);
    m_lock = try_lock(m_directory);
    if (!m_lock) {
        const int error = errno;
        rmdir(m_directory.c_str());
        throw system_failure(m_directory, error);
    }
}

Stage::~Stage()
{
    if (!m_published)
        discard();
}

void Stage::discard()
{
    const std::string images = image_directory() + "/";
    for (const std::string &rest : m_images)
        for (const std::string &name : {image_name(rest), std::string(PREFIX) + image_name(rest)})
            unlink((images + name).c_str());
    rmdirat(AT_FDCWD, m_directory.c_str());
}

std::string Stage::add_image(const std::string &rest)
{
    std::string path = image_directory() + "/" + std::string(PREFIX) + image_name(rest);
    // The image tool would make it readable by everybody; it keeps the mode of a file that is
    // there.
    const UniqueFd made(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!made)
        throw system_failure(path, errno);
    m_images.push_back(rest);
    return path;
}

void Stage::write_config(const struct kv *record)
{
    const std::string path = m_directory + "/config.new";
    UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    FileOwner file(fd ? fdopen(fd.get(), "w") : nullptr);
    if (file)
        fd.release();
    if (!file || kv_save_yaml(record, file.get()) != 0 || fflush(file.get()) != 0 ||
        fsync(fileno(file.get())) != 0)
        throw system_failure(path, errno);
}

void Stage::publish(const struct kv *record, const std::function<void()> &before)
{
    const std::string images = image_directory() + "/";
    for (const std::string &rest : m_images)
        sync_path(images + std::string(PREFIX) + image_name(rest));
    write_config(record);
    UniqueFd lock = m_library.lock();
    m_library.check_name_free(config_text(record, "name"));
    rename_images();
    if (before)
        before();
    rename_directory();
}

void Stage::hand_over_image(const std::string &rest)
{
    std::erase(m_images, rest);
}

void Stage::rename_images()
{
    const std::string images = image_directory() + "/";
    for (const std::string &rest : m_images)
        rename_path(images + std::string(PREFIX) + image_name(rest), images + image_name(rest));
    if (!m_images.empty())
        sync_names_of(images);
}

void Stage::rename_directory()
{
    const std::string final_directory = m_library.directory() + "/" + m_id;
    rename_path(m_directory, final_directory);
    m_directory = final_directory;
    rename_path(m_directory + "/config.new", m_directory + "/config.yaml");
    m_published = true;
    sync_names_of(m_directory + "/");
    sync_names_of(m_library.directory() + "/");
}

std::string random_uuid()
{
    std::array<uint8_t, 16> bytes = random_bytes();
    bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3f) | 0x80);
    std::string text;
    for (size_t index = 0; index < bytes.size(); ++index) {
        static constexpr char digits[] = "0123456789abcdef";
        if (index == 4 || index == 6 || index == 8 || index == 10)
            text += '-';
        text += {digits[bytes[index] >> 4], digits[bytes[index] & 15]};
    }
    return text;
}

std::string random_mac()
{
    const auto bytes = random_bytes();
    char text[18];
    snprintf(text, sizeof text, "52:54:00:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2]);
    return text;
}

void unlist_record(const std::string &directory)
{
    const std::string id = directory.substr(directory.rfind('/') + 1);
    const std::string older = directory + "/" + id + ".yaml", record = directory + "/config.yaml";
    // A version alone would list the directory still.
    unlink((directory + "/localversion").c_str());
    rename_path(access(record.c_str(), F_OK) == 0 ? record : older, directory + DELETED_RECORD);
    sync_names_of(directory + "/");
}

void sweep_leftovers(Library &library)
{
    const std::string images = image_directory() + "/", stages = library.directory() + "/";
    for (const std::string &name : names_in(library.directory()))
        sweep_directory(library, name);
    // An image in the making always has its VM's directory beside it.
    for (const std::string &name : names_in(image_directory())) {
        if (!name.starts_with(PREFIX) || name.size() < PREFIX.size() + ID_LENGTH)
            continue;
        const std::string stage = stages + name.substr(0, PREFIX.size() + ID_LENGTH);
        if (access(stage.c_str(), F_OK) != 0 && errno == ENOENT)
            unlink((images + name).c_str());
    }
}
