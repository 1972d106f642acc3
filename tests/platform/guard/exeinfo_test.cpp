// The executable-header reader: portable executables by hand (the header
// inside and beyond the first read, broken ones), ELF headers by hand and
// our own modules.
#include "platform/exeinfo.h"

#include <gtest/gtest.h>

#include "base/status.h"
#include "platform/file.h"
#include "tests/platform/guard/exe_files.h"

namespace {

struct Info { HRESULT hr; unsigned machine; WORD flags; };

Info Read(const TempFile& f) {
  Info info{0, 0xDEAD, 0xBEEF};
  info.hr = ZqGetFileExecutableInfo(f.wide().c_str(), &info.machine, &info.flags);
  return info;
}

TEST(ExecutableInfo, PortableExecutablesGiveMachineAndCharacteristics) {
  struct Case { const char* name; uint32_t e; uint16_t machine, flags; size_t size; } cases[] = {
      {"i386 dll", 0x80, 0x14C, 0x2102, 0},
      {"x64 dll (PE32+)", 0xF8, 0x8664, 0x2022, 0},
      {"arm64 program", 0x100, 0xAA64, 0x0022, 0},
      // The header beyond the first 4096 bytes: read after a seek.
      {"header far out", 5000, 0x14C, 0x2102, 0},
      // Inside the first read but its 24 bytes are not: also a seek.
      {"header across the first read", 4080, 0x8664, 0x2022, 4096 + 512},
      // The last place that needs no seek.
      {"header at the end of the first read", 4072, 0x14C, 0x0102, 8192},
  };
  for (const Case& c : cases) {
    TempFile f("pe.dll", Pe(c.e, c.machine, c.flags, c.size));
    const Info info = Read(f);
    EXPECT_EQ(S_OK, info.hr) << c.name;
    EXPECT_EQ(c.machine, info.machine) << c.name;
    EXPECT_EQ(c.flags, info.flags) << c.name;
  }
}

TEST(ExecutableInfo, FilesThatAreNoExecutable) {
  std::vector<unsigned char> noPe = Pe(0x80, 0x14C, 0x2102);
  noPe[0x80 + 1] = 'X';
  std::vector<unsigned char> shortMz(63, 0);
  shortMz[0] = 'M', shortMz[1] = 'Z';
  std::vector<unsigned char> beyondEnd = Pe(0x80, 0x14C, 0x2102);
  Put32(beyondEnd, 60, 100000);
  std::vector<unsigned char> peWithNoZeros = Pe(0x80, 0x14C, 0x2102);
  peWithNoZeros[0x80 + 3] = 1;
  std::vector<unsigned char> text(200, 'a');
  std::vector<unsigned char> truncatedElf = Elf(true, false, 3, 62);
  truncatedElf.resize(40);
  struct Case { const char* name; std::vector<unsigned char> bytes; } cases[] = {
      {"empty", {}},
      {"text", text},
      {"MZ shorter than 64 bytes", shortMz},
      {"no PE signature", noPe},
      {"PE signature without its zeros", peWithNoZeros},
      {"header offset beyond the end", beyondEnd},
      {"ELF relocatable object", Elf(true, false, 1, 62)},
      {"ELF core file", Elf(true, false, 4, 62)},
      {"ELF header cut short", truncatedElf},
  };
  for (const Case& c : cases) {
    TempFile f("bad.bin", c.bytes);
    const Info info = Read(f);
    EXPECT_EQ(ZQ_E_BAD_FILE, info.hr) << c.name;
    EXPECT_EQ(0xDEADu, info.machine) << c.name;
    EXPECT_EQ(0xBEEF, info.flags) << c.name;
  }
}

TEST(ExecutableInfo, OpenErrorsGiveThePlatformCode) {
  unsigned machine = 0;
  WORD flags = 0;
  const std::u16string missing = ZqUtf8ToUtf16(TempPath("missing.so"));
  EXPECT_EQ(static_cast<HRESULT>(0x80070000u | ERROR_FILE_NOT_FOUND),
            ZqGetFileExecutableInfo(missing.c_str(), &machine, &flags));
  EXPECT_EQ(static_cast<HRESULT>(0x80070000u | ERROR_PATH_NOT_FOUND),
            ZqGetFileExecutableInfo(u"/no/such/folder/x.so", &machine, &flags));
}

TEST(ExecutableInfo, ElfHeadersInPortableExecutableTerms) {
  struct Case {
    const char* name;
    std::vector<unsigned char> bytes;
    unsigned machine;
    WORD flags;
    bool loadable;
  } cases[] = {
      {"x86-64 shared object", Elf(true, false, 3, 62), 0x8664, 0x2022, true},
      {"i386 shared object", Elf(false, false, 3, 3), 0x14C, 0x2102, false},
      {"x86-64 program", Elf(true, false, 2, 62), 0x8664, 0x0022, false},
      {"x32 shared object", Elf(false, false, 3, 62), 0x8664, 0x2102, false},
      {"aarch64 shared object", Elf(true, false, 3, 183), 0xAA64, 0x2022, false},
      {"big-endian powerpc program", Elf(false, true, 2, 20), 0x1F0, 0x0102, false},
      {"unknown machine", Elf(true, false, 3, 0x7777), 0, 0x2022, false},
  };
  for (const Case& c : cases) {
    TempFile f("elf.so", c.bytes);
    const Info info = Read(f);
    EXPECT_EQ(S_OK, info.hr) << c.name;
    EXPECT_EQ(c.machine, info.machine) << c.name;
    EXPECT_EQ(c.flags, info.flags) << c.name;
    EXPECT_EQ(c.loadable, ZqIsFileLoadableInProcess(f.wide().c_str())) << c.name;
  }
  // A portable executable of the host's machine is not loadable here.
  TempFile pe("pe.dll", Pe(0x80, 0x8664, 0x2022));
  EXPECT_FALSE(ZqIsFileLoadableInProcess(pe.wide().c_str()));
  EXPECT_FALSE(ZqIsFileLoadableInProcess(ZqUtf8ToUtf16(TempPath("missing.so")).c_str()));
}

TEST(ExecutableInfo, OurOwnModulesAreLoadableObjectsOfTheHost) {
  for (const char* name : {"zqgain.so", "zqdelay.so", "zqbad_entry_fault.so", "zqbad_no_entry.so"}) {
    const std::u16string path = ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/" + name);
    unsigned machine = 0;
    WORD flags = 0;
    EXPECT_EQ(S_OK, ZqGetFileExecutableInfo(path.c_str(), &machine, &flags)) << name;
    EXPECT_EQ(ZQ_HOST_MACHINE, machine) << name;
    EXPECT_EQ(ZQ_IMAGE_DLL | ZQ_IMAGE_LARGE_ADDRESS_AWARE | ZQ_IMAGE_EXECUTABLE, flags) << name;
    EXPECT_TRUE(ZqIsFileLoadableInProcess(path.c_str())) << name;
  }
  const std::u16string text = ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/zqbad_not_elf.so");
  EXPECT_EQ(ZQ_E_BAD_FILE, ZqGetFileExecutableInfo(text.c_str(), nullptr, nullptr));
  EXPECT_FALSE(ZqIsFileLoadableInProcess(text.c_str()));
}

TEST(ExecutableInfo, OpenFileIsLeftAtItsStartOnEveryPath) {
  const std::vector<std::vector<unsigned char>> files = {
      Pe(0x80, 0x14C, 0x2102), Pe(5000, 0x14C, 0x2102), Elf(true, false, 3, 62), std::vector<unsigned char>(10, 'x'),
      std::vector<unsigned char>(9000, 'x')};
  for (size_t i = 0; i < files.size(); ++i) {
    TempFile f("handle.bin", files[i]);
    HANDLE h = CreateFileW(f.wide().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, h) << i;
    SetFilePointer(h, 7, nullptr, FILE_BEGIN);
    unsigned machine = 0;
    WORD flags = 0;
    const int kind = ZqIsFileExecutable(h, &machine, &flags);
    EXPECT_EQ(i < 2 ? ZQ_EXE_PORTABLE : i == 2 ? ZQ_EXE_ELF : ZQ_EXE_NONE, kind) << i;
    EXPECT_EQ(0u, SetFilePointer(h, 0, nullptr, FILE_CURRENT)) << i;
    // Null out-pointers are allowed.
    EXPECT_EQ(kind, ZqIsFileExecutable(h, nullptr, nullptr)) << i;
    CloseHandle(h);
  }
}

}  // namespace
