#include "mediafw/files/filesource.h"

#include <sndfile.h>

#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "base/status.h"
#include "platform/file.h"
#include "platform/text.h"

namespace {

constexpr sf_count_t kChunkFrames = 4096;

struct SndFileCloser {
  void operator()(SNDFILE* f) const { sf_close(f); }
};

// Appends the frames of `file` to `out` as samples of `bytesPerSample`
// bytes, read through the codec as T, until the file ends.  The header's
// length is only a hint: a file cut short or one that says too much gives
// what it holds.  Answers the frames read.
template <typename T, typename Read>
sf_count_t ReadAll(SNDFILE* file, int channels, int bytesPerSample, std::vector<BYTE>& out, Read read) {
  std::vector<T> chunk(size_t(kChunkFrames) * size_t(channels));
  sf_count_t done = 0;
  for (;;) {
    sf_count_t got = read(file, chunk.data(), kChunkFrames);
    if (got <= 0) break;
    const size_t values = size_t(got) * size_t(channels);
    const size_t at = out.size();
    out.resize(at + values * size_t(bytesPerSample));
    BYTE* dst = out.data() + at;
    if (std::is_same_v<T, short> && bytesPerSample == 1) {
      // 8 bits are unsigned: the top byte, moved up by half the range.
      for (size_t i = 0; i < values; ++i) dst[i] = BYTE((uint32_t(uint16_t(chunk[i])) >> 8) ^ 0x80);
    } else if (std::is_same_v<T, int> && bytesPerSample == 3) {
      // 24 bits packed: the top three bytes of each 32-bit value.
      for (size_t i = 0; i < values; ++i) {
        const uint32_t v = uint32_t(chunk[i]);
        dst[3 * i] = BYTE(v >> 8);
        dst[3 * i + 1] = BYTE(v >> 16);
        dst[3 * i + 2] = BYTE(v >> 24);
      }
    } else {
      std::memcpy(dst, chunk.data(), values * sizeof(T));
    }
    done += got;
  }
  return done;
}

}  // namespace

HRESULT CZqFileSource::Create(CZqFileSource** source) {
  if (source == nullptr) return E_POINTER;
  *source = new (std::nothrow) CZqFileSource();
  if (*source == nullptr) return E_OUTOFMEMORY;
  (*source)->NonDelegatingAddRef();
  return S_OK;
}

HRESULT CZqFileSource::Open(LPCWSTR path, ZQSAMPLETYPE type, bool extensible) {
  if (path == nullptr) return E_POINTER;
  if (type != ZQSAMPLE_PCM8 && type != ZQSAMPLE_PCM16 && type != ZQSAMPLE_PCM24 && type != ZQSAMPLE_PCM32 && type != ZQSAMPLE_FLOAT32 &&
      type != ZQSAMPLE_FLOAT64)
    return E_INVALIDARG;

  // The codec opens a folder and then finds no audio in it; that is a path
  // that cannot be opened, not a bad file.
  DWORD attributes = GetFileAttributesW(path);
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return ZQ_E_OPEN_FILE;
  SF_INFO info{};
  std::unique_ptr<SNDFILE, SndFileCloser> file(sf_open(ZqUtf16ToUtf8(path).c_str(), SFM_READ, &info));
  if (!file) return sf_error(nullptr) == SF_ERR_SYSTEM ? ZQ_E_OPEN_FILE : ZQ_E_BAD_FILE;
  if (info.channels <= 0 || info.channels > 0xFFFF || info.samplerate <= 0 || info.frames < 0) return ZQ_E_BAD_FILE;
  // Float data read as integers is scaled to full range, not cut to -1..1.
  sf_command(file.get(), SFC_SET_SCALE_FLOAT_INT_READ, nullptr, SF_TRUE);

  WAVEFORMATEXTENSIBLE wfe{};
  ZqAudio_InitWfx(&wfe.Format, DWORD(info.samplerate), type, info.channels);
  const int bytes = ZqAudio_BytesFromSampleType(type);
  if (size_t(bytes) * size_t(info.channels) > 0xFFFF) return ZQ_E_BAD_FILE;
  if (extensible) {
    const bool isFloat = wfe.Format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
    wfe.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    wfe.Format.cbSize = ZQ_WFE_EXTRA_SIZE;
    wfe.Samples.wValidBitsPerSample = wfe.Format.wBitsPerSample;
    wfe.dwChannelMask = 0;  // the file does not say where its channels go
    wfe.SubFormat = isFloat ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM;
  }

  std::vector<BYTE> data;
  sf_count_t got = 0;
  try {
    // Room for what the header announces, when that is believable.
    const double announced = double(info.frames) * info.channels * bytes;
    if (announced < double(1u << 30)) data.reserve(size_t(announced));
    SNDFILE* f = file.get();
    switch (type) {
      case ZQSAMPLE_PCM8:
      case ZQSAMPLE_PCM16:
        got = ReadAll<short>(f, info.channels, bytes, data, sf_readf_short);
        break;
      case ZQSAMPLE_PCM24:
      case ZQSAMPLE_PCM32:
        got = ReadAll<int>(f, info.channels, bytes, data, sf_readf_int);
        break;
      case ZQSAMPLE_FLOAT32:
        got = ReadAll<float>(f, info.channels, bytes, data, sf_readf_float);
        break;
      default:
        got = ReadAll<double>(f, info.channels, bytes, data, sf_readf_double);
        break;
    }
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }

  HRESULT hr = SetFormat(&wfe.Format);
  if (SUCCEEDED(hr)) hr = SetData(data.data(), data.size());
  if (SUCCEEDED(hr)) m_fileFrames = got;
  return hr;
}
