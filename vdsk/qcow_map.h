// The tables of a qcow2 image: its base, and which clusters hold data.
//
// Of the file format (docs/interop/qcow2 of QEMU) this reads the header, its extensions and the two
// levels of cluster tables; what a data cluster holds is left to libqcow.
#pragma once

#include "vdsk/image_file.h"

#include <vector>

enum class ClusterKind
{
    absent, // reads as the base does, as zeros without one
    zero,
    data
};

class QcowMap
{
public:
    // Reads and checks the header. `file` must outlive the map. Throws DiskError.
    explicit QcowMap(const ImageFile &file);

    uint64_t size() const { return m_size; }
    uint64_t clusterSize() const { return uint64_t{1} << m_cluster_bits; }
    const std::string &baseName() const { return m_base_name; }
    const std::string &baseFormat() const { return m_base_format; }

    // The kind of the cluster around an offset of the disk. Throws DiskError.
    ClusterKind kindAt(uint64_t offset);

private:
    void readHeader();
    void readBaseName(uint64_t offset, uint32_t size);
    void readExtensions(uint64_t offset, uint64_t end);
    void readFirstLevel(uint64_t offset, uint32_t entries);
    void loadSecondLevel(uint64_t offset);
    void readTable(std::vector<uint64_t> &table, uint64_t offset, const char *what) const;

    const ImageFile &m_file;
    uint32_t m_version = 0;
    uint32_t m_cluster_bits = 0;
    uint64_t m_size = 0;
    std::string m_base_name;
    std::string m_base_format;
    std::vector<uint64_t> m_first_level;
    std::vector<uint64_t> m_second_level; // of the table at m_second_level_offset
    uint64_t m_second_level_offset = 0;
};
