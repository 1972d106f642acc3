// What every command of zqvst shares: the library, loaded by file name and
// reached only through its exports and public interfaces; one plug-in's
// filter with the interfaces a host uses; and the way a failed job is told.
#pragma once

#include <string>
#include <vector>

#include "aplugins/zqvstwrap/mediaparams.h"
#include "aplugins/zqvstwrap/mfxtempo.h"
#include "aplugins/zqvstwrap/discovery/zqvstmapping.h"
#include "aplugins/zqvstwrap/izqvstwrap.h"
#include "kernel/com/object.h"
#include "mediafw/interfaces.h"
#include "tools/zqvst/idtext.h"

// Exit statuses.
constexpr int kZqvstExitOk = 0;
constexpr int kZqvstExitJobFailed = 1;
constexpr int kZqvstExitUsage = 2;

// A job that failed: what failed, and the status that says why.  A status
// of S_OK means the message says everything.
struct ZqvstFailure {
  std::string what;
  HRESULT status = S_OK;
  int exitStatus = kZqvstExitJobFailed;  // kZqvstExitUsage for a plug-in named ambiguously
};

// The library a host loads: libzqvstwrap.so.
class ZqvstLibrary {
 public:
  ZqvstLibrary() = default;
  ~ZqvstLibrary();
  ZqvstLibrary(const ZqvstLibrary&) = delete;
  ZqvstLibrary& operator=(const ZqvstLibrary&) = delete;

  // $ZQVST_LIBRARY when set, otherwise ../lib/libzqvstwrap.so.0 from the
  // program's folder (the layout of both the build tree and an installation).
  static std::string DefaultPath();

  bool Load(ZqvstFailure* failure);
  bool Loaded() const { return m_module != nullptr; }

  // Every plug-in of this process runs in the companion server from now on,
  // also one the library could load here.  False (with a failure) when the
  // library cannot do that.
  bool Isolate(ZqvstFailure* failure);
  // `uniqueId` picks a shell's sub-plug-in (0: the module's own plug-in).
  HRESULT MapModule(const std::string& path, LONG uniqueId, VstMapping* mapping);
  HRESULT GetTiming(REFCLSID clsid, LONG* latency, LONG* tail);
  HRESULT CreateFilter(REFCLSID clsid, IBaseFilter** filter);
  // Any object of the library by class identifier, through its class
  // object (the catalogue's mapper, a filter).
  HRESULT CreateObject(REFCLSID clsid, REFIID iid, void** object);
  // The library's text for `status` on one line, in the user's language
  // (the language saved for zqvst in the settings store, else the one of
  // LANGUAGE, LC_ALL, LC_MESSAGES and LANG); empty when it has none (or the
  // library is not loaded, or too old to tell).
  std::string StatusText(HRESULT status) const;

 private:
  HMODULE m_module = nullptr;
  HRESULT (*m_getClassObject)(REFCLSID, REFIID, void**) = nullptr;
  HRESULT (*m_mapModule)(const WCHAR*, LONG, DWORD, VstMapping*) = nullptr;
  HRESULT (*m_getTiming)(REFCLSID, LONG*, LONG*) = nullptr;
  const char* (*m_statusText)(HRESULT) = nullptr;
  const WCHAR* (*m_localStatusText)(HRESULT) = nullptr;

  void FollowUserLanguage();
  void KeepBoxesOnOneLine();
};

// One line on standard error for a failed job:
//   zqvst: <what>: <status text> (0x8004E00A)
// The text comes from the library when it has one.
void ZqvstReport(const ZqvstLibrary* library, const ZqvstFailure& failure);
// A misuse of the command line: one line and a hint.
void ZqvstReportUsage(const std::string& command, const std::string& message);

// One plug-in made into a filter through the library, as any host does:
// map the module, ask its class object for a filter, query the interfaces.
class ZqvstPlugin {
 public:
  struct ParamDescription {
    DWORD index = 0;
    std::string name;
    MP_PARAMINFO info{};
    std::vector<std::string> enumNames;  // from GetParamText
    std::string paramLabel;              // GetParamText's label
    std::string paramUnit;               // GetParamText's unit
    std::string display;                 // the plug-in's display text
    std::string label;                   // and its label (unit)
  };

  ZqvstPlugin() = default;
  ~ZqvstPlugin();
  ZqvstPlugin(const ZqvstPlugin&) = delete;
  ZqvstPlugin& operator=(const ZqvstPlugin&) = delete;

  // `plugin` is what the user gave: a module path, "PATH:ITEM" for a
  // shell's sub-plug-in, or a plug-in of the catalogue (see catalog.h).
  bool Open(ZqvstLibrary* library, const std::string& plugin, ZqvstFailure* failure);
  // Drops the filter and its interfaces.
  void Close();

  const VstMapping& Mapping() const { return m_mapping; }
  const std::string& ModulePath() const { return m_path; }
  REFCLSID Clsid() const { return m_mapping.Clsid; }
  LONG Latency() const { return m_latency; }
  LONG Tail() const { return m_tail; }

  // E_NOINTERFACE with a failure naming `name` when `which` is null.
  HRESULT Need(const void* which, const char* name, ZqvstFailure* failure) const;

  // The filter, and the interfaces it offers (null for those it lacks).
  IBaseFilter* Filter() const { return m_filter.Get(); }
  IZqVstWrapProp* Prop() const { return m_prop.Get(); }
  IMediaParams* Params() const { return m_params.Get(); }
  IMediaParamInfo* ParamInfo() const { return m_paramInfo.Get(); }
  IVstFilterPreset* Presets() const { return m_presets.Get(); }
  IMfxSoftSynth* Synth() const { return m_synth.Get(); }

  DWORD ParamCount() const;
  // Everything a host can learn of parameter `index`.
  bool DescribeParam(DWORD index, ParamDescription* out, ZqvstFailure* failure) const;
  // A parameter by its plain decimal index or by its name (case ignored);
  // with `byNameOnly` a text of digits is a name too (a quoted "3" in an
  // automation file).
  bool FindParam(const std::string& text, DWORD* index, ZqvstFailure* failure, bool byNameOnly = false) const;
  // Sets a parameter in its outward units, checked against its range.
  bool SetParam(const std::string& param, double value, ZqvstFailure* failure);
  // Selects program `index`.
  bool SetProgram(long index, ZqvstFailure* failure);

 private:
  std::string m_path;
  VstMapping m_mapping{};
  LONG m_latency = 0;
  LONG m_tail = 0;
  ZqComPtr<IBaseFilter> m_filter;
  ZqComPtr<IZqVstWrapProp> m_prop;
  ZqComPtr<IMediaParams> m_params;
  ZqComPtr<IMediaParamInfo> m_paramInfo;
  ZqComPtr<IVstFilterPreset> m_presets;
  ZqComPtr<IMfxSoftSynth> m_synth;
};

// The example plug-in that render and info use without --plugin: the
// installed copy next to the library, or the one in the build tree.
std::string ZqvstDefaultPlugin();

// Text conversions for the interfaces' 16-bit text.
std::string ZqvstNarrow(const WCHAR* text);
std::u16string ZqvstWiden(const std::string& text);
// The folder part of `path` with its trailing "/", or "" for a bare name.
std::string ZqvstFolderOf(const std::string& path);
