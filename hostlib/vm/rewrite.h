// Files of a record that several programs read and rewrite at once, under file locks.
#pragma once

#include "hostlib/vm/owners.h"

#include <string_view>

// Opens a file of a record for reading, under its shared lock. Null with errno set.
FileOwner vm_open_locked(int dirfd, const char *name);

enum class Rewrite
{
    done,
    unopened,  // the file could not be opened or made
    unwritten, // its old text is still there
    unsynced   // it has its new text, but a loss of power can take that back
};

// Gives a file a new text, in place and under its exclusive lock; a file that is not there yet
// appears with its text. When there is no room the old text stays whole. What is done has reached
// the disk, with the name of a new file. errno is set on failure.
//
// It is the text in the file that is replaced, never the file: a lock is of a file, and who waits
// for that of a file that was renamed away would write to what nobody reads any more.
Rewrite vm_rewrite(int dirfd, const char *name, std::string_view text);
