#include <gtest/gtest.h>

#include <cstring>

#include "aplugins/zqvstwrap/host/zqmemorytoken.h"
#include "platform/ipc.h"
#include "platform/process.h"
#include "platform/sync.h"

namespace {

// A process id that names no process.
constexpr DWORD kNoProcess = 0x7FFFFFF0;

_zqmemorytoken Token(void* base, uint32_t size, uint32_t offset, uint32_t type, DWORD owner = GetCurrentProcessId()) {
  return _zqmemorytoken{-1, int64_t(intptr_t(base)), size, size, offset, 0, type, owner};
}

char* At(int64_t base) { return reinterpret_cast<char*>(intptr_t(base)); }

TEST(MemoryToken, OwnProcessMapsInPlaceWhateverTheType) {
  char block[64] = "0123456789";
  for (uint32_t type : {ZQ_TOKEN_MEMORY, ZQ_TOKEN_MAPPING, 7u}) {
    CMappingOfZqMemoryToken m(Token(block, 8, 2, type), ZQ_TOKEN_READ);
    EXPECT_EQ(m.Pointer(), block + 2) << "type " << type;
    EXPECT_EQ(m.DataSize(), 8);
  }
}

TEST(MemoryToken, AForeignOwnerThatCannotBeReachedFailsUnlessOnlyWrittenTo) {
  const struct {
    uint32_t type;
    DWORD access;
    bool failed;
  } cases[] = {{ZQ_TOKEN_MAPPING, ZQ_TOKEN_READ, true},
               {ZQ_TOKEN_MEMORY, 0, true},
               {ZQ_TOKEN_MEMORY, ZQ_TOKEN_WRITE, false},  // a zeroed buffer, nothing read
               {5, ZQ_TOKEN_WRITE, true}};
  char block[16] = "never read";
  for (const auto& c : cases) {
    _zqmemorytoken t = Token(block, sizeof block, 0, c.type, kNoProcess);
    t.mapping = 3;
    CMappingOfZqMemoryToken m(t, c.access);
    void* p = block;
    EXPECT_EQ(m.GetPointer(&p), c.failed ? E_FAIL : S_OK) << c.type << "/" << c.access;
    // -1 keeps a size comparison with a failed source from ever passing.
    EXPECT_EQ(m.DataSize(), c.failed ? -1 : 16);
    if (c.failed) {
      EXPECT_EQ(p, nullptr);
    } else {
      EXPECT_EQ(static_cast<char*>(p)[0], 0);
    }
  }
}

TEST(MemoryToken, PrivateTokenIsAClearedSealedBlockAndReleaseZeroesTheRecord) {
  _zqmemorytoken t;
  ASSERT_EQ(ZqCreatePrivateMemoryToken(&t, 4096, TRUE), S_OK);
  EXPECT_EQ(t.type, ZQ_TOKEN_MAPPING);
  EXPECT_EQ(t.ownerProcessId, GetCurrentProcessId());
  EXPECT_EQ(ZqSharedMemorySealedSize(int(t.mapping)), 4096u);
  EXPECT_EQ(At(t.base)[4095], 0);
  EXPECT_EQ(ZqReleasePrivateMemoryToken(&t), S_OK);
  EXPECT_EQ(t.mapping, 0);
  _zqmemorytoken plain = Token(nullptr, 1, 0, ZQ_TOKEN_MEMORY);
  EXPECT_EQ(ZqReleasePrivateMemoryToken(&plain), E_INVALIDARG);
  EXPECT_EQ(plain.ownerProcessId, 0u) << "zeroed also when refused";
}

TEST(OutOfProcessToken, OtherTypesTravelAsAPrivateCopyThatComesBackWhenWritable) {
  char block[12] = "round trip";
  const _zqmemorytoken mapping = Token(block, 8, 0, ZQ_TOKEN_MAPPING);
  _zqmemorytoken local{};
  ASSERT_EQ(COutOfProcessMemoryToken(mapping, ZQ_TOKEN_READ, 0).GetMemoryToken(&local), S_OK);
  EXPECT_EQ(std::memcmp(&local, &mapping, sizeof local), 0) << "a block passes as it is";
  for (DWORD access : {DWORD(0), ZQ_TOKEN_READ}) {
    COutOfProcessMemoryToken o(Token(block, sizeof block, 0, 9), access, 0);
    ASSERT_EQ(o.GetMemoryToken(&local), S_OK);
    EXPECT_EQ(local.type, ZQ_TOKEN_MAPPING);
    EXPECT_STREQ(At(local.base), access ? "came back" : "round trip");
    std::strcpy(At(local.base), access ? "lost" : "came back");
  }
  EXPECT_STREQ(block, "came back") << "read access alone writes nothing back";
  COutOfProcessMemoryToken failed(Token(block, sizeof block, 0, 9, kNoProcess), ZQ_TOKEN_READ, 0);
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
  _zqmemorytoken t = Token(nullptr, 100, 10, ZQ_TOKEN_MAPPING, pid);
  t.mapping = 3;
  bool reached;
  {
    CMappingOfZqMemoryToken m(t, ZQ_TOKEN_READ | ZQ_TOKEN_WRITE);
    reached = m.Pointer() != nullptr;
    if (reached) {
      EXPECT_STREQ(static_cast<char*>(m.Pointer()), "from the owner");
      std::strcpy(static_cast<char*>(m.Pointer()), "from the user");
    }
  }
  if (reached) {
    EXPECT_STREQ(mine + 10, "from the user") << "one block, no copy";
  }
  TerminateProcess(child, 0);
  CloseHandle(child);
  ZqSharedMemoryUnmap(mine, 4096);
  ZqCloseDescriptor(fd);
  if (!reached) GTEST_SKIP() << "this system does not let a process take descriptors of another";
}

}  // namespace
