#include "vdsk/image.h"

#include "vdsk/format.h"
#include "vdsk/qcow.h"

#include <cerrno>

namespace {
constexpr int MAX_CHAIN = 64;

class RawImage : public Image
{
public:
    explicit RawImage(std::unique_ptr<ImageFile> file) : m_file(std::move(file)) {}

    uint64_t size() const override { return m_file->size(); }
    void read(void *buffer, size_t count, uint64_t offset) override
    {
        if (!m_file->readAll(buffer, count, offset))
            m_file->refuse(EIO, "the file became shorter");
    }

private:
    std::unique_ptr<ImageFile> m_file;
};

std::unique_ptr<Image> open_as(DiskFormat format, std::unique_ptr<ImageFile> file,
                               const ImageChain *above)
{
    if (format == DiskFormat::qcow2)
        return open_qcow(std::move(file), above);
    return std::make_unique<RawImage>(std::move(file));
}

// The path of a base; a relative one starts from the directory of the image that names it.
std::string base_path(const std::string &name, const ImageFile &image)
{
    std::string plain = name.starts_with("file:") ? name.substr(5) : name;
    if (name.starts_with("json:") || plain.find("://") != plain.npos)
        throw DiskError{EINVAL, name + ": not a file"};
    const size_t slash = image.path().rfind('/');
    if (plain.starts_with('/') || slash == std::string::npos)
        return plain;
    return image.path().substr(0, slash + 1) + plain;
}

void refuse_cycle(const ImageFile &base, const ImageChain &chain)
{
    int length = 0;
    for (const ImageChain *link = &chain; link; link = link->above) {
        if (link->file->isSame(base))
            base.refuse(EINVAL, "stands on itself");
        if (++length > MAX_CHAIN)
            base.refuse(EINVAL, "the chain of bases is too long");
    }
}

std::unique_ptr<Image> open_base_file(const std::string &name, const std::string &format,
                                      const ImageChain &chain)
{
    auto file = std::make_unique<ImageFile>(base_path(name, *chain.file));
    refuse_cycle(*file, chain);
    // A base that is declared raw is not looked into: its guest could have written any magic there.
    if (format == "raw")
        return open_as(DiskFormat::raw, std::move(file), &chain);
    if (!format.empty() && format != "qcow2")
        file->refuse(EINVAL, "a " + format + " image; only raw and qcow2 can be read");
    const DiskFormat found = disk_format(*file);
    return open_as(found, std::move(file), &chain);
}
} // namespace

std::unique_ptr<Image> open_image(const std::string &path)
{
    auto file = std::make_unique<ImageFile>(path);
    const DiskFormat format = disk_format(*file);
    return open_as(format, std::move(file), nullptr);
}

std::unique_ptr<Image> open_base(const std::string &name, const std::string &format,
                                 const ImageChain &chain)
{
    try {
        return open_base_file(name, format, chain);
    } catch (const DiskError &error) {
        throw DiskError{error.error, chain.file->path() + ": base image: " + error.message};
    }
}
