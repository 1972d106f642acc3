// A plug-in's four-character code and a 32-bit word as zqvst prints them,
// the same in every command and in the preset reader.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// Four bytes as characters, high byte first; a byte that is no printable
// ASCII shows as '.'.
inline std::string ZqvstFourChars(uint32_t id) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto c = static_cast<unsigned char>(id >> shift);
    text += c >= 0x20 && c < 0x7F ? static_cast<char>(c) : '.';
  }
  return text;
}

// "0x" and eight upper-case hexadecimal digits.
inline std::string ZqvstHex(uint32_t value) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "0x%08X", static_cast<unsigned>(value));
  return buffer;
}
