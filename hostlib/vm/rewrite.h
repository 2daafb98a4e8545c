// Files of a record that several programs read and rewrite at once, under file locks.
#pragma once

#include "hostlib/vm/owners.h"

#include <string_view>

// Opens a file of a record for reading, under its shared lock. Null with errno set.
FileOwner vm_open_locked(int dirfd, const char *name);

enum class Rewrite
{
    done,
    unopened, // the file could not be opened or made
    unwritten // its old text is still there
};

// Gives a file a new text, in place and under its exclusive lock; a file that is not there yet
// appears with its text. When there is no room the old text stays whole. errno is set on failure.
Rewrite vm_rewrite(int dirfd, const char *name, std::string_view text);
