#include "vdsk/qcow_map.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>

namespace {
constexpr size_t HEADER_V2 = 72;
constexpr size_t HEADER_V3 = 104;
constexpr uint32_t MAX_NAME = 1023;
constexpr uint32_t MAX_FORMAT = 64;
constexpr uint32_t MAX_FIRST_LEVEL = 4u << 20; // entries, 32 MiB
constexpr uint64_t OFFSET_MASK = 0x00fffffffffffe00;
constexpr uint64_t COMPRESSED_FLAG = uint64_t{1} << 62;
constexpr uint64_t ZERO_FLAG = 1;
constexpr uint64_t DIRTY_FEATURE = 1; // the counts of references are not kept up to date
constexpr uint32_t END_EXTENSION = 0;
constexpr uint32_t BASE_FORMAT_EXTENSION = 0xe2792aca;

template <typename Number>
Number big_endian(const unsigned char *bytes)
{
    Number number = 0;
    for (size_t index = 0; index < sizeof(Number); ++index)
        number = static_cast<Number>(number << 8 | bytes[index]);
    return number;
}
} // namespace

QcowMap::QcowMap(const ImageFile &file) : m_file(file)
{
    readHeader();
}

void QcowMap::readHeader()
{
    std::array<unsigned char, HEADER_V3> header{};
    const size_t present = static_cast<size_t>(std::min<uint64_t>(m_file.size(), header.size()));
    if (present < HEADER_V2 || !m_file.readAll(header.data(), present, 0))
        m_file.refuse(EINVAL, "the qcow2 header is cut off");
    m_version = big_endian<uint32_t>(&header[4]);
    m_cluster_bits = big_endian<uint32_t>(&header[20]);
    m_size = big_endian<uint64_t>(&header[24]);
    if (m_version != 2 && m_version != 3)
        m_file.refuse(EINVAL, "qcow2 version " + std::to_string(m_version) + " is unknown");
    if (m_cluster_bits < 9 || m_cluster_bits > 21)
        m_file.refuse(EINVAL, "the qcow2 header has an impossible cluster size");
    if (m_size > INT64_MAX - clusterSize())
        m_file.refuse(EINVAL, "the qcow2 header has an impossible disk size");
    if (big_endian<uint32_t>(&header[32]) != 0)
        m_file.refuse(EINVAL, "an encrypted image can't be read");
    uint64_t extensions = HEADER_V2;
    if (m_version == 3) {
        if (big_endian<uint64_t>(&header[72]) & ~DIRTY_FEATURE)
            m_file.refuse(EINVAL, "the image is damaged or uses qcow2 features that can't be read");
        extensions = big_endian<uint32_t>(&header[100]);
    }
    const uint64_t name_offset = big_endian<uint64_t>(&header[8]);
    if (name_offset)
        readBaseName(name_offset, big_endian<uint32_t>(&header[16]));
    readExtensions(extensions, name_offset ? name_offset : clusterSize());
    readFirstLevel(big_endian<uint64_t>(&header[40]), big_endian<uint32_t>(&header[36]));
}

void QcowMap::readBaseName(uint64_t offset, uint32_t size)
{
    if (size == 0 || size > MAX_NAME)
        m_file.refuse(EINVAL, "the name of its base has an impossible length");
    m_base_name.resize(size);
    if (offset > m_file.size() || !m_file.readAll(m_base_name.data(), size, offset) ||
        m_base_name.find('\0') != std::string::npos)
        m_file.refuse(EINVAL, "the name of its base is damaged");
}

void QcowMap::readExtensions(uint64_t offset, uint64_t end)
{
    end = std::min({end, clusterSize(), m_file.size()});
    std::array<unsigned char, 8> head{};
    while (offset + head.size() <= end && m_file.readAll(head.data(), head.size(), offset)) {
        const auto type = big_endian<uint32_t>(head.data());
        const auto size = big_endian<uint32_t>(&head[4]);
        offset += head.size();
        if (type == END_EXTENSION)
            return;
        if (size > end - offset || (type == BASE_FORMAT_EXTENSION && size > MAX_FORMAT))
            m_file.refuse(EINVAL, "a qcow2 header extension is damaged");
        if (type == BASE_FORMAT_EXTENSION) {
            m_base_format.resize(size);
            if (!m_file.readAll(m_base_format.data(), size, offset))
                m_file.refuse(EINVAL, "a qcow2 header extension is damaged");
        }
        offset += (uint64_t{size} + 7) / 8 * 8;
    }
}

void QcowMap::readFirstLevel(uint64_t offset, uint32_t entries)
{
    const uint64_t per_entry = clusterSize() * (clusterSize() / 8);
    const uint64_t needed = m_size / per_entry + (m_size % per_entry != 0);
    if (entries > MAX_FIRST_LEVEL || entries < needed)
        m_file.refuse(EINVAL, "the qcow2 cluster table has an impossible size");
    m_first_level.resize(needed);
    readTable(m_first_level, offset, "cluster table");
}

void QcowMap::loadSecondLevel(uint64_t offset)
{
    if (m_second_level_offset == offset)
        return;
    m_second_level_offset = 0;
    m_second_level.resize(clusterSize() / 8);
    readTable(m_second_level, offset, "second cluster table");
    m_second_level_offset = offset;
}

void QcowMap::readTable(std::vector<uint64_t> &table, uint64_t offset, const char *what) const
{
    const size_t size = table.size() * sizeof(uint64_t);
    if (offset > m_file.size() || size > m_file.size() - offset ||
        !m_file.readAll(table.data(), size, offset))
        m_file.refuse(EINVAL, std::string("the qcow2 ") + what + " lies outside the file");
    if constexpr (std::endian::native == std::endian::little)
        for (uint64_t &entry : table)
            entry = big_endian<uint64_t>(reinterpret_cast<const unsigned char *>(&entry));
}

ClusterKind QcowMap::kindAt(uint64_t offset)
{
    const uint64_t cluster = offset >> m_cluster_bits;
    const uint64_t per_table = clusterSize() / 8;
    const uint64_t table = m_first_level.at(cluster / per_table) & OFFSET_MASK;
    if (!table)
        return ClusterKind::absent;
    loadSecondLevel(table);
    const uint64_t entry = m_second_level[cluster % per_table];
    if (entry & COMPRESSED_FLAG)
        return ClusterKind::data;
    if (m_version == 3 && (entry & ZERO_FLAG))
        return ClusterKind::zero;
    return entry & OFFSET_MASK ? ClusterKind::data : ClusterKind::absent;
}
