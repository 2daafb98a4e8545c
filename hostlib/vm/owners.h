// Streams, directory streams and records with one owner. They keep errno when they close.
#pragma once

#include "hostlib/vm/vm.h"

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <memory>

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
using VmOwner = std::unique_ptr<struct vm, Closer<vm_close>>;
