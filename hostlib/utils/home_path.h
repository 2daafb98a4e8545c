// Where a path that can be relative to the home directory leads.
#pragma once

// A path for the *at() calls. "~" and the character behind it stand for the home directory.
struct HomePath
{
    int dirfd;
    const char *rest;
};
HomePath home_path(const char *path);
