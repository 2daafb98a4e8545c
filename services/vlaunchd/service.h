// The launch service as a whole: settings, socket, event loop.
#pragma once

// Runs the service until SIGTERM or SIGINT, which leave its jobs running. The exit status: 0, 1
// when it can't serve (logged), 2 for wrong usage.
int vlaunchd_main(int argc, char **argv);
