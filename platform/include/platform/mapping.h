// Shared memory in this process's address space.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

enum class Mapping
{
    read_only,
    writable
};

// A shared mapping with one owner. It unmaps its memory when it goes; errno is kept.
class MappedMemory
{
public:
    MappedMemory() = default;
    // Maps the first `size` bytes behind a descriptor, which may be closed then. Nothing, with
    // errno set, on failure; so also for no bytes.
    MappedMemory(int fd, size_t size, Mapping mapping = Mapping::read_only);
    MappedMemory(MappedMemory &&other) noexcept
        : m_bytes(std::exchange(other.m_bytes, nullptr)), m_size(std::exchange(other.m_size, 0))
    {
    }
    MappedMemory &operator=(MappedMemory &&other) noexcept
    {
        std::swap(m_bytes, other.m_bytes);
        std::swap(m_size, other.m_size);
        return *this;
    }
    MappedMemory(const MappedMemory &) = delete;
    MappedMemory &operator=(const MappedMemory &) = delete;
    ~MappedMemory();

    explicit operator bool() const { return m_bytes != nullptr; }
    // To be written only where the mapping is writable.
    uint8_t *bytes() const { return m_bytes; }
    size_t size() const { return m_size; }
    std::string_view text() const { return {reinterpret_cast<const char *>(m_bytes), m_size}; }

private:
    uint8_t *m_bytes = nullptr;
    size_t m_size = 0;
};
