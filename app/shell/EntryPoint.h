// What runs before and around the application's event loop.
#pragma once

struct AppParts;

// The program: log, image search path, then the application, built upon `parts`. Its exit status.
int tarvMain(int argc, char **argv, AppParts (*parts)());

// Points the log at standard error when that is a terminal (and raises the log level), else at
// "tarv.log" in the directory of the setting "log_dir". A log that can't be opened is silent. Makes
// the first look-up of a setting, so it must run before there is a second thread.
void openLog();
// Sets the environment variable TARV_IMG_PATH for the tools that are run later, unless none of the
// settings that it is made from is there.
void exportImagePath();
