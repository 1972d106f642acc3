#include <gtest/gtest.h>

#include <cstring>

#include "aplugins/zqvstwrap/host/zqmemorytoken.h"
#include "platform/ipc.h"
#include "platform/process.h"
#include "platform/sync.h"

namespace {

_zqmemorytoken OwnToken(void* base, uint32_t size, uint32_t offset, uint32_t type) {
  _zqmemorytoken t{};
  t.mapping = -1;
  t.base = int64_t(intptr_t(base));
  t.dataSize = size;
  t.mappedSize = size;
  t.dataOffset = offset;
  t.type = type;
  t.ownerProcessId = GetCurrentProcessId();
  return t;
}

// A process id that names no process.
constexpr DWORD kNoProcess = 0x7FFFFFF0;

TEST(MemoryToken, OwnProcessMapsInPlaceWhateverTheType) {
  char block[64] = "0123456789";
  for (uint32_t type : {ZQ_TOKEN_MEMORY, ZQ_TOKEN_MAPPING, 7u}) {
    CMappingOfZqMemoryToken m(OwnToken(block, 8, 2, type), ZQ_TOKEN_READ);
    EXPECT_EQ(m.Pointer(), block + 2) << "type " << type;
    EXPECT_EQ(m.DataSize(), 8);
    m.Dispose();
    EXPECT_EQ(block[2], '2') << "nothing written back";
  }
}

struct ForeignCase {
  const char* name;
  uint32_t type;
  DWORD access;
  bool failed;  // a foreign owner that cannot be reached
};

class ForeignOwner : public testing::TestWithParam<ForeignCase> {};

TEST_P(ForeignOwner, FailsOrStartsZeroed) {
  const ForeignCase& c = GetParam();
  char block[16] = "never read";
  _zqmemorytoken t = OwnToken(block, sizeof block, 0, c.type);
  t.ownerProcessId = kNoProcess;
  t.mapping = 3;
  CMappingOfZqMemoryToken m(t, c.access);
  void* p = reinterpret_cast<void*>(1);
  if (c.failed) {
    EXPECT_EQ(m.GetPointer(&p), E_FAIL);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(m.DataSize(), -1) << "so a size comparison with a failed source never passes";
    EXPECT_EQ(m.Pointer(), nullptr);
  } else {
    ASSERT_EQ(m.GetPointer(&p), S_OK);
    EXPECT_EQ(m.DataSize(), 16);
    EXPECT_EQ(static_cast<char*>(p)[0], 0) << "write access alone gives a zeroed buffer";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Tokens, ForeignOwner,
    testing::Values(ForeignCase{"MappingOfGoneOwner", ZQ_TOKEN_MAPPING, ZQ_TOKEN_READ, true},
                    ForeignCase{"MemoryReadFromGoneOwner", ZQ_TOKEN_MEMORY, 0, true},
                    ForeignCase{"MemoryWriteOnly", ZQ_TOKEN_MEMORY, ZQ_TOKEN_WRITE, false},
                    ForeignCase{"UnknownType", 5, ZQ_TOKEN_WRITE, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(MemoryToken, PrivateTokenIsAClearedBlockOfThisProcess) {
  _zqmemorytoken t;
  ASSERT_EQ(ZqCreatePrivateMemoryToken(&t, 4096, TRUE), S_OK);
  EXPECT_EQ(t.type, ZQ_TOKEN_MAPPING);
  EXPECT_EQ(t.ownerProcessId, GetCurrentProcessId());
  EXPECT_EQ(t.mappedSize, 4096u);
  EXPECT_EQ(ZqSharedMemorySealedSize(int(t.mapping)), 4096u);
  EXPECT_EQ(reinterpret_cast<char*>(intptr_t(t.base))[4095], 0);
  EXPECT_EQ(ZqReleasePrivateMemoryToken(&t), S_OK);
  EXPECT_EQ(t.type, 0u);
  EXPECT_EQ(t.mapping, 0) << "the record is zeroed";

  _zqmemorytoken plain = OwnToken(nullptr, 1, 0, ZQ_TOKEN_MEMORY);
  EXPECT_EQ(ZqReleasePrivateMemoryToken(&plain), E_INVALIDARG);
  EXPECT_EQ(plain.ownerProcessId, 0u) << "zeroed also when refused";
}

TEST(OutOfProcessToken, BlocksAndMemoryPassAsTheyAre) {
  char block[8] = "abc";
  for (uint32_t type : {ZQ_TOKEN_MEMORY, ZQ_TOKEN_MAPPING}) {
    const _zqmemorytoken source = OwnToken(block, 8, 0, type);
    COutOfProcessMemoryToken o(source, ZQ_TOKEN_READ, 0);
    _zqmemorytoken local{};
    ASSERT_EQ(o.GetMemoryToken(&local), S_OK);
    EXPECT_EQ(std::memcmp(&local, &source, sizeof local), 0) << "type " << type;
  }
}

TEST(OutOfProcessToken, OtherTypesTravelAsAPrivateCopyAndComeBackWhenWritable) {
  char block[12] = "round trip";
  {
    COutOfProcessMemoryToken o(OwnToken(block, sizeof block, 0, 9), 0, 0);
    _zqmemorytoken local{};
    ASSERT_EQ(o.GetMemoryToken(&local), S_OK);
    EXPECT_EQ(local.type, ZQ_TOKEN_MAPPING);
    char* copy = reinterpret_cast<char*>(intptr_t(local.base));
    EXPECT_STREQ(copy, "round trip");
    std::strcpy(copy, "came back");
  }
  EXPECT_STREQ(block, "came back");
  {
    COutOfProcessMemoryToken o(OwnToken(block, sizeof block, 0, 9), ZQ_TOKEN_READ, 0);
    _zqmemorytoken local{};
    ASSERT_EQ(o.GetMemoryToken(&local), S_OK);
    std::strcpy(reinterpret_cast<char*>(intptr_t(local.base)), "lost");
  }
  EXPECT_STREQ(block, "came back") << "read access alone writes nothing back";

  _zqmemorytoken unreachable = OwnToken(block, sizeof block, 0, 9);
  unreachable.ownerProcessId = kNoProcess;
  COutOfProcessMemoryToken failed(unreachable, ZQ_TOKEN_READ, 0);
  _zqmemorytoken local{};
  EXPECT_EQ(failed.GetMemoryToken(&local), E_FAIL);
}

TEST(MemoryToken, ABlockOfAChildProcessIsMappedThroughItsDescriptor) {
  const int fd = ZqSharedMemoryCreate(4096);
  ASSERT_GE(fd, 0);
  auto* mine = static_cast<char*>(ZqSharedMemoryMap(fd, 4096, TRUE));
  std::strcpy(mine + 10, "from the owner");
  const char* argv[] = {"sleep", "30", nullptr};
  const ZqSpawnDescriptor handed{fd, 3};
  HANDLE child = nullptr;
  DWORD pid = 0;
  ASSERT_TRUE(ZqSpawnProcess("sleep", argv, &handed, 1, &child, &pid));
  _zqmemorytoken t = OwnToken(nullptr, 100, 10, ZQ_TOKEN_MAPPING);
  t.ownerProcessId = pid;
  t.mapping = 3;
  {
    CMappingOfZqMemoryToken m(t, ZQ_TOKEN_READ | ZQ_TOKEN_WRITE);
    if (m.Pointer() == nullptr) {
      TerminateProcess(child, 0);
      CloseHandle(child);
      GTEST_SKIP() << "this system does not let a process take descriptors of another";
    }
    EXPECT_STREQ(static_cast<char*>(m.Pointer()), "from the owner");
    std::strcpy(static_cast<char*>(m.Pointer()), "from the user");
  }
  EXPECT_STREQ(mine + 10, "from the user") << "one block, no copy";
  TerminateProcess(child, 0);
  CloseHandle(child);
  ZqSharedMemoryUnmap(mine, 4096);
  ZqCloseDescriptor(fd);
}

}  // namespace
