// Comments of a configuration that is written anew.
#pragma once

#include <functional>
#include <string>

// A configuration as three texts. The writer knows no comments, and lays lines out in its own way.
struct ConfigTexts
{
    std::string file;   // what is in the file
    std::string before; // what the writer makes of that
    std::string after;  // what the writer makes of the new configuration
};

// The text to write: `after`, with the lines that did not change as they stand in the file, and
// with its comments and empty lines. `means` says whether a text has the meaning of `after`; one
// that has not is never returned.
std::string keep_comments(const ConfigTexts &texts,
                          const std::function<bool(const std::string &)> &means);
