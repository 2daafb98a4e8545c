// Codes that a sheet ends with (QDialog::done), and results of alerts.
#pragma once

inline constexpr int SHEET_CONTINUE = -1002; // accepted; in the progress sheet: go on without it
inline constexpr int SHEET_ABORT = -1001;    // cancelled
inline constexpr int SHEET_STOP = -1000;     // cancelled
inline constexpr int SHEET_CANCEL = 0;       // Escape; in the progress sheet: abort the command

inline constexpr int ALERT_FIRST_BUTTON = 1000; // the second is 1001, and so on
