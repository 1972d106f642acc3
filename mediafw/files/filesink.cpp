#include "mediafw/files/filesink.h"

#include <sndfile.h>

#include <vector>

#include "kernel/audio/waveformat.h"
#include "base/status.h"
#include "platform/file.h"
#include "platform/text.h"

struct CZqFileSink::File {
  SNDFILE* sf = nullptr;
  bool created = false;  // the path did not exist before
  ZQSAMPLETYPE type = 0;
  int channels = 0;
  int blockAlign = 0;
  std::vector<int> wide;  // 8 and 24-bit samples on their way to the codec
};

namespace {

// The codec's container for a file name, or 0.
int ContainerFromPath(std::u16string_view path) {
  size_t dot = path.rfind(u'.');
  size_t slash = path.rfind(u'/');
  if (dot == std::u16string_view::npos || (slash != std::u16string_view::npos && slash > dot)) return 0;
  std::u16string ext(path.substr(dot + 1));
  for (char16_t& c : ext)
    if (c >= u'A' && c <= u'Z') c = char16_t(c - u'A' + u'a');
  if (ext == u"wav") return SF_FORMAT_WAV;
  if (ext == u"aif" || ext == u"aiff") return SF_FORMAT_AIFF;
  if (ext == u"flac") return SF_FORMAT_FLAC;
  return 0;
}

// The sample types the sink writes, and the codec's encoding for each.
int EncodingFor(ZQSAMPLETYPE type, int container) {
  switch (type) {
    case ZQSAMPLE_PCM8: return container == SF_FORMAT_WAV ? SF_FORMAT_PCM_U8 : SF_FORMAT_PCM_S8;
    case ZQSAMPLE_PCM16: return SF_FORMAT_PCM_16;
    case ZQSAMPLE_PCM24: return SF_FORMAT_PCM_24;
    case ZQSAMPLE_PCM32: return SF_FORMAT_PCM_32;
    case ZQSAMPLE_FLOAT32: return SF_FORMAT_FLOAT;
    case ZQSAMPLE_FLOAT64: return SF_FORMAT_DOUBLE;
    default: return 0;
  }
}

const WAVEFORMATEX* WaveFormatOf(const AM_MEDIA_TYPE& mt) {
  if (!IsEqualGUID(mt.majortype, MEDIATYPE_Audio) || !IsEqualGUID(mt.formattype, FORMAT_WaveFormatEx) ||
      mt.cbFormat < sizeof(WAVEFORMATEX) || mt.pbFormat == nullptr)
    return nullptr;
  const auto* wfx = reinterpret_cast<const WAVEFORMATEX*>(mt.pbFormat);
  if (mt.cbFormat < sizeof(WAVEFORMATEX) + wfx->cbSize) return nullptr;
  if (wfx->nChannels == 0 || wfx->nSamplesPerSec == 0 || wfx->nSamplesPerSec > 0x7FFFFFFF) return nullptr;
  return wfx;
}

}  // namespace

class CZqFileSink::Pin final : public CBaseInputPin {
 public:
  Pin(CZqFileSink* sink, HRESULT* phr)
      : CBaseInputPin(u"file sink pin", sink, &sink->m_csFilter, phr, u"In"), m_sink(sink) {}

  HRESULT CheckMediaType(const CMediaType* pmt) override {
    const WAVEFORMATEX* wfx = WaveFormatOf(*pmt);
    if (wfx == nullptr) return VFW_E_TYPE_NOT_ACCEPTED;
    ZQSAMPLETYPE type = ZqAudio_GetSampleType(wfx);
    if (EncodingFor(type, SF_FORMAT_WAV) == 0 ||
        wfx->nBlockAlign != ZqAudio_BytesFromSampleType(type) * wfx->nChannels)
      return VFW_E_TYPE_NOT_ACCEPTED;
    // With a file name known, the container must take the encoding too.
    CAutoLock lock(&m_sink->m_csData);
    if (m_sink->m_container != 0) {
      SF_INFO info{};
      info.samplerate = int(wfx->nSamplesPerSec);
      info.channels = wfx->nChannels;
      info.format = m_sink->m_container | EncodingFor(type, m_sink->m_container);
      if (!sf_format_check(&info)) return VFW_E_TYPE_NOT_ACCEPTED;
    }
    return S_OK;
  }

  HRESULT Active() override {
    HRESULT hr = CBaseInputPin::Active();
    if (FAILED(hr)) return hr;
    return m_sink->OpenFile();
  }

  HRESULT Inactive() override {
    HRESULT hr = CBaseInputPin::Inactive();
    m_sink->CloseFile(false);
    return hr;
  }

  HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override {
    HRESULT hr = CBaseInputPin::Receive(pSample);
    if (hr != S_OK) return hr;
    return m_sink->Write(pSample);
  }

  HRESULT STDMETHODCALLTYPE EndOfStream() override {
    HRESULT hr = CheckStreaming();
    if (hr != S_OK) return hr;
    HRESULT closed = m_sink->CloseFile(false);
    HRESULT status;
    {
      CAutoLock lock(&m_sink->m_csData);
      if (FAILED(closed) && m_sink->m_status == S_OK) m_sink->m_status = closed;
      status = m_sink->m_status;
    }
    m_sink->m_eos.Set();
    if (FAILED(closed))
      m_sink->NotifyEvent(EC_ERRORABORT, closed, 0);
    else
      m_sink->NotifyEvent(EC_COMPLETE, status, 0);
    return S_OK;
  }

 private:
  CZqFileSink* m_sink;
};

CZqFileSink::CZqFileSink(IUnknown* outer) : CBaseFilter(u"file sink", outer, &m_csFilter, kClsid) {
  HRESULT hr = S_OK;
  m_pPin = new Pin(this, &hr);
}

CZqFileSink::~CZqFileSink() {
  CloseFile(false);
  delete m_pPin;
}

HRESULT CZqFileSink::Create(CZqFileSink** sink) {
  if (sink == nullptr) return E_POINTER;
  *sink = new (std::nothrow) CZqFileSink();
  if (*sink == nullptr) return E_OUTOFMEMORY;
  (*sink)->NonDelegatingAddRef();
  return S_OK;
}

CBasePin* CZqFileSink::GetPin(int n) { return n == 0 ? m_pPin : nullptr; }

CBaseInputPin* CZqFileSink::InputPin() { return m_pPin; }

HRESULT CZqFileSink::SetFileName(LPCWSTR path) {
  if (path == nullptr) return E_POINTER;
  CAutoLock lockFilter(&m_csFilter);
  if (!IsStopped()) return VFW_E_WRONG_STATE;
  int container = ContainerFromPath(path);
  if (container == 0) return ZQ_E_BAD_FILE_NAME;
  CAutoLock lock(&m_csData);
  m_path = path;
  m_container = container;
  return S_OK;
}

void CZqFileSink::FailWrite(LONG nth, LONG count) {
  CAutoLock lock(&m_csData);
  m_writeFault = ZqFaultPlan{nth, count, ZQ_E_WRITE_FILE, 0};
}

LONGLONG CZqFileSink::FramesWritten() {
  CAutoLock lock(&m_csData);
  return m_frames;
}

HRESULT CZqFileSink::StreamStatus() {
  CAutoLock lock(&m_csData);
  return m_status;
}

HRESULT CZqFileSink::WaitForEndOfStream(DWORD milliseconds) { return m_eos.Wait(milliseconds) ? S_OK : E_ABORT; }

HRESULT CZqFileSink::OpenFile() {
  CAutoLock lock(&m_csData);
  m_frames = 0;
  m_status = S_OK;
  m_eos.Reset();
  if (m_file != nullptr) return S_OK;
  if (m_container == 0) return m_status = ZQ_E_BAD_FILE_NAME;
  const WAVEFORMATEX* wfx = WaveFormatOf(m_pPin->CurrentMediaType());
  if (wfx == nullptr) return m_status = VFW_E_NOT_CONNECTED;
  ZQSAMPLETYPE type = ZqAudio_GetSampleType(wfx);

  SF_INFO info{};
  info.samplerate = int(wfx->nSamplesPerSec);
  info.channels = wfx->nChannels;
  info.format = m_container | EncodingFor(type, m_container);
  auto* file = new (std::nothrow) File;
  if (file == nullptr) return m_status = E_OUTOFMEMORY;
  file->created = GetFileAttributesW(m_path.c_str()) == INVALID_FILE_ATTRIBUTES;
  file->sf = sf_open(ZqUtf16ToUtf8(m_path).c_str(), SFM_WRITE, &info);
  if (file->sf == nullptr) {
    delete file;
    return m_status = ZQ_E_CREATE_FILE;
  }
  file->type = type;
  file->channels = wfx->nChannels;
  file->blockAlign = wfx->nBlockAlign;
  m_file = file;
  return S_OK;
}

HRESULT CZqFileSink::Write(IMediaSample* sample) {
  CAutoLock lock(&m_csData);
  if (m_file == nullptr) return FAILED(m_status) ? m_status : VFW_E_WRONG_STATE;
  BYTE* p = nullptr;
  HRESULT hr = sample->GetPointer(&p);
  if (FAILED(hr)) return hr;
  const LONG length = sample->GetActualDataLength();
  const sf_count_t frames = length > 0 ? length / m_file->blockAlign : 0;
  if (frames == 0) return S_OK;

  hr = m_writeFault.Next();
  sf_count_t written = 0;
  if (SUCCEEDED(hr)) {
    SNDFILE* sf = m_file->sf;
    const size_t values = size_t(frames) * size_t(m_file->channels);
    switch (m_file->type) {
      case ZQSAMPLE_PCM8:
      case ZQSAMPLE_PCM24: {
        // Widened to the top of an int: the codec narrows it back exactly.
        std::vector<int>& wide = m_file->wide;
        wide.resize(values);
        if (m_file->type == ZQSAMPLE_PCM8) {
          for (size_t i = 0; i < values; ++i) wide[i] = int(uint32_t(p[i] ^ 0x80) << 24);
        } else {
          for (size_t i = 0; i < values; ++i)
            wide[i] = int(uint32_t(p[3 * i]) << 8 | uint32_t(p[3 * i + 1]) << 16 | uint32_t(p[3 * i + 2]) << 24);
        }
        written = sf_writef_int(sf, wide.data(), frames);
        break;
      }
      case ZQSAMPLE_PCM16:
        written = sf_writef_short(sf, reinterpret_cast<const short*>(p), frames);
        break;
      case ZQSAMPLE_PCM32:
        written = sf_writef_int(sf, reinterpret_cast<const int*>(p), frames);
        break;
      case ZQSAMPLE_FLOAT32:
        written = sf_writef_float(sf, reinterpret_cast<const float*>(p), frames);
        break;
      default:
        written = sf_writef_double(sf, reinterpret_cast<const double*>(p), frames);
        break;
    }
    if (written != frames) hr = ZQ_E_WRITE_FILE;
  }
  if (FAILED(hr)) {
    // A file cut short at an unknown point is worse than none.
    m_status = hr;
    CloseFile(true);
    return hr;
  }
  m_frames += frames;
  return S_OK;
}

HRESULT CZqFileSink::CloseFile(bool remove) {
  CAutoLock lock(&m_csData);
  if (m_file == nullptr) return S_OK;
  HRESULT hr = sf_close(m_file->sf) == 0 ? S_OK : ZQ_E_WRITE_FILE;
  if ((remove || FAILED(hr)) && m_file->created) DeleteFileW(m_path.c_str());
  delete m_file;
  m_file = nullptr;
  return hr;
}
