// Owners of what a function hands out and another one takes back.
#pragma once

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <memory>

// Gives an object back to `Close`; errno is kept, as owners go while a failure is on its way.
template <auto Close>
struct Closer
{
    template <typename Type>
    void operator()(Type *object) const
    {
        const int saved = errno;
        Close(object);
        errno = saved;
    }
};

using FileOwner = std::unique_ptr<FILE, Closer<fclose>>;
using DirOwner = std::unique_ptr<DIR, Closer<closedir>>;
