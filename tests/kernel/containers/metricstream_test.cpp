#include <gtest/gtest.h>

#include <cstring>

#include "kernel/containers/streams.h"
#include "kernel/metric.h"

namespace {

// A memory stream of `capacity` bytes, positioned at `position`.
IStream* StreamAt(char* memory, ULONG capacity, ULONGLONG position) {
  IStream* stream = nullptr;
  EXPECT_EQ(ZqCreateStreamFromMemory(memory, capacity, capacity, &stream, FALSE), S_OK);
  LARGE_INTEGER to{};
  to.QuadPart = static_cast<LONGLONG>(position);
  stream->Seek(to, STREAM_SEEK_SET, nullptr);
  return stream;
}

TEST(MetricStream, StoresUpToThePositionAndWritesBackAtTheStart) {
  HZQMETRIC h = nullptr;
  ASSERT_EQ(ZqMetric_Open(&h, u"MetricStreamTest", 0, nullptr), S_OK);
  static char big[4096], out[16];
  std::memcpy(big, "settings", 8);
  const struct { ULONGLONG position; HRESULT status; } kSets[] = {
      {0, E_UNEXPECTED}, {2049, E_INVALIDARG}, {2048, S_OK}, {8, S_OK}};
  for (const auto& c : kSets) {
    IStream* stream = StreamAt(big, sizeof big, c.position);
    EXPECT_EQ(ZqSetMetricStream(h, 1, stream), c.status) << c.position;
    stream->Release();
  }
  EXPECT_EQ(ZqSetMetricStream(h, 1, nullptr), E_POINTER);
  IStream* reader = StreamAt(out, sizeof out, 12);
  ASSERT_EQ(ZqGetMetricStream(h, 1, reader), S_OK);
  EXPECT_EQ(std::memcmp(out, "settings", 8), 0);
  ULARGE_INTEGER position{};
  reader->Seek(LARGE_INTEGER{}, STREAM_SEEK_CUR, &position);
  EXPECT_EQ(position.QuadPart, 8u);
  EXPECT_EQ(ZqGetMetricStream(h, 2, reader), E_UNEXPECTED);  // missing
  reader->Release();
  IStream* tooSmall = StreamAt(out, 4, 0);
  EXPECT_EQ(ZqGetMetricStream(h, 1, tooSmall), E_UNEXPECTED);
  tooSmall->Release();
  ZqMetric_CloseAndDeleteKey(h);
}

}  // namespace
