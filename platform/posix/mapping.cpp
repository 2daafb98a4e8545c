#include "platform/mapping.h"

#include <cerrno>
#include <sys/mman.h>

MappedMemory::MappedMemory(int fd, size_t size, Mapping mapping)
{
    const int rights = mapping == Mapping::writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void *bytes = mmap(nullptr, size, rights, MAP_SHARED, fd, 0);
    if (bytes == MAP_FAILED)
        return;
    m_bytes = static_cast<uint8_t *>(bytes);
    m_size = size;
}

MappedMemory::~MappedMemory()
{
    if (!m_bytes)
        return;
    const int saved = errno;
    munmap(m_bytes, m_size);
    errno = saved;
}
