// A sink filter that writes what reaches it to an audio file, in the sample
// format it receives.  One input pin ("In").
//
// The container follows the file name's extension: ".wav", ".aif"/".aiff"
// or ".flac" (case ignored); FLAC takes 8, 16 and 24-bit integers only.  The
// pin takes audio types with a wave format (plain or extensible) whose
// samples are integers of 8, 16, 24 or 32 bits or floats of 32 or 64 bits.
//
// The file is created when the filter leaves the stopped state and closed
// (its header completed) at the end of stream or when the filter stops.  At
// the end of stream the sink reports EC_COMPLETE to its graph, like the
// collecting sink.  When a write fails, Receive answers ZQ_E_WRITE_FILE and
// the partial file is removed -- only when this sink created it, so that a
// device or a file that was there before is never deleted.
//
// Thread safety: configure while stopped; the observations may be read from
// any thread.
#pragma once

#include <string>

#include "mediafw/basefilter.h"

class CZqFileSink : public CBaseFilter {
 public:
  static constexpr CLSID kClsid = ZqGuid("{2F6C0B94-5D1A-4E73-8B6F-0C9A4D2E7B15}");

  explicit CZqFileSink(IUnknown* outer = nullptr);
  ~CZqFileSink() override;
  // A new sink with one reference.
  static HRESULT Create(CZqFileSink** sink);

  // The file to write.  ZQ_E_BAD_FILE_NAME for an extension without a
  // container, VFW_E_WRONG_STATE unless stopped.
  HRESULT SetFileName(LPCWSTR path);
  // The `nth` (from 1) to `nth+count-1`th write fails as a full disk would.
  void FailWrite(LONG nth, LONG count = 1);

  // Frames written since the filter last left the stopped state.
  LONGLONG FramesWritten();
  // The failure that ended the last stream (create, write or close), or S_OK.
  HRESULT StreamStatus();
  // S_OK once an end of stream arrived since the last start, E_ABORT after
  // `milliseconds`.
  HRESULT WaitForEndOfStream(DWORD milliseconds);

  int GetPinCount() override { return 1; }
  CBasePin* GetPin(int n) override;
  CBaseInputPin* InputPin();

 private:
  class Pin;
  friend class Pin;
  struct File;
  HRESULT OpenFile();
  HRESULT Write(IMediaSample* sample);
  // Completes the file; with `remove` deletes it when this sink created it.
  HRESULT CloseFile(bool remove);

  CCritSec m_csFilter;
  CCritSec m_csData;  // the file, the counters
  Pin* m_pPin = nullptr;
  std::u16string m_path;
  int m_container = 0;
  File* m_file = nullptr;
  ZqFaultPlan m_writeFault;
  LONGLONG m_frames = 0;
  HRESULT m_status = S_OK;
  CAMEvent m_eos{TRUE};
};
