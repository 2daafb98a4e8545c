// qcow2 images: data clusters through libqcow, the others from the base or as zeros.
#pragma once

#include "vdsk/image.h"

// Opens a qcow2 image and its bases. `above` are the images that stand on it. Throws DiskError.
std::unique_ptr<Image> open_qcow(std::unique_ptr<ImageFile> file, const ImageChain *above);
