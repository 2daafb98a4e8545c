// A descriptor with one owner.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

// Closes its descriptor when it goes; errno is kept.
class UniqueFd
{
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : m_fd(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    // Hands the descriptor to the caller, who closes it.
    int release() { return std::exchange(m_fd, -1); }
    void reset(int fd = -1)
    {
        const int old = std::exchange(m_fd, fd);
        if (old >= 0 && old != fd) {
            const int saved = errno;
            close(old);
            errno = saved;
        }
    }

private:
    int m_fd = -1;
};
