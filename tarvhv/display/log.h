// The library's diagnostics: single lines on the descriptor of tarvhv_set_log_fd.
#pragma once

// Writes "display: ", the text and "\r\n".
[[gnu::format(printf, 1, 2)]] void display_log(const char *format, ...);
// Where it goes: what display_set_log_fd said last, at first standard error.
int display_log_fd();
void display_set_log_fd(int fd);
