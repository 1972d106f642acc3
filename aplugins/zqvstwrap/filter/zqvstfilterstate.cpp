// The filter's saved state (IPersistStream) and its programs, presets and
// banks (IVstFilterPreset, IStaticFilterPreset).
//
// The bytes of a preset or a bank are the effect's business (SavePreset,
// LoadPreset, SaveBank, LoadBank); what is done here is the frame around
// them: the program index in front of the state stream, the files, and the
// refresh of the parameter cache and the pages afterwards.  After a load the
// plug-in's own state is the truth and the cache follows it.
//
// No filter lock is held around a stream or file operation: a plug-in may
// call back through its master while it reads or writes its state, and the
// master's operations take the notification lock.
#include <new>
#include <string>

#include "aplugins/zqvstwrap/filter/zqvstwrap.h"
#include "base/status.h"
#include "kernel/com/object.h"
#include "kernel/containers/streams.h"
#include "kernel/lang.h"
#include "kernel/printf.h"
#include "platform/file.h"
#include "platform/text.h"

namespace {

// Names of programs, as the plug-in interface bounds them and the pages
// show them.
constexpr int kProgramNameLength = 128;
// The library's string resource "Preset %d": the name of an unnamed program.
constexpr UINT kUnnamedPresetText = 1014;

}  // namespace

void CZqVstWrap::RefreshAfterLoad() {
  PullParamsFromEffect();
  NotifyWindows(ZQVSTNOTIFY_PROGRAM);
}

// --- IPersistStream ---------------------------------------------------------------

HRESULT CZqVstWrap::Load(IStream* stream) {
  if (stream == nullptr) return E_POINTER;
  BYTE bytes[4] = {};
  ULONG read = 0;
  HRESULT hr = stream->Read(bytes, 4, &read);
  if (SUCCEEDED(hr)) {
    const LONG index =
        LONG(DWORD(bytes[0]) | (DWORD(bytes[1]) << 8) | (DWORD(bytes[2]) << 16) | (DWORD(bytes[3]) << 24));
    // A program the plug-in no longer has: the preset goes into the first.
    if (FAILED(m_effect->SetProgram(index))) m_effect->SetProgram(0);
    hr = m_effect->LoadPreset(stream);
  }
  // Even a failed load may have moved the plug-in (its program at least).
  RefreshAfterLoad();
  return hr;
}

HRESULT CZqVstWrap::Save(IStream* stream, BOOL clearDirty) {
  if (stream == nullptr) return E_POINTER;
  LONG program = 0;
  if (FAILED(m_effect->GetProgram(&program))) program = 0;
  const DWORD word = DWORD(program);
  const BYTE bytes[4] = {BYTE(word), BYTE(word >> 8), BYTE(word >> 16), BYTE(word >> 24)};
  ULONG written = 0;
  HRESULT hr = stream->Write(bytes, 4, &written);
  if (FAILED(hr)) return hr;
  ULONG size = 0;
  hr = m_effect->SavePreset(stream, &size);
  if (SUCCEEDED(hr) && clearDirty) m_modified = FALSE;
  return hr;
}

HRESULT CZqVstWrap::GetSizeMax(ULARGE_INTEGER* size) {
  if (size) size->QuadPart = 0;
  ULONG presetSize = 0;
  const HRESULT hr = m_effect->SavePreset(nullptr, size ? &presetSize : nullptr);
  if (size) size->QuadPart = ULONGLONG(presetSize) + 4;
  return hr;
}

// --- Programs ---------------------------------------------------------------------

HRESULT CZqVstWrap::GetPresetCount(LONG* count) {
  if (count == nullptr) return E_POINTER;
  *count = m_info.numPrograms;
  return S_OK;
}

HRESULT CZqVstWrap::GetPresetName(LONG index, WCHAR* buffer, int length) {
  if (buffer == nullptr) return E_POINTER;
  if (length <= 0) return E_INVALIDARG;
  // The plug-in writes into a buffer of our own, so that a name longer than
  // it says never reaches the caller's memory untruncated.
  std::u16string name(size_t(length), u'\0');
  const HRESULT hr = m_effect->GetProgramName(index, name.data(), length);
  name.back() = u'\0';
  lstrcpynW(buffer, name.c_str(), length);
  return hr;
}

HRESULT CZqVstWrap::SetPreset(LONG index) {
  const HRESULT hr = m_effect->SetProgram(index);
  RefreshAfterLoad();
  return hr;
}

HRESULT CZqVstWrap::GetCurrentPreset(LONG* index) {
  if (index == nullptr) return S_FALSE;
  *index = 0;
  m_effect->GetProgram(index);
  return S_OK;
}

HRESULT CZqVstWrap::GetCurrentPresetName(WCHAR* buffer, int length) {
  LONG program = 0;
  GetCurrentPreset(&program);
  return GetPresetName(program, buffer, length);
}

HRESULT CZqVstWrap::SetCurrentPresetName(const WCHAR* name) {
  WCHAR text[kProgramNameLength] = {};
  if (name) lstrcpynW(text, name, kProgramNameLength);
  if (text[0] == u'\0') {
    // An empty name would leave the program unnamed in every host list;
    // it gets the number a user sees (programs count from 1 there).
    // The text is the library's, in the language the host chose; before the
    // kernel has its language (a host that links the filter directly), it
    // is the English one.
    LONG program = 0;
    GetCurrentPreset(&program);
    const WCHAR* format = ZqGetString(ZqLang_GetKernelLang(), kUnnamedPresetText);
    if (format == nullptr || *format == u'\0') format = u"Preset %d";
    ZqCchPrintF(text, kProgramNameLength, nullptr, format, int(program + 1));
  }
  return m_effect->SetProgramName(text);
}

// --- Preset and bank files --------------------------------------------------------

HRESULT CZqVstWrap::LoadFromFile(const WCHAR* path, bool bank) {
  if (path == nullptr) return E_POINTER;
  HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN,
                            nullptr);
  if (file == INVALID_HANDLE_VALUE) return ZQ_E_OPEN_FILE;
  IStream* stream = nullptr;
  HRESULT hr = ZqCreateStreamFromFile(file, &stream);
  if (SUCCEEDED(hr)) {
    hr = bank ? m_effect->LoadBank(stream, 0) : m_effect->LoadPreset(stream);
    stream->Release();
  }
  CloseHandle(file);
  return hr;
}

HRESULT CZqVstWrap::SaveToFile(const WCHAR* path, bool bank) {
  if (path == nullptr) return E_POINTER;
  HANDLE file = CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                            nullptr);
  if (file == INVALID_HANDLE_VALUE) return ZQ_E_CREATE_FILE;
  IStream* stream = nullptr;
  HRESULT hr = ZqCreateStreamFromFile(file, &stream);
  if (SUCCEEDED(hr)) {
    ULONG size = 0;
    hr = bank ? m_effect->SaveBank(stream, &size) : m_effect->SavePreset(stream, &size);
    stream->Release();
  }
  CloseHandle(file);
  // Half a preset is worse than none: a later load would take it for one.
  if (FAILED(hr)) DeleteFileW(path);
  return hr;
}

HRESULT CZqVstWrap::LoadPresetFile(const WCHAR* path) {
  const HRESULT hr = LoadFromFile(path, false);
  RefreshAfterLoad();
  return hr;
}

HRESULT CZqVstWrap::SavePresetFile(const WCHAR* path) { return SaveToFile(path, false); }

HRESULT CZqVstWrap::LoadBankFile(const WCHAR* path) {
  const HRESULT hr = LoadFromFile(path, true);
  RefreshAfterLoad();
  return hr;
}

HRESULT CZqVstWrap::SaveBankFile(const WCHAR* path) { return SaveToFile(path, true); }

HRESULT CZqVstWrap::LoadPresetDialog(ZQVSTWINDOW) { return E_NOTIMPL; }
HRESULT CZqVstWrap::SavePresetDialog(ZQVSTWINDOW) { return E_NOTIMPL; }
HRESULT CZqVstWrap::LoadBankDialog(ZQVSTWINDOW) { return E_NOTIMPL; }
HRESULT CZqVstWrap::SaveBankDialog(ZQVSTWINDOW) { return E_NOTIMPL; }
