// What an image is that a VM is to be made from, by its content.
#pragma once

#include <cstdint>
#include <string>

enum class ImageKind
{
    disc, // ISO 9660
    disk  // qcow2 or raw
};

struct ImageInfo
{
    std::string path; // absolute
    ImageKind kind = ImageKind::disc;
    std::string format;        // of a disk: "qcow2" or "raw"
    std::string label;         // of a disc: its volume label
    uint64_t virtual_size = 0; // bytes that a guest sees
    uint64_t stored_size = 0;  // bytes that the file takes on the host
    int64_t modified = 0;      // seconds since the epoch
    bool boots_bios = false, boots_uefi = false;
};

// A path, "~/…" and relative ones included, or a file URL to an absolute path. Fails for other
// URLs.
std::string image_source_path(const std::string &source);
// Looks at an image. Fails when it is missing, unreadable, empty, damaged, encrypted, of another
// format or none at all, and for a qcow2 image that needs files from elsewhere than its own folder
// and the image library.
ImageInfo probe_image(const std::string &path);
