// Numbers of the command line.
#pragma once

#include <cstdint>
#include <string>

// A number of bytes: decimal digits, then nothing, K, M, G or T (1024-based; "B" or "iB" may
// follow). Fails naming `what`, also outside [least, most].
uint64_t parse_bytes(const std::string &what, const std::string &text, uint64_t least,
                     uint64_t most);
// A plain number within [least, most]; fails naming `what`.
uint64_t parse_number(const std::string &what, const std::string &text, uint64_t least,
                      uint64_t most);
// "1.5 GiB"
std::string bytes_text(uint64_t bytes);

inline constexpr uint64_t KIB = 1024, MIB = 1024 * KIB, GIB = 1024 * MIB, TIB = 1024 * GIB;
inline constexpr uint64_t DISK_LEAST = MIB, DISK_MOST = 512 * TIB;
