#include "vdsk/qcow.h"

#include "vdsk/qcow_map.h"

#include <libqcow.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {
// libqcow's handle of one image file.
class QcowHandle
{
public:
    explicit QcowHandle(const ImageFile &file)
    {
        if (libqcow_file_initialize(&m_handle, nullptr) != 1)
            throw std::bad_alloc();
        if (libqcow_file_open(m_handle, file.path().c_str(), LIBQCOW_OPEN_READ, nullptr) != 1) {
            libqcow_file_free(&m_handle, nullptr);
            file.refuse(EINVAL, "the qcow2 image is damaged");
        }
    }
    ~QcowHandle() { libqcow_file_free(&m_handle, nullptr); }
    QcowHandle(const QcowHandle &) = delete;
    QcowHandle &operator=(const QcowHandle &) = delete;

    libqcow_file_t *get() const { return m_handle; }

private:
    libqcow_file_t *m_handle = nullptr;
};

// The data clusters of an image file.
class QcowData
{
public:
    // libqcow reads nothing of an image that names a base until it has been given one, and takes
    // qcow2 bases only. What it gets is the image itself in a handle without a base: it is never
    // asked for anything, since only data clusters are read here, and would fail if it were.
    QcowData(const ImageFile &file, bool has_base) : m_file(file), m_data(file)
    {
        if (!has_base)
            return;
        m_no_base = std::make_unique<QcowHandle>(file);
        if (libqcow_file_set_parent_file(m_data.get(), m_no_base->get(), nullptr) != 1)
            file.refuse(EINVAL, "the qcow2 image is damaged");
    }

    void read(void *buffer, size_t count, uint64_t offset)
    {
        const ssize_t got = libqcow_file_read_buffer_at_offset(
            m_data.get(), buffer, count, static_cast<off64_t>(offset), nullptr);
        if (got < 0 || static_cast<size_t>(got) != count)
            m_file.refuse(EIO, "a cluster of the qcow2 image can't be read");
    }

private:
    const ImageFile &m_file;
    std::unique_ptr<QcowHandle> m_no_base; // outlives m_data, which points to it
    QcowHandle m_data;
};

class QcowImage : public Image
{
public:
    QcowImage(std::unique_ptr<ImageFile> file, const ImageChain *above)
        : m_file(std::move(file)), m_map(*m_file), m_data(*m_file, !m_map.baseName().empty())
    {
        if (!m_map.baseName().empty())
            m_base = open_base(m_map.baseName(), m_map.baseFormat(), {m_file.get(), above});
    }

    uint64_t size() const override { return m_map.size(); }

    void read(void *buffer, size_t count, uint64_t offset) override
    {
        char *at = static_cast<char *>(buffer);
        while (count > 0) {
            const uint64_t left = m_map.clusterSize() - offset % m_map.clusterSize();
            const size_t part = static_cast<size_t>(std::min<uint64_t>(count, left));
            readPart(at, part, offset);
            at += part;
            count -= part;
            offset += part;
        }
    }

private:
    // Reads within one cluster.
    void readPart(char *buffer, size_t count, uint64_t offset)
    {
        switch (m_map.kindAt(offset)) {
        case ClusterKind::data:
            m_data.read(buffer, count, offset);
            break;
        case ClusterKind::zero:
            memset(buffer, 0, count);
            break;
        case ClusterKind::absent:
            readBase(buffer, count, offset);
            break;
        }
    }

    // A base can be shorter than the disk that stands on it; past its end are zeros.
    void readBase(char *buffer, size_t count, uint64_t offset)
    {
        const uint64_t end = m_base ? m_base->size() : 0;
        const size_t within =
            offset < end ? static_cast<size_t>(std::min<uint64_t>(count, end - offset)) : 0;
        if (within)
            m_base->read(buffer, within, offset);
        memset(buffer + within, 0, count - within);
    }

    std::unique_ptr<ImageFile> m_file;
    QcowMap m_map;
    QcowData m_data;
    std::unique_ptr<Image> m_base;
};
} // namespace

std::unique_ptr<Image> open_qcow(std::unique_ptr<ImageFile> file, const ImageChain *above)
{
    return std::make_unique<QcowImage>(std::move(file), above);
}
