// What the tempo tests share: the tempo class standing alone (with the format
// a filter would give it) and host objects that misbehave.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "aplugins/zqvstwrap/filter/zqvsttempo.h"
#include "aplugins/zqvstwrap/filter/zqvsttimemap.h"
#include "kernel/com/object.h"
#include "base/status.h"

namespace zqtest {

// CMFXTempo as a filter carries it: IUnknown of its own (on the stack, never
// deleted), an input format whose rate the tests choose, and a time record.
class TempoHost final : public CMFXTempo {
 public:
  DWORD rate = 48000;  // 0: no format yet
  ZqVstWrapTimeRecord record{};

  // Builds the next block's time into `record` as the filter does.
  LONG Build(LONG frames, DWORD mask = ZQTIME_FILTER_MASK) { return BuildTimeInfo(frames, mask, &record); }

  // Connects `map`, which keeps the caller's reference.
  template <class T>
  HRESULT ConnectKeeping(T* map) {
    void* unknown = nullptr;
    EXPECT_EQ(map->QueryInterface(IID_IUnknown, &unknown), S_OK);
    return Connect(static_cast<IUnknown*>(unknown));
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_IMfxSoftSynth)) {
      *object = static_cast<IMfxSoftSynth*>(this);
    } else {
      *object = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }

  HRESULT STDMETHODCALLTYPE GetFormat(WAVEFORMATEX* format, LONG direction) override {
    if (direction != 0 || rate == 0) return VFW_E_NOT_CONNECTED;
    memset(format, 0, sizeof *format);
    format->wFormatTag = 3;
    format->nChannels = 2;
    format->nSamplesPerSec = rate;
    format->wBitsPerSample = 32;
    format->nBlockAlign = 8;
    format->nAvgBytesPerSec = rate * 8;
    return S_OK;
  }

  std::atomic<ULONG> refs{1};
};

// A time map at `rate` and `ticksPerQuarter`, owned by the pointer.
inline ZqComPtr<CZqVstTimeMap> MakeMap(DWORD rate = 48000, LONG ticksPerQuarter = 960,
                                       DWORD interfaces = ZQTIMEMAP_ALL) {
  CZqVstTimeMap* map = nullptr;
  EXPECT_EQ(ZqVstCreateTimeMap(rate, ticksPerQuarter, &map), S_OK);
  map->SetInterfaces(interfaces);
  return ZqComPtr<CZqVstTimeMap>::Adopt(map);
}

// Maps that fail every call and write nothing, as a broken host does.
class FailingMaps final : public ZqComObject<FailingMaps, IZqTempoMap, IZqMeterMap> {
 public:
  HRESULT STDMETHODCALLTYPE TicksToMsecs(LONG, LONG*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE MsecsToTicks(LONG, LONG*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE GetTicksPerQuarterNote(LONG*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE GetTempoIndexForTime(LONG, LONG*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE GetTempoCount(LONG*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE GetTempoAt(LONG, LONG*, LONG*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE TicksToMbt(LONG, LONG*, LONG*, LONG*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE MbtToTicks(LONG, LONG, LONG, LONG*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE GetMeterIndexForTime(LONG, LONG*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE GetMeterCount(LONG*) override { return E_FAIL; }
  HRESULT STDMETHODCALLTYPE GetMeterAt(LONG, LONG*, LONG*, LONG*) override { return E_FAIL; }

 private:
  friend class ZqComObject<FailingMaps, IZqTempoMap, IZqMeterMap>;
  ~FailingMaps() = default;
};

// A time information source that records how it was asked.
class RecordingSource final : public ZqComObject<RecordingSource, IZqTimeInfoSource> {
 public:
  struct Call {
    LONGLONG samplePos;
    LONG flags;
    LONG flagsIn;  // info->flags as it arrived
  };
  HRESULT result = S_OK;
  VstTimeInfo answer{};
  std::vector<Call> calls;

  HRESULT STDMETHODCALLTYPE GetTimeInfo(LONGLONG samplePos, LONG flags, VstTimeInfo* info) override {
    calls.push_back({samplePos, flags, info->flags});
    if (result == S_OK) *info = answer;
    return result;
  }

 private:
  friend class ZqComObject<RecordingSource, IZqTimeInfoSource>;
  ~RecordingSource() = default;
};

// Frames of each piece a sample of `frames` is cut into, as the filter's
// Receive cuts it, with the record of each piece.
struct Piece {
  LONG frames;
  ZqVstWrapTimeRecord record;
};
inline std::vector<Piece> CutSample(TempoHost& host, LONG frames) {
  std::vector<Piece> pieces;
  LONG done = 0;
  while (done < frames && pieces.size() < 64) {
    const LONG n = host.Build(frames - done);
    pieces.push_back({n, host.record});
    if (n <= 0) break;
    done += n;
  }
  return pieces;
}

inline std::vector<LONG> FramesOf(const std::vector<Piece>& pieces) {
  std::vector<LONG> frames;
  for (const auto& p : pieces) frames.push_back(p.frames);
  return frames;
}

}  // namespace zqtest
