// Cancelling by signal: a command stops at the next safe place and undoes what it made.
#pragma once

// Makes SIGTERM, SIGINT and SIGHUP cancel instead of ending the process at once.
void catch_cancel();
// Throws a Failure with ExitStatus::cancelled once a signal came.
void check_cancelled();
