// The interfaces a host uses on a filter of one plug-in, beyond the media
// framework's: parameters and editor (IZqVstWrapProp), the effect's state
// (IVstWrapper), property pages, programs and preset files, and the
// language.  A filter is made through DllGetClassObject with the plug-in's
// class identifier (zqvstmapping.h).
#pragma once

#include "aplugins/zqvstwrap/izqtranslationinfo.h"
#include "aplugins/zqvstwrap/izqvsteffect.h"
#include "kernel/audio/waveformat.h"
#include "kernel/com/unknown.h"
#include "base/types.h"
#include "platform/message.h"


// --- Interfaces ------------------------------------------------------------------

// What the pages and the effect's master use of a filter.  Indexes are
// checked as signed values against the parameter count (E_INVALIDARG).
class IZqVstWrapProp : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{4F171CCF-EF24-4CF8-AE0A-E7DA87A339FA}");

  // Normalised values (0..1) of every parameter; stops at the first failure.
  virtual HRESULT STDMETHODCALLTYPE GetAllParams(float* values) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetAllParams(const float* values) = 0;
  virtual int STDMETHODCALLTYPE GetParamCount() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetParamValue(int index, float* value) = 0;
  // With no editor of its own, the plug-in is told at once; with one, the
  // change came from that editor and the plug-in is left alone.
  virtual HRESULT STDMETHODCALLTYPE SetParamValue(int index, float value) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetParamProperties(int index, VstParamProperties* properties) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetParamName(int index, WCHAR* buffer, int length) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetParamDisplay(int index, WCHAR* buffer, int length) = 0;
  // Fills the buffer and answers E_INVALIDARG all the same: callers do not
  // test its result (pages written against it rely on that).
  virtual HRESULT STDMETHODCALLTYPE GetParamLabel(int index, WCHAR* buffer, int length) = 0;
  virtual HRESULT STDMETHODCALLTYPE BeginParamEdit(int index) = 0;
  virtual HRESULT STDMETHODCALLTYPE EndParamEdit(int index) = 0;
  // 1 unless streaming runs and an envelope drives the parameter.
  virtual BOOL STDMETHODCALLTYPE IsParamFree(int index) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetFilterName(WCHAR* buffer, int length) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetHelpDocPath(WCHAR* buffer, int length) = 0;
  // {0, 0, width, height} of the plug-in's editor, measured once.
  virtual HRESULT STDMETHODCALLTYPE GetEditorRect(ZQVSTRECT* rect) = 0;
  // 1 when the plug-in has no editor of its own.
  virtual BOOL STDMETHODCALLTYPE HasNoEditor() = 0;
  virtual HRESULT STDMETHODCALLTYPE OpenEditor(ZQVSTWINDOW window) = 0;
  virtual HRESULT STDMETHODCALLTYPE IdleEditor() = 0;
  virtual HRESULT STDMETHODCALLTYPE CloseEditor() = 0;
  // direction 0 input, 1 output: the 18-byte format.  VFW_E_NOT_CONNECTED
  // for another direction or a format not set yet.
  virtual HRESULT STDMETHODCALLTYPE GetFormat(WAVEFORMATEX* format, LONG direction) = 0;
  // Registers `window` for WM_COMMAND notifications with `id` in the low
  // word; id 0 removes it.  E_OUTOFMEMORY when all four places are taken.
  virtual HRESULT STDMETHODCALLTYPE SetNotifyWindow(HWND window, DWORD id) = 0;
};

class IVstWrapper : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{C91D968B-0309-4F98-A25A-79D618EA0DB5}");
  // Suspend(1) / Resume(1) on the effect; 1 without an effect.
  virtual HRESULT STDMETHODCALLTYPE SuspendEffect() = 0;
  virtual HRESULT STDMETHODCALLTYPE ResumeEffect() = 0;
  // 0 for the one vendor whose plug-ins need special care, else 1.
  virtual BOOL STDMETHODCALLTYPE IsOrdinaryVendor() = 0;
};

struct CAUUID {
  ULONG cElems;
  GUID* pElems;
};

class ISpecifyPropertyPages : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{B196B28B-BAB4-101A-B69C-00AA00341D07}");
  // pElems is task memory the caller frees.
  virtual HRESULT STDMETHODCALLTYPE GetPages(CAUUID* pages) = 0;
};

// Programs of a filter: the part a host of static presets uses.
class IStaticFilterPreset : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{36A22460-0CC9-11D0-8574-00A0C9053912}");
  virtual HRESULT STDMETHODCALLTYPE GetPresetCount(LONG* count) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetPresetName(LONG index, WCHAR* buffer, int length) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetPreset(LONG index) = 0;
};

// Programs, preset and bank files of a filter.
class IVstFilterPreset : public IStaticFilterPreset {
 public:
  using Base = IStaticFilterPreset;
  static constexpr GUID kIid = ZqGuid("{F88AC773-68BC-4D34-B539-17AD4208BA07}");
  virtual HRESULT STDMETHODCALLTYPE LoadPresetFile(const WCHAR* path) = 0;
  virtual HRESULT STDMETHODCALLTYPE SavePresetFile(const WCHAR* path) = 0;
  virtual HRESULT STDMETHODCALLTYPE LoadBankFile(const WCHAR* path) = 0;
  virtual HRESULT STDMETHODCALLTYPE SaveBankFile(const WCHAR* path) = 0;
  virtual HRESULT STDMETHODCALLTYPE LoadPresetDialog(ZQVSTWINDOW parent) = 0;
  virtual HRESULT STDMETHODCALLTYPE SavePresetDialog(ZQVSTWINDOW parent) = 0;
  virtual HRESULT STDMETHODCALLTYPE LoadBankDialog(ZQVSTWINDOW parent) = 0;
  virtual HRESULT STDMETHODCALLTYPE SaveBankDialog(ZQVSTWINDOW parent) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCurrentPresetName(WCHAR* buffer, int length) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCurrentPreset(LONG* index) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetCurrentPresetName(const WCHAR* name) = 0;
};

inline constexpr GUID IID_IZqVstWrapProp = IZqVstWrapProp::kIid;
inline constexpr GUID IID_IVstWrapper = IVstWrapper::kIid;
inline constexpr GUID IID_ISpecifyPropertyPages = ISpecifyPropertyPages::kIid;
inline constexpr GUID IID_IStaticFilterPreset = IStaticFilterPreset::kIid;
inline constexpr GUID IID_IVstFilterPreset = IVstFilterPreset::kIid;

// Codes of the WM_COMMAND notifications (the high word of wParam).
constexpr DWORD ZQVSTNOTIFY_INPUT_TYPE = 0;       // input type set, or a parameter set by the host
constexpr DWORD ZQVSTNOTIFY_OUTPUT_TYPE = 1;      // output type set
constexpr DWORD ZQVSTNOTIFY_PROGRAM = 100;        // program, preset or whole state changed
constexpr DWORD ZQVSTNOTIFY_EDITOR_SIZE = 200;    // the editor asked for a new size
constexpr DWORD ZQVSTNOTIFY_DISPLAY = 300;        // the plug-in changed cached parameters
