// Sample types, the wave format record and the WAVEFORMATEX helpers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kernel/audio/waveformat.h"

namespace {

WAVEFORMATEX Plain(WORD tag, int channels, DWORD rate, int bits, int blockAlign = -1) {
  WAVEFORMATEX w{};
  w.wFormatTag = tag;
  w.nChannels = WORD(channels);
  w.nSamplesPerSec = rate;
  w.wBitsPerSample = WORD(bits);
  w.nBlockAlign = WORD(blockAlign >= 0 ? blockAlign : bits / 8 * channels);
  w.nAvgBytesPerSec = w.nBlockAlign * rate;
  return w;
}

WAVEFORMATEXTENSIBLE Extensible(const GUID& sub, int channels, int bits, int validBits, DWORD mask) {
  WAVEFORMATEXTENSIBLE e{};
  e.Format = Plain(WAVE_FORMAT_EXTENSIBLE, channels, 48000, bits);
  e.Format.cbSize = 22;
  e.Samples.wValidBitsPerSample = WORD(validBits);
  e.dwChannelMask = mask;
  e.SubFormat = sub;
  return e;
}

std::u16string Text(const WCHAR* t) { return std::u16string(t); }

TEST(AudioSampleType, TypeTablesAndTagTable) {
  EXPECT_EQ(ZqAudio_BytesFromSampleType(18), 3);
  EXPECT_EQ(ZqAudio_BitsFromSampleType(48), 32);
  EXPECT_EQ(ZqAudio_FormatTagFromSampleType(49), 0xFE01);
  EXPECT_EQ(ZqAudio_FormatTagFromSampleType(65), 0xFE02);
  for (int t : {0, 15, 67, 128, 129}) {
    EXPECT_EQ(ZqAudio_BytesFromSampleType(t), 0) << t;
    EXPECT_EQ(ZqAudio_BitsFromSampleType(t), 0) << t;
    EXPECT_EQ(ZqAudio_FormatTagFromSampleType(t), 0) << t;
  }
  struct Row {
    WORD tag;
    int bits;
    ZQSAMPLETYPE type;
  };
  const Row rows[] = {{1, 8, 16},       {1, 16, 17},      {1, 20, 18},      {1, 24, 18},      {1, 32, 19},
                      {1, 12, 0},       {3, 32, 32},      {3, 64, 33},      {3, 16, 0},       {0xFE00, 24, 48},
                      {0xFE00, 32, 48}, {0xFE00, 16, 0},  {0xFE01, 8, 49},  {0xFE01, 16, 17}, {0xFE01, 20, 18},
                      {0xFE01, 32, 19}, {0xFE02, 8, 16},  {0xFE02, 16, 64}, {0xFE02, 24, 65}, {0xFE02, 32, 66},
                      {0xFE02, 20, 0},  {0xFE03, 16, 128}, {0xFE03, 24, 129}, {0xFE03, 32, 0}, {2, 16, 0}};
  for (const Row& r : rows) EXPECT_EQ(ZqAudio_GetSampleType2(r.tag, r.bits), r.type) << r.tag << "/" << r.bits;
}

TEST(AudioSampleType, ExtensibleFormats) {
  WAVEFORMATEXTENSIBLE e = Extensible(KSDATAFORMAT_SUBTYPE_PCM, 2, 32, 24, 3);
  EXPECT_EQ(ZqAudio_GetSampleType(&e.Format), 48);  // 24 valid bits in a 32-bit container
  e.Samples.wValidBitsPerSample = 32;
  EXPECT_EQ(ZqAudio_GetSampleType(&e.Format), 19);
  e = Extensible(KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, 6, 32, 32, 0x3F);
  EXPECT_EQ(ZqAudio_GetSampleType(&e.Format), 32);
  EXPECT_EQ(ZqAudio_GetWaveFormatTag(&e.Format), 3);
  EXPECT_FALSE(ZqAudio_IsCompressed(&e.Format));
  WORD tag = 0;
  EXPECT_TRUE(ZqAudio_GetFormatTagExtensible(&e, &tag));
  EXPECT_EQ(tag, 3);
  e.Format.cbSize = 21;  // too short to carry a sub-format
  EXPECT_EQ(ZqAudio_GetWaveFormatTag(&e.Format), WAVE_FORMAT_EXTENSIBLE);
  EXPECT_TRUE(ZqAudio_IsCompressed(&e.Format));
  // A sub-format outside the base identifier is no type.
  GUID other = KSDATAFORMAT_SUBTYPE_PCM;
  other.Data4[7] ^= 1;
  e = Extensible(other, 2, 16, 16, 3);
  EXPECT_EQ(ZqAudio_GetSampleType(&e.Format), 0);
  EXPECT_TRUE(ZqAudio_IsCompressed(&e.Format));
  // The base identifier with another tag: the tag of the table.
  GUID be = KSDATAFORMAT_SUBTYPE_PCM;
  be.Data1 = 0xFE02;
  e = Extensible(be, 2, 16, 16, 3);
  EXPECT_EQ(ZqAudio_GetSampleType(&e.Format), 64);
  EXPECT_TRUE(ZqAudio_IsCompressed(&e.Format));  // only PCM and IEEE float sub-formats count as plain
}

TEST(AudioSampleType, CompressionBlockAlignAndRepair) {
  WAVEFORMATEX w = Plain(1, 2, 44100, 16, 3);
  EXPECT_TRUE(ZqAudio_IsCompressed(&w));
  EXPECT_TRUE(ZqAudio_FixBadWfx(&w));
  EXPECT_EQ(w.nBlockAlign, 4);
  EXPECT_FALSE(ZqAudio_IsCompressed(&w));
  EXPECT_FALSE(ZqAudio_FixBadWfx(&w));
  WAVEFORMATEX w20 = Plain(1, 2, 44100, 20, 6);
  EXPECT_TRUE(ZqAudio_FixBadWfx(&w20));
  EXPECT_EQ(w20.wBitsPerSample, 24);
  WAVEFORMATEX f = Plain(3, 2, 44100, 32, 7);
  EXPECT_FALSE(ZqAudio_FixBadWfx(&f));  // tag 1 only
  EXPECT_TRUE(ZqAudio_IsCompressed(&f));
  for (WORD tag : {2, 0x55, 0xFE03, 0xFE04})
    EXPECT_TRUE(ZqAudio_IsCompressed(&(w = Plain(tag, 2, 44100, 16)))) << tag;
  for (WORD tag : {1, 3, 0xFE00, 0xFE01, 0xFE02}) {
    w = Plain(tag, 2, 44100, 32);
    EXPECT_FALSE(ZqAudio_IsCompressed(&w)) << tag;
  }
}

TEST(AudioSampleType, InitWfxAndFlex) {
  WAVEFORMATEX w{};
  ZqAudio_InitWfx(&w, 48000, 65, 2);
  EXPECT_EQ(w.wFormatTag, 0xFE02);
  EXPECT_EQ(w.wBitsPerSample, 24);
  EXPECT_EQ(w.nBlockAlign, 6);
  EXPECT_EQ(w.nAvgBytesPerSec, 288000u);
  EXPECT_EQ(w.cbSize, 0);

  WAVEFORMATEXTENSIBLE e{};
  ZqAudio_InitWfxFlex(&e.Format, 1, 48000, 16, 2, 3, sizeof e);  // default stereo mask: plain
  EXPECT_EQ(e.Format.wFormatTag, 1);
  EXPECT_EQ(e.Format.cbSize, 0);
  ZqAudio_InitWfxFlex(&e.Format, 3, 48000, 32, 2, 0x4, sizeof e);  // another mask: extensible
  EXPECT_EQ(e.Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
  EXPECT_EQ(e.Format.cbSize, 22);
  EXPECT_EQ(e.dwChannelMask, 0x4u);
  EXPECT_TRUE(IsEqualGUID(e.SubFormat, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT));
  EXPECT_EQ(e.Samples.wValidBitsPerSample, 32);
  ZqAudio_InitWfxFlex(&e.Format, 1, 48000, 16, 2, 0x7, sizeof e);  // more bits than channels: dropped
  EXPECT_EQ(e.Format.wFormatTag, 1);
  ZqAudio_InitWfxFlex(&e.Format, 1, 48000, 16, 6, 0x3F, 39);  // no room for the extensible form
  EXPECT_EQ(e.Format.wFormatTag, 1);
  EXPECT_EQ(e.Format.nBlockAlign, 12);
  ZqAudio_InitWfxFlex(&e.Format, 1, 48000, 16, 6, 0x3F, 40);  // six channels with their mask
  EXPECT_EQ(e.Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
}

TEST(AudioSampleType, EqualityNormaliseFactorAndCanonicalTags) {
  WAVEFORMATEX a = Plain(1, 2, 44100, 16);
  WAVEFORMATEXTENSIBLE e = Extensible(KSDATAFORMAT_SUBTYPE_PCM, 2, 16, 16, 3);
  e.Format.nSamplesPerSec = 44100;
  EXPECT_TRUE(ZqAudio_IsEqualFormat(&a, &e.Format));
  e.Format.nSamplesPerSec = 48000;
  EXPECT_FALSE(ZqAudio_IsEqualFormat(&a, &e.Format));
  EXPECT_EQ(ZqAudio_GetNormalizeFactor(8), 128.0);
  EXPECT_EQ(ZqAudio_GetNormalizeFactor(24), 8388608.0);
  EXPECT_EQ(ZqAudio_GetNormalizeFactor(32), 2147483648.0);
  EXPECT_EQ(ZqAudio_GetNormalizeFactor(20), 1.0);
  const std::pair<WORD, WORD> aliases[] = {{0x14, 2},       {0x17, 2},       {0x40, 2},       {0xD8, 0xFFCA},
                                           {0xFF, 0xA106},  {0x180, 0xA106}, {0x4143, 0xA106}, {0x706D, 0xA106},
                                           {0x215, 0x216},  {0x2003, 0x2002}, {0x674F, 0x6771}, {0x6750, 0x6771},
                                           {0x6751, 0x6771}, {0x676F, 0x6771}, {0x6770, 0x6771}, {0x6771, 0x6771}};
  for (auto [from, to] : aliases) EXPECT_EQ(ZqAudio_ConvertToCanonicalWaveFormatTag(from), to) << from;
  for (WORD tag : {0, 1, 2, 0x15, 0x216, 0x6752, 0xFFFF}) EXPECT_EQ(ZqAudio_ConvertToCanonicalWaveFormatTag(tag), tag);
}

TEST(AudioWaveFormat, RecordInitFromWfx) {
  alignas(8) BYTE storage[sizeof(_zqwaveformat)];
  std::memset(storage, 0xEE, sizeof storage);
  auto* f = reinterpret_cast<_zqwaveformat*>(storage);
  WAVEFORMATEX w20 = Plain(1, 2, 44100, 20, 6);
  f->Init(33, &w20);  // room 33: 33 bytes cleared, size 32
  EXPECT_EQ(f->size, 32u);
  EXPECT_EQ(storage[32], 0);
  EXPECT_EQ(storage[33], 0xEE);
  EXPECT_EQ(f->sampleType, 18);
  EXPECT_EQ(f->BitsPerSample(), 24);
  EXPECT_EQ(f->blockAlign, 6);
  EXPECT_FALSE(f->IsCompressed());

  WAVEFORMATEX odd = Plain(1, 2, 44100, 16, 3);  // strange block align is repaired
  f->Init(32, &odd);
  EXPECT_EQ(f->blockAlign, 4);
  EXPECT_EQ(f->sampleType, 17);

  // A compressed format keeps its tag, bits and extra data, cut to the room.
  BYTE raw[18 + 6];
  WAVEFORMATEX adpcm = Plain(2, 2, 44100, 4, 2048);
  adpcm.cbSize = 6;
  std::memcpy(raw, &adpcm, 18);
  const BYTE extra[6] = {1, 2, 3, 4, 5, 6};
  std::memcpy(raw + 18, extra, 6);
  std::memset(storage, 0xEE, sizeof storage);
  f->Init(38, reinterpret_cast<const WAVEFORMATEX*>(raw));
  EXPECT_TRUE(f->IsCompressed());
  EXPECT_EQ(f->FormatTag(), 2);
  EXPECT_EQ(f->BitsPerSample(), 4);
  EXPECT_EQ(f->extraSize, 4);
  EXPECT_EQ(f->size, 36u);
  EXPECT_EQ(std::memcmp(f->extra, extra, 4), 0);
  EXPECT_EQ(storage[38], 0xEE);

  // Extensible: flag and mask kept; the all-zero sub-format repair.
  WAVEFORMATEXTENSIBLE e = Extensible(GUID{}, 2, 16, 16, 0x3);
  e.Format.nBlockAlign = 32;  // channels times bits
  e.Format.nAvgBytesPerSec = 32 * 48000;
  f->Init(sizeof(_zqwaveformat), &e.Format);
  EXPECT_EQ(f->sampleType, 17);
  EXPECT_NE(f->flags & ZQWF_EXTENSIBLE, 0u);
  EXPECT_EQ(f->channelMask, 3u);
  EXPECT_EQ(f->size, 32u);
}

TEST(AudioWaveFormat, RecordInitAsWfxEqualityAndCopyBack) {
  _zqwaveformat a, b;
  a.Init(44100, 17, 2, 0, 32);
  b.Init(44100, 17, 2, 3, 32);
  EXPECT_EQ(a.blockAlign, 4);
  EXPECT_EQ(a.bytesPerSecond, 176400u);
  EXPECT_TRUE(a == b);  // mask 0 is the default mask
  b.channelMask = 1;
  EXPECT_FALSE(a == b);
  WAVEFORMATEX w = Plain(1, 2, 44100, 16);
  EXPECT_TRUE(a == w);
  w.nSamplesPerSec = 48000;
  EXPECT_FALSE(a == w);

  a.InitAsWfx(1, 44100, 20, 2, 12345, 32);
  EXPECT_EQ(a.sampleType, 18);
  EXPECT_EQ(a.blockAlign, 6);
  EXPECT_EQ(a.bytesPerSecond, 264600u);  // the caller's value is not used for a known type
  a.InitAsWfx(0x55, 44100, 0, 2, 16000, 40);
  EXPECT_TRUE(a.IsCompressed());
  EXPECT_EQ(a.FormatTag(), 0x55);
  EXPECT_EQ(a.bytesPerSecond, 16000u);
  EXPECT_EQ(a.size, 40u);

  _zqwaveformat m;
  m.Init(48000, 32, 6, 0, 32);
  _zqwaveformat_wfxecopyhelper ext(m);
  const WAVEFORMATEX* out = ext;
  EXPECT_EQ(out->wFormatTag, WAVE_FORMAT_EXTENSIBLE);
  EXPECT_EQ(ZqAudio_GetSampleType(out), 32);
  _zqwaveformat_wfxcopyhelper plain(m);
  EXPECT_EQ(static_cast<const WAVEFORMATEX*>(plain)->wFormatTag, 3);
  EXPECT_TRUE(m == *static_cast<const WAVEFORMATEX*>(plain));

  WAVEFORMATEXTENSIBLE auto40{};
  m.channelMask = 0x33;
  EXPECT_EQ(ZqAudio_GeneralCopyWfx(&auto40.Format, 40, &m, ZQWFCOPY_AUTO), 40u);
  EXPECT_EQ(auto40.dwChannelMask, 0x33u);
  EXPECT_EQ(ZqAudio_GeneralCopyWfx(&auto40.Format, 39, &m, ZQWFCOPY_AUTO), 18u);

  WAVEFORMATEXTENSIBLE x{};
  const WAVEFORMATEX p16 = Plain(1, 2, 44100, 16);
  ZqAudio_CopyWfxToWfExt(&p16, &x);
  EXPECT_TRUE(IsEqualGUID(x.SubFormat, KSDATAFORMAT_SUBTYPE_PCM));
  EXPECT_EQ(x.dwChannelMask, 3u);
  WAVEFORMATEX back{};
  ZqAudio_CopyWfExtToWfx(&x, &back);
  EXPECT_EQ(std::memcmp(&back, &p16, sizeof back), 0);
}

TEST(AudioWaveFormat, FillSilence) {
  BYTE buf[16];
  _zqwaveformat f;
  f.Init(8000, 16, 2, 0, 32);
  std::memset(buf, 0x11, sizeof buf);
  EXPECT_EQ(ZqAudio_FillSilence(&f, buf, 3), S_OK);
  EXPECT_EQ(buf[5], 0x80);
  EXPECT_EQ(buf[6], 0x11);  // block align times frames, not more
  f.Init(8000, 49, 2, 0, 32);
  EXPECT_EQ(ZqAudio_FillSilence(&f, buf, 3), S_OK);
  EXPECT_EQ(buf[0], 0);
  f.InitAsWfx(0x55, 8000, 0, 2, 1000, 32);
  EXPECT_EQ(ZqAudio_FillSilence(&f, buf, 3), E_FAIL);

  WAVEFORMATEX be8 = Plain(0xFE02, 1, 8000, 8);
  std::memset(buf, 0x11, sizeof buf);
  EXPECT_EQ(ZqAudio_FillSilence(&be8, buf, 2), S_OK);
  EXPECT_EQ(buf[1], 0x80);  // unsigned at 8 bits
  WAVEFORMATEX s8 = Plain(0xFE01, 1, 8000, 8);
  EXPECT_EQ(ZqAudio_FillSilence(&s8, buf, 2), S_OK);
  EXPECT_EQ(buf[1], 0);
  WAVEFORMATEXTENSIBLE e = Extensible(KSDATAFORMAT_SUBTYPE_PCM, 1, 8, 8, 1);
  std::memset(buf, 0x11, sizeof buf);
  EXPECT_EQ(ZqAudio_FillSilence(&e.Format, buf, 2), S_OK);
  EXPECT_EQ(buf[0], 0x80);
  GUID other = KSDATAFORMAT_SUBTYPE_PCM;
  other.Data1 = 0x55;
  e = Extensible(other, 1, 8, 8, 1);
  std::memset(buf, 0x11, sizeof buf);
  EXPECT_EQ(ZqAudio_FillSilence(&e.Format, buf, 2), S_OK);  // another sub-format: nothing
  EXPECT_EQ(buf[0], 0x11);
  WAVEFORMATEX mp3 = Plain(0x55, 2, 44100, 0, 1);
  EXPECT_EQ(ZqAudio_FillSilence(&mp3, buf, 2), E_FAIL);
}

TEST(AudioWaveFormat, Texts) {
  WCHAR buf[64];
  EXPECT_EQ(Text(ZqAudio_GetSampleTypeText(17, buf, 64)), u"16 Bit");
  EXPECT_EQ(Text(ZqAudio_GetSampleTypeText(33, buf, 64)), u"64 Bit (IEEE Float)");
  EXPECT_EQ(Text(ZqAudio_GetSampleTypeText(48, buf, 64)), u"24 Bit (Unpacked)");
  EXPECT_EQ(Text(ZqAudio_GetSampleTypeText(49, buf, 64)), u"8 Bit (Signed)");
  EXPECT_EQ(Text(ZqAudio_GetSampleTypeText(66, buf, 64)), u"32 Bit (MAC)");
  EXPECT_EQ(Text(ZqAudio_GetSampleTypeText(129, buf, 64)), u"24 Bit (RA)");
  EXPECT_EQ(Text(ZqAudio_GetBitDepthText(32, buf, 64)), u"32 Bit");
  EXPECT_EQ(Text(ZqAudio_GetBitDepthText(48, buf, 64)), u"24 Bit");
  EXPECT_EQ(Text(ZqAudio_GetSampleTypeText(0, buf, 64)), u"");
  EXPECT_NE(ZqAudio_GetSampleTypeText(0, buf, 64), buf);  // the empty literal
  EXPECT_EQ(Text(ZqAudio_GetSampleTypeText(32, buf, 4)), u"32 ");  // cut to the buffer
  _zqwaveformat f;
  f.Init(44100, 64, 2, 0, 32);
  EXPECT_EQ(Text(ZqAudio_GetSampleTypeText(&f, buf, 64)), u"16 Bit (MAC)");
}

}  // namespace
