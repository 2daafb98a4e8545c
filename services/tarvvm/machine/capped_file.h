// A file of lines that is kept below a size, whoever fills it.
#pragma once

#include "platform/unique_fd.h"

#include <cstddef>
#include <string>

class CappedFile
{
public:
    // Opens a file to append to, made with its directory if need be. False with errno set.
    bool open(const std::string &path, size_t cap);
    explicit operator bool() const { return bool(m_fd); }
    int fd() const { return m_fd.get(); }
    // Appends whole lines. What finds no room drops the older half. A disk that is full costs the
    // lines and nothing else.
    void append(const std::string &text);

private:
    void makeRoom(size_t size);

    UniqueFd m_fd;
    size_t m_cap = 0;
};
