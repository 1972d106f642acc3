// What kind of executable a file is, from its headers, without loading it.
//
// Two forms are read.  A portable executable: at least 64 bytes starting
// with "MZ", the 32-bit header offset e at byte 60, "PE\0\0" at e, the
// machine word right behind the signature and the characteristics word at
// e + 22.  The first 4096 bytes are read; when e + 24 lies beyond the bytes
// read, the reader seeks to e and reads 4096 bytes again.  An ELF object
// (executable or shared object): e_machine is reported in the
// portable-executable numbering (i386 0x14C, x86-64 0x8664, AArch64 0xAA64,
// others where that numbering has one, else 0), and the characteristics are
// made up the same way: 0x0002 executable image always, 0x2000 DLL for a
// shared object (ET_DYN, which includes position-independent programs),
// 0x0100 32-bit machine for ELF class 32, 0x0020 large address aware for
// class 64.  Relocatable objects and core files are no executables.
#pragma once

#include "base/types.h"

// Machine numbers of the portable-executable numbering.
constexpr unsigned ZQ_MACHINE_I386 = 0x014C;
constexpr unsigned ZQ_MACHINE_AMD64 = 0x8664;
constexpr unsigned ZQ_MACHINE_ARM64 = 0xAA64;

// The machine of the running process, in that numbering.
#if defined(__x86_64__) || defined(_M_X64)
constexpr unsigned ZQ_HOST_MACHINE = ZQ_MACHINE_AMD64;
#elif defined(__aarch64__) || defined(_M_ARM64)
constexpr unsigned ZQ_HOST_MACHINE = ZQ_MACHINE_ARM64;
#elif defined(__i386__) || defined(_M_IX86)
constexpr unsigned ZQ_HOST_MACHINE = ZQ_MACHINE_I386;
#else
constexpr unsigned ZQ_HOST_MACHINE = 0;
#endif

// Characteristics words.
constexpr WORD ZQ_IMAGE_EXECUTABLE = 0x0002;
constexpr WORD ZQ_IMAGE_LARGE_ADDRESS_AWARE = 0x0020;
constexpr WORD ZQ_IMAGE_32BIT_MACHINE = 0x0100;
constexpr WORD ZQ_IMAGE_DLL = 0x2000;

// The answers of ZqIsFileExecutable.
constexpr int ZQ_EXE_NONE = 0;
constexpr int ZQ_EXE_PORTABLE = 1;  // a portable executable
constexpr int ZQ_EXE_ELF = 2;       // an ELF executable or shared object

// Reads the headers of an open file (HANDLE of CreateFileW with read
// access).  Answers ZQ_EXE_PORTABLE or ZQ_EXE_ELF with *machine and
// *characteristics set, or ZQ_EXE_NONE leaving them alone.  Either pointer
// may be null.  The file pointer is at 0 afterwards, whatever happened.
ZQ_API int ZqIsFileExecutable(HANDLE file, unsigned* machine, WORD* characteristics);

// The same by path: 0 (S_OK) for an executable of either form, with
// *machine and *flags set; 0x8004E00B (ZQ_E_BAD_FILE) when the file is none;
// 0x80070000 | the last error when the file does not open.
ZQ_API HRESULT ZqGetFileExecutableInfo(LPCWSTR path, unsigned* machine, WORD* flags);

// Whether the file is an object this process can load itself: ELF, a shared
// object, of the host's class and machine (64-bit, 0x8664 here).  Every other
// file, a portable executable of the same machine included, is not.
bool ZqIsFileLoadableInProcess(LPCWSTR path);
