// Reading an ELF file header into the portable-executable terms the system
// speaks: machine numbers and characteristics flags.  Shared by the module
// loader and the executable-header reader.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/exeinfo.h"

namespace zq_elf {

constexpr size_t kIdentSize = 16;
constexpr size_t kHeaderMinimum = 52;  // a 32-bit header; the fields used lie in its first 20 bytes

inline uint16_t Read16(const unsigned char* p, bool bigEndian) {
  return bigEndian ? static_cast<uint16_t>((p[0] << 8) | p[1]) : static_cast<uint16_t>(p[0] | (p[1] << 8));
}

// ELF e_machine to the portable-executable machine number (0 when that
// numbering has none).
inline unsigned MachineFromElf(uint16_t machine, bool is64) {
  switch (machine) {
    case 3: return ZQ_MACHINE_I386;      // EM_386
    case 62: return ZQ_MACHINE_AMD64;    // EM_X86_64 (also the x32 ABI, with the 32-bit flag)
    case 183: return ZQ_MACHINE_ARM64;   // EM_AARCH64
    case 40: return 0x01C4;              // EM_ARM: ARM Thumb-2
    case 50: return 0x0200;              // EM_IA_64
    case 8: return 0x0166;               // EM_MIPS: R4000
    case 243: return is64 ? 0x5064u : 0x5032u;  // EM_RISCV
    case 258: return 0x6264;             // EM_LOONGARCH
    case 20: return 0x01F0;              // EM_PPC
    case 21: return 0x01F0;              // EM_PPC64 (no own number there)
    default: return 0;
  }
}

// Answers true for an ELF executable or shared object (ET_EXEC, ET_DYN) and
// fills machine and characteristics: 0x0002 (executable image) always,
// 0x2000 (DLL) for a shared object, 0x0100 (32-bit machine) for class 32,
// 0x0020 (large address aware) for class 64.  isSharedObject and is64 tell
// the class and type.
inline bool ReadHeader(const unsigned char* p, size_t n, unsigned* machine, uint16_t* characteristics,
                       bool* isSharedObject = nullptr, bool* is64 = nullptr) {
  if (n < kHeaderMinimum || p[0] != 0x7F || p[1] != 'E' || p[2] != 'L' || p[3] != 'F') return false;
  const unsigned char elfClass = p[4];
  const unsigned char data = p[5];
  if ((elfClass != 1 && elfClass != 2) || (data != 1 && data != 2)) return false;
  const bool big = data == 2;
  const bool wide = elfClass == 2;
  if (wide && n < 64) return false;
  const uint16_t type = Read16(p + 16, big);
  if (type != 2 && type != 3) return false;  // ET_EXEC, ET_DYN
  uint16_t flags = 0x0002;
  if (type == 3) flags |= 0x2000;
  flags |= wide ? 0x0020 : 0x0100;
  if (machine) *machine = MachineFromElf(Read16(p + 18, big), wide);
  if (characteristics) *characteristics = flags;
  if (isSharedObject) *isSharedObject = type == 3;
  if (is64) *is64 = wide;
  return true;
}

}  // namespace zq_elf
