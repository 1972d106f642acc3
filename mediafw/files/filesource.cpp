#include "mediafw/files/filesource.h"

#include <sndfile.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "base/status.h"
#include "platform/file.h"
#include "platform/text.h"

namespace {

// Values in one pass through the staging buffer of the narrowed types.
constexpr size_t kChunkValues = 16384;

struct SndFileCloser {
  void operator()(SNDFILE* f) const { sf_close(f); }
};

bool IsReadType(ZQSAMPLETYPE type) {
  return type == ZQSAMPLE_PCM8 || type == ZQSAMPLE_PCM16 || type == ZQSAMPLE_PCM24 || type == ZQSAMPLE_PCM32 ||
         type == ZQSAMPLE_FLOAT32 || type == ZQSAMPLE_FLOAT64;
}

// The read type that holds the codec's encoding as it is.
ZQSAMPLETYPE TypeOfEncoding(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
      return ZQSAMPLE_PCM16;
    case SF_FORMAT_PCM_24:
      return ZQSAMPLE_PCM24;
    case SF_FORMAT_PCM_32:
      return ZQSAMPLE_PCM32;
    case SF_FORMAT_DOUBLE:
      return ZQSAMPLE_FLOAT64;
    default:
      return ZQSAMPLE_FLOAT32;
  }
}

sf_count_t ReadInto(SNDFILE* f, short* out, sf_count_t frames) { return sf_readf_short(f, out, frames); }
sf_count_t ReadInto(SNDFILE* f, int* out, sf_count_t frames) { return sf_readf_int(f, out, frames); }
sf_count_t ReadInto(SNDFILE* f, float* out, sf_count_t frames) { return sf_readf_float(f, out, frames); }
sf_count_t ReadInto(SNDFILE* f, double* out, sf_count_t frames) { return sf_readf_double(f, out, frames); }

}  // namespace

struct CZqFileSource::Reader {
  std::unique_ptr<SNDFILE, SndFileCloser> file;
  ZQSAMPLETYPE type = ZQSAMPLE_NONE;
  size_t channels = 0;
  size_t blockAlign = 0;
  ULONGLONG position = 0;  // the codec's next frame
  // 8-bit samples come from the codec as 16-bit and 24-bit ones as 32-bit,
  // through here; the other types are read straight into the sample.
  std::vector<short> narrow8;
  std::vector<int> narrow24;

  // Up to `frames` frames into `out`, read through the codec as T; fewer
  // only at the end of the file or when a read fails.
  template <typename T>
  ULONG ReadDirect(BYTE* out, ULONG frames) {
    ULONG done = 0;
    while (done < frames) {
      const sf_count_t got = ReadInto(file.get(), reinterpret_cast<T*>(out + done * blockAlign), frames - done);
      if (got <= 0) break;
      done += ULONG(got);
    }
    return done;
  }

  // The same through a staging buffer, each value narrowed by `put`.
  template <typename T, typename Put>
  ULONG ReadNarrowed(std::vector<T>& chunk, BYTE* out, ULONG frames, Put put) {
    const ULONG chunkFrames = ULONG(chunk.size() / channels);
    ULONG done = 0;
    while (done < frames) {
      const sf_count_t got = ReadInto(file.get(), chunk.data(), std::min(chunkFrames, frames - done));
      if (got <= 0) break;
      const size_t values = size_t(got) * channels;
      BYTE* dst = out + done * blockAlign;
      for (size_t i = 0; i < values; ++i) put(chunk[i], dst, i);
      done += ULONG(got);
    }
    return done;
  }

  ULONG Read(BYTE* out, ULONG frames) {
    switch (type) {
      case ZQSAMPLE_PCM8:
        // 8 bits are unsigned: the top byte, moved up by half the range.
        return ReadNarrowed(narrow8, out, frames, [](short v, BYTE* dst, size_t i) {
          dst[i] = BYTE((uint32_t(uint16_t(v)) >> 8) ^ 0x80);
        });
      case ZQSAMPLE_PCM24:
        // 24 bits packed: the top three bytes of each 32-bit value.
        return ReadNarrowed(narrow24, out, frames, [](int v, BYTE* dst, size_t i) {
          const uint32_t u = uint32_t(v);
          dst[3 * i] = BYTE(u >> 8);
          dst[3 * i + 1] = BYTE(u >> 16);
          dst[3 * i + 2] = BYTE(u >> 24);
        });
      case ZQSAMPLE_PCM16:
        return ReadDirect<short>(out, frames);
      case ZQSAMPLE_PCM32:
        return ReadDirect<int>(out, frames);
      case ZQSAMPLE_FLOAT32:
        return ReadDirect<float>(out, frames);
      default:
        return ReadDirect<double>(out, frames);
    }
  }
};

CZqFileSource::~CZqFileSource() {
  StopStreaming();
  delete m_reader;
}

HRESULT CZqFileSource::Create(CZqFileSource** source) {
  if (source == nullptr) return E_POINTER;
  *source = new (std::nothrow) CZqFileSource();
  if (*source == nullptr) return E_OUTOFMEMORY;
  (*source)->NonDelegatingAddRef();
  return S_OK;
}

HRESULT CZqFileSource::Open(LPCWSTR path, ZQSAMPLETYPE type, bool extensible) {
  if (path == nullptr) return E_POINTER;
  if (type != kFileFormat && !IsReadType(type)) return E_INVALIDARG;

  // The codec opens a folder and then finds no audio in it; that is a path
  // that cannot be opened, not a bad file.
  DWORD attributes = GetFileAttributesW(path);
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return ZQ_E_OPEN_FILE;
  SF_INFO info{};
  std::unique_ptr<SNDFILE, SndFileCloser> file(sf_open(ZqUtf16ToUtf8(path).c_str(), SFM_READ, &info));
  if (!file) return sf_error(nullptr) == SF_ERR_SYSTEM ? ZQ_E_OPEN_FILE : ZQ_E_BAD_FILE;
  if (info.channels <= 0 || info.channels > 0xFFFF || info.samplerate <= 0 || info.frames < 0) return ZQ_E_BAD_FILE;
  if (type == kFileFormat) type = TypeOfEncoding(info.format);
  const int bytes = ZqAudio_BytesFromSampleType(type);
  if (size_t(bytes) * size_t(info.channels) > 0xFFFF) return ZQ_E_BAD_FILE;
  // Float data read as integers is scaled to full range, not cut to -1..1.
  sf_command(file.get(), SFC_SET_SCALE_FLOAT_INT_READ, nullptr, SF_TRUE);

  WAVEFORMATEXTENSIBLE wfe{};
  ZqAudio_InitWfx(&wfe.Format, DWORD(info.samplerate), type, info.channels);
  if (extensible) {
    const bool isFloat = wfe.Format.wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
    wfe.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    wfe.Format.cbSize = ZQ_WFE_EXTRA_SIZE;
    wfe.Samples.wValidBitsPerSample = wfe.Format.wBitsPerSample;
    wfe.dwChannelMask = 0;  // the file does not say where its channels go
    wfe.SubFormat = isFloat ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM;
  }

  std::unique_ptr<Reader> reader(new (std::nothrow) Reader);
  if (!reader) return E_OUTOFMEMORY;
  reader->type = type;
  reader->channels = size_t(info.channels);
  reader->blockAlign = size_t(wfe.Format.nBlockAlign);
  // At least one frame per pass, however many channels.
  const size_t chunk = std::max(kChunkValues / reader->channels, size_t(1)) * reader->channels;
  try {
    if (type == ZQSAMPLE_PCM8) reader->narrow8.resize(chunk);
    if (type == ZQSAMPLE_PCM24) reader->narrow24.resize(chunk);
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }

  HRESULT hr = SetFormat(&wfe.Format);
  if (FAILED(hr)) return hr;
  reader->file = std::move(file);
  delete m_reader;
  m_reader = reader.release();
  m_fileFrames = info.frames;
  m_type = type;
  return S_OK;
}

HRESULT CZqFileSource::ReadFrames(ULONGLONG first, ULONG frames, BYTE* out, ULONG* got) {
  *got = 0;
  Reader* reader = m_reader;
  if (reader == nullptr) return S_OK;
  if (first != reader->position) {
    // A new start, or a sample asked for again.  A file that cannot go
    // there has nothing more to play, as when a read fails.
    if (sf_seek(reader->file.get(), sf_count_t(first), SEEK_SET) < 0) return S_OK;
    reader->position = first;
  }
  *got = reader->Read(out, frames);
  reader->position += *got;
  return S_OK;
}

LONGLONG CZqFileSource::StreamFrames(bool* exact) {
  // The header's count is a hint: a file cut short or one that says too
  // much gives what it holds.
  *exact = false;
  return m_fileFrames;
}
