// The library handle, for the module's own files.
#pragma once

#include "hostlib/vm/owners.h"
#include "hostlib/vm/vmlib.h"

#include <array>
#include <cstddef>
#include <string>

// Paths are cut at this size.
inline constexpr size_t VMLIB_PATH_SIZE = 1024;
using VmlibPath = std::array<char, VMLIB_PATH_SIZE>;

struct vmlib
{
    std::string path;
    DirOwner dir; // none when the path could not be opened

    int fd() const { return dir ? dirfd(dir.get()) : -1; }
};

// "<a>/<b>", or "<a>" alone without b.
VmlibPath vmlib_join(const char *a, const char *b);
// Opens the record at a path in the library and names it. Null with errno set.
struct vm *vmlib_open_vm(const struct vmlib *lib, const char *path, const char *tag);
