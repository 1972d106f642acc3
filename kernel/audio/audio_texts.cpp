// Display texts of the sample types.  The English texts stand here in one
// table until the kernel's string table takes them over.
#include <cstdio>

#include "kernel/audio/waveformat.h"

namespace {

enum TextId { kNone, kBits, kBitsFloat, kBitsUnpacked, kBitsSigned, kBitsBigEndian, kBitsLowWord };

// One text per id; "%d" is the number of bits of the type.
constexpr const char* kEnglish[] = {
    "", "%d Bit", "%d Bit (IEEE Float)", "%d Bit (Unpacked)", "%d Bit (Signed)", "%d Bit (MAC)", "%d Bit (RA)",
};

struct TypeText {
  TextId sampleText;
  int bits;  // the number shown
};

TypeText Lookup(ZQSAMPLETYPE type) {
  switch (type) {
    case ZQSAMPLE_PCM8:
    case ZQSAMPLE_PCM16:
    case ZQSAMPLE_PCM24:
    case ZQSAMPLE_PCM32: return {kBits, ZqAudio_BitsFromSampleType(type)};
    case ZQSAMPLE_FLOAT32:
    case ZQSAMPLE_FLOAT64: return {kBitsFloat, ZqAudio_BitsFromSampleType(type)};
    case ZQSAMPLE_PCM24IN32: return {kBitsUnpacked, 24};
    case ZQSAMPLE_PCM8S: return {kBitsSigned, 8};
    case ZQSAMPLE_PCM16BE:
    case ZQSAMPLE_PCM24BE:
    case ZQSAMPLE_PCM32BE: return {kBitsBigEndian, ZqAudio_BitsFromSampleType(type)};
    // These have no entry in the type table; the number is their value bits.
    case ZQSAMPLE_LOW16IN32: return {kBitsLowWord, 16};
    case ZQSAMPLE_LOW24IN32: return {kBitsLowWord, 24};
  }
  return {kNone, 0};
}

const WCHAR* Format(TextId id, int bits, WCHAR* buffer, int size) {
  static const WCHAR kEmpty[] = u"";
  if (id == kNone || !buffer || size <= 0) return kEmpty;
  char narrow[64];
  const int n = std::snprintf(narrow, sizeof narrow, kEnglish[id], bits);
  int i = 0;
  for (; i < n && i < size - 1; ++i) buffer[i] = WCHAR(static_cast<unsigned char>(narrow[i]));
  buffer[i] = 0;
  return buffer;
}

}  // namespace

ZQ_API const WCHAR* ZqAudio_GetSampleTypeText(ZQSAMPLETYPE type, WCHAR* buffer, int size) {
  const TypeText t = Lookup(type);
  return Format(t.sampleText, t.bits, buffer, size);
}

ZQ_API const WCHAR* ZqAudio_GetBitDepthText(ZQSAMPLETYPE type, WCHAR* buffer, int size) {
  const TypeText t = Lookup(type);
  return Format(t.sampleText == kNone ? kNone : kBits, t.bits, buffer, size);
}

ZQ_EXPORT const WCHAR* ZqAudio_GetSampleTypeText(const _zqwaveformat* format, WCHAR* buffer, int size) {
  return ZqAudio_GetSampleTypeText(format ? format->sampleType : 0, buffer, size);
}

ZQ_EXPORT const WCHAR* ZqAudio_GetBitDepthText(const _zqwaveformat* format, WCHAR* buffer, int size) {
  return ZqAudio_GetBitDepthText(format ? format->sampleType : 0, buffer, size);
}
