// Codes that a sheet ends with (QDialog::done), and results of alerts.
#pragma once

inline constexpr int SheetContinue = -1002; // accepted; in the progress sheet: go on without it
inline constexpr int SheetAbort = -1001;    // cancelled
inline constexpr int SheetStop = -1000;     // cancelled
inline constexpr int SheetCancel = 0;       // Escape; in the progress sheet: abort the command

inline constexpr int AlertFirstButton = 1000; // the second is 1001, and so on
