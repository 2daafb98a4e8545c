// Which format an image file has, told by its magic bytes.
#pragma once

#include "vdsk/image_file.h"

enum class DiskFormat
{
    raw,
    qcow2
};

// The format of a file. Throws DiskError, naming the format, for one that can't be read.
DiskFormat disk_format(const ImageFile &file);
