// Which images a VM's disks stand on, and when one of them may go.
#pragma once

#include "services/tarvctl/store.h"

#include <set>
#include <string>
#include <vector>

// The image library's directory; fails when the setting is absent.
std::string image_directory();
// Where an image of a configuration lies: an absolute name as it is, another in the image library.
std::string image_path(const std::string &file);
// Whether a name of a configuration is that of a file directly in the image library.
bool is_library_image(const std::string &file);
// Whether the controller gave an image its name: it begins with a VM's identifier and "-".
bool is_own_image_name(const std::string &file);

// The file that a qcow2 image stands on, as named in it, or "" (also for other formats).
std::string qcow2_backing(const std::string &path);
// Whether a file begins as a qcow2 image does.
bool is_qcow2(const std::string &path);
// The format of a VM's disk: what its entry says, else by the file. A raw disk's content belongs to
// the guest, which could write another format's mark there: a name that says raw is believed first.
std::string image_format(const struct kv *disk, const std::string &path);

// The images that a configuration names: disks and saved state.
std::vector<std::string> config_images(const struct kv *record);
// The library images among them, with all library images below them.
std::set<std::string> library_images(const struct kv *record);

// Removes the queued images that no VM stands on any more. While one VM's configuration can't be
// read nothing is removed: it may be the one that needs them.
void purge_images(Library &library);
// Removes those of some images of the library that no VM's record stands on, without the queue.
// False and none where a record can't be read: it may be one that does.
bool remove_unused_images(Library &library, const std::vector<std::string> &images);
// The images that go with a VM: those its configuration names, and what the controller made below
// them. Others below are somebody's own.
std::vector<std::string> images_to_drop(const struct kv *record);
