// A disk image as a run of bytes, whatever its format and however long its backing chain.
#pragma once

#include "vdsk/image_file.h"

#include <memory>

class Image
{
public:
    virtual ~Image() = default;

    virtual uint64_t size() const = 0;
    // Fills a buffer from an offset; the range must lie within size(). Throws DiskError.
    virtual void read(void *buffer, size_t count, uint64_t offset) = 0;
};

// Opens an image and all its bases. Throws DiskError.
std::unique_ptr<Image> open_image(const std::string &path);

// What the images above a base know of it.
struct ImageChain
{
    const ImageFile *file;   // the image that names the base
    const ImageChain *above; // null for the image that was asked for
};
// Opens the base `name` of the topmost image of a chain. `format` is what that image says it is, ""
// when it says nothing.
std::unique_ptr<Image> open_base(const std::string &name, const std::string &format,
                                 const ImageChain &chain);
