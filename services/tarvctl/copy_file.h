// Copies of files: images, saved states, firmware variables.
#pragma once

#include <functional>
#include <string>

// Makes `to`, which is written over, a copy of `from` and sees it onto the disk. It shares its
// blocks with the source where the file system can, and has holes where the source has them.
// `progress` gets the share done, 0 to 1. Fails also when the command is cancelled.
void copy_file(const std::string &from, const std::string &to,
               const std::function<void(double)> &progress);
