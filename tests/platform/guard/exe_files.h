// Executable files made by hand for the loader and header-reader tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "platform/text.h"

// A path in the test's temporary folder.  Each test case may run in a
// process of its own, beside others: the test's name keeps the files apart.
inline std::string TempPath(const char* name) {
  std::string dir = testing::TempDir();
  if (dir.empty() || dir.back() != '/') dir += '/';
  return dir + "zqexe_" + testing::UnitTest::GetInstance()->current_test_info()->name() + "_" + name;
}

// A file with the given bytes, removed at the end.
class TempFile {
 public:
  TempFile(const char* name, const std::vector<unsigned char>& bytes) : path_(TempPath(name)) {
    std::ofstream out(path_, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  ~TempFile() { std::remove(path_.c_str()); }
  const std::string& path() const { return path_; }
  std::u16string wide() const { return ZqUtf8ToUtf16(path_); }

 private:
  std::string path_;
};

inline void Put16(std::vector<unsigned char>& b, size_t at, uint16_t v) {
  b[at] = static_cast<unsigned char>(v);
  b[at + 1] = static_cast<unsigned char>(v >> 8);
}
inline void Put32(std::vector<unsigned char>& b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<unsigned char>(v >> (8 * i));
}

// "MZ", e_lfanew at 60, "PE\0\0" with machine and characteristics at e; the
// file is `size` bytes (at least the header).
inline std::vector<unsigned char> Pe(uint32_t e, uint16_t machine, uint16_t characteristics, size_t size = 0) {
  std::vector<unsigned char> b(std::max<size_t>(size, e + 24 + 240), 0);
  b[0] = 'M', b[1] = 'Z';
  Put32(b, 60, e);
  b[e] = 'P', b[e + 1] = 'E';
  Put16(b, e + 4, machine);
  Put16(b, e + 22, characteristics);
  // The optional header's magic: PE32 (0x10B) or PE32+ (0x20B).
  Put16(b, e + 24, machine == 0x8664 ? 0x20B : 0x10B);
  return b;
}

// An ELF header and nothing else.
inline std::vector<unsigned char> Elf(bool is64, bool bigEndian, uint16_t type, uint16_t machine) {
  std::vector<unsigned char> b(is64 ? 64 : 52, 0);
  b[0] = 0x7F, b[1] = 'E', b[2] = 'L', b[3] = 'F';
  b[4] = is64 ? 2 : 1;
  b[5] = bigEndian ? 2 : 1;
  b[6] = 1;
  auto put = [&](size_t at, uint16_t v) {
    b[at] = static_cast<unsigned char>(bigEndian ? v >> 8 : v);
    b[at + 1] = static_cast<unsigned char>(bigEndian ? v : v >> 8);
  };
  put(16, type);
  put(18, machine);
  return b;
}
