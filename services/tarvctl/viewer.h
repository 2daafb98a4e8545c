// Shows a running VM's screen with the program of the environment variable TARV_TARV_VIEWER.
#pragma once

#include <string>

// "tarv:///tmp/com.quelda.tarvhv.<id>.<uid>.sock?vmid=<id>&d=<display>"
std::string viewer_url(const std::string &id, int display);
// Starts the program with the URL, in a session of its own, and leaves it. "" or a note for the
// user when the variable isn't set; fails when the program can't be started.
std::string open_viewer(const std::string &id);
