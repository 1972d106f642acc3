// Whole-channel operations: by sample width, without value changes, except
// the mixes.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kernel/audio/convert.h"

namespace {

_zqwaveformat Format(ZQSAMPLETYPE type, int channels) {
  _zqwaveformat f;
  f.Init(48000, type, channels, 0, 32);
  return f;
}

TEST(AudioChannelOps, ExtractInsertMuteByWidth) {
  const uint8_t src24[3 * 3 * 2] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18};
  uint8_t one[7];
  std::memset(one, 0xEE, sizeof one);
  ASSERT_EQ(ZqAudio_ExtractChannel(one, 1, src24, 18, 3, 2), S_OK);
  const uint8_t want[6] = {4, 5, 6, 13, 14, 15};
  EXPECT_EQ(std::memcmp(one, want, 6), 0);
  EXPECT_EQ(one[6], 0xEE);

  uint8_t buf[18];
  std::memcpy(buf, src24, sizeof buf);
  const uint8_t ins[6] = {90, 91, 92, 93, 94, 95};
  ASSERT_EQ(ZqAudio_InsertChannel(buf, 65, 3, 2, ins, 2), S_OK);
  const uint8_t afterInsert[18] = {1, 2, 3, 4, 5, 6, 90, 91, 92, 10, 11, 12, 13, 14, 15, 93, 94, 95};
  EXPECT_EQ(std::memcmp(buf, afterInsert, sizeof buf), 0);

  uint8_t u8[4] = {1, 2, 3, 4};
  ASSERT_EQ(ZqAudio_MuteChannel(u8, 16, 2, 0, 2), S_OK);
  EXPECT_EQ(u8[0], 0x80);
  EXPECT_EQ(u8[2], 0x80);
  EXPECT_EQ(u8[1], 2);
  int8_t s8[2] = {5, 6};
  ASSERT_EQ(ZqAudio_MuteChannel(s8, 49, 1, 0, 2), S_OK);
  EXPECT_EQ(s8[0], 0);  // signed 8-bit silence is 0
  EXPECT_EQ(s8[1], 0);

  for (ZQSAMPLETYPE t : {0, 128, 129, 20}) {
    EXPECT_EQ(ZqAudio_ExtractChannel(one, 0, src24, t, 2, 1), E_FAIL) << t;
    EXPECT_EQ(ZqAudio_MuteChannel(buf, t, 2, 0, 1), E_FAIL) << t;
  }
  EXPECT_EQ(ZqAudio_ExtractChannel(one, 3, src24, 18, 3, 1), E_FAIL);
  EXPECT_EQ(ZqAudio_InsertChannel(buf, 17, 2, -1, ins, 1), E_FAIL);
  // A count of 0 touches nothing, not even a null buffer.
  EXPECT_EQ(ZqAudio_MuteChannel(nullptr, 33, 2, 1, 0), S_OK);
}

TEST(AudioChannelOps, ChannelCopiesAndSwaps) {
  _zqwaveformat st = Format(17, 2);
  int16_t buf[6] = {1, 2, 3, 4, 5, 6};
  ASSERT_EQ(ZqAudio_CopyChannelToChannel(buf, &st, 1, 0, 3), S_OK);
  const int16_t want[6] = {2, 2, 4, 4, 6, 6};
  EXPECT_EQ(std::memcmp(buf, want, sizeof buf), 0);
  _zqwaveformat be = Format(64, 2);
  EXPECT_EQ(ZqAudio_CopyChannelToChannel(buf, &be, 1, 0, 3), E_FAIL);

  const float src[4] = {1, 2, 3, 4};
  float all[9];
  _zqwaveformat f2 = Format(32, 2), f3 = Format(32, 3), f1 = Format(32, 1);
  ASSERT_EQ(ZqAudio_CopyChannelToAll(all, src, &f2, &f3, 1, 2), S_OK);
  EXPECT_EQ(all[0], 2);
  EXPECT_EQ(all[2], 2);
  EXPECT_EQ(all[5], 4);
  ASSERT_EQ(ZqAudio_CopyChannelToAll(all, src, &f2, &f1, 0, 2), S_OK);
  EXPECT_EQ(all[1], 3);
  _zqwaveformat i2 = Format(17, 2);
  EXPECT_EQ(ZqAudio_CopyChannelToAll(all, src, &f2, &i2, 0, 2), E_NOTIMPL);

  float m1[2], m2[2];
  void* outs[2] = {m1, m2};
  ASSERT_EQ(ZqAudio_CopyChannelToMultiMono(outs, 2, src, &f2, 1, 2), S_OK);
  EXPECT_EQ(m2[1], 4);

  double d[4] = {1, 2, 3, 4};
  ASSERT_EQ(ZqAudio_SwapStereoChannels(d, 33, 2), S_OK);
  EXPECT_EQ(d[0], 2);
  EXPECT_EQ(d[3], 3);
  uint8_t p24[6] = {1, 2, 3, 4, 5, 6}, q24[6];
  ASSERT_EQ(ZqAudio_CopySwapStereoChannels(q24, p24, 18, 1), S_OK);
  const uint8_t swapped[6] = {4, 5, 6, 1, 2, 3};
  EXPECT_EQ(std::memcmp(q24, swapped, 6), 0);

  const int16_t six[6] = {10, 11, 12, 13, 14, 15};
  int16_t pair[4];
  ASSERT_EQ(ZqAudio_ExtractChannelPair(pair, 2, 0, six, 17, 3, 2), S_OK);
  const int16_t wantPair[4] = {12, 10, 15, 13};
  EXPECT_EQ(std::memcmp(pair, wantPair, sizeof pair), 0);

  uint8_t fill[9];
  const uint8_t sample[3] = {7, 8, 9};
  ASSERT_EQ(ZqAudio_FillWithSample(fill, 18, sample, 3), S_OK);
  EXPECT_EQ(fill[6], 7);
  EXPECT_EQ(fill[8], 9);
}

TEST(AudioChannelOps, MonoMixTruncatesIntegers) {
  _zqwaveformat s3 = Format(17, 3);
  const int16_t src[6] = {1, 1, 0, -1, -1, 0};
  int16_t dst[6];
  ASSERT_EQ(ZqAudio_MonoChannel(dst, src, &s3, 2), S_OK);
  const int16_t want[6] = {0, 0, 0, 0, 0, 0};  // 2/3 and -2/3 truncate towards zero
  EXPECT_EQ(std::memcmp(dst, want, sizeof dst), 0);
  _zqwaveformat f2 = Format(32, 2);
  const float fs[4] = {1.0f, 2.0f, 0.1f, 0.2f};
  float fd[4];
  ASSERT_EQ(ZqAudio_MonoChannel(fd, fs, &f2, 2), S_OK);
  EXPECT_EQ(fd[0], 1.5f);
  EXPECT_EQ(fd[1], 1.5f);
  EXPECT_EQ(fd[2], float((double(0.1f) + double(0.2f)) / 2));  // summed in double
  const uint8_t u8[2] = {0, 255};
  uint8_t m8[2];
  _zqwaveformat b2 = Format(16, 2);
  ASSERT_EQ(ZqAudio_MonoChannel(m8, u8, &b2, 1), S_OK);
  EXPECT_EQ(m8[0], 127);
  _zqwaveformat be = Format(64, 2);
  EXPECT_EQ(ZqAudio_MonoChannel(m8, u8, &be, 1), E_FAIL);
}

TEST(AudioChannelOps, ChannelChange) {
  // Down: summed as normalised values, clipped, at the first channel.
  _zqwaveformat s2 = Format(17, 2);
  const int16_t src[4] = {30000, 30000, 100, -50};
  int16_t dst[2] = {0, 0};
  ASSERT_EQ(ZqAudio_ChannelChange(dst, 1, src, &s2, 2), S_OK);
  EXPECT_EQ(dst[0], 32767);
  EXPECT_EQ(dst[1], 50);
  ASSERT_EQ(ZqAudio_ChannelChangeAvg(dst, 1, src, &s2, 2), S_OK);
  EXPECT_EQ(dst[0], 30000);
  EXPECT_EQ(dst[1], 25);
  // Up from mono in place: walked from the end.
  float buf[6] = {1, 2, 3, 0, 0, 0};
  _zqwaveformat m = Format(32, 1);
  ASSERT_EQ(ZqAudio_ChannelChange(buf, 2, buf, &m, 3), S_OK);
  const float want[6] = {1, 1, 2, 2, 3, 3};
  EXPECT_EQ(std::memcmp(buf, want, sizeof buf), 0);
  // Equal counts copy; anything else fails.
  int16_t same[4];
  ASSERT_EQ(ZqAudio_ChannelChange(same, 2, src, &s2, 2), S_OK);
  EXPECT_EQ(std::memcmp(same, src, sizeof same), 0);
  _zqwaveformat s3 = Format(17, 3);
  EXPECT_EQ(ZqAudio_ChannelChange(dst, 5, src, &s3, 1), E_FAIL);
}

}  // namespace
