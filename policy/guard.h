// Keeps exceptions inside the library: want of memory becomes ENOMEM.
#pragma once

#include <cerrno>
#include <new>
#include <stdexcept>

template <typename Result, typename Work>
Result policy_guard(Result failed, Work work) noexcept
{
    try {
        return work();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    } catch (const std::length_error &) {
        errno = ENOMEM;
    }
    return failed;
}
