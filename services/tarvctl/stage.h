// A VM in the making: everything under temporary names until it is whole, then published at once.
//
//   .new-<id>/                 in the VM library; locked by its maker
//   .new-<id>-<rest>           in the image library, one per image
//
// Publishing renames the images, then the directory, then "config.new" in it to "config.yaml",
// which is what lists the VM. A maker that was killed leaves what sweep_leftovers() clears up: back
// before the directory had its name, forward after.
#pragma once

#include "services/tarvctl/store.h"

#include <functional>
#include <string>
#include <vector>

class Stage
{
public:
    // Makes the directory of a new VM with a random identifier.
    explicit Stage(Library &library);
    // Removes everything unless it was published.
    ~Stage();
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;

    const std::string &id() const { return m_id; }
    const std::string &directory() const { return m_directory; }
    // Announces an image named "<id>-<rest>"; the answer is the path to make it at, where
    // an empty file keeps others out already.
    std::string add_image(const std::string &rest);
    // The name under which a configuration refers to it.
    std::string image_name(const std::string &rest) const { return m_id + "-" + rest; }

    // Leaves an image to another VM: it stays also when this one comes to nothing.
    void hand_over_image(const std::string &rest);

    // Makes it a VM of the library. Fails when the name is taken. `before` runs once the name is
    // certain and the images have theirs, just before the VM appears; when it fails nothing has
    // been published.
    void publish(const struct kv *record, const std::function<void()> &before = {});

private:
    void write_config(const struct kv *record);
    void rename_images();
    void rename_directory();
    void discard();

    Library &m_library;
    std::string m_id, m_directory;
    UniqueFd m_lock;
    std::vector<std::string> m_images;
    bool m_published = false;
};

// A random identifier: a UUID of version 4 in lower case.
std::string random_uuid();
// A random locally administered MAC address of QEMU's range.
std::string random_mac();
// Takes a VM's record out of the list by renaming it to "config.deleted"; its directory is then
// what sweep_leftovers() finishes the deletion of.
void unlist_record(const std::string &directory);
// Clears up after makers, and deletions without room, that were killed.
void sweep_leftovers(Library &library);
