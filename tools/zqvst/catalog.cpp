// The catalogue of plug-ins through the library's mapper object.
#include "tools/zqvst/catalog.h"

#include <cstdio>

#include "aplugins/zqvstwrap/zqvstclasses.h"
#include "kernel/com/guid.h"
#include "platform/file.h"
#include "tools/zqvst/cmdline.h"

namespace {

// The cache belongs to zqvst's own way of using it, not to a release: one
// version for every build, so that an upgrade keeps what was scanned.
constexpr DWORD kCatalogVersion = 0x01000000;

constexpr HRESULT kDuplicateFolder = ZqMakeStatus(0x8004E0A9);

// New folders are searched below, and effects and synths found there are
// offered.
constexpr DWORD kFolderFlags = 0x1 | 0x2 | 0x4;

std::string WithSlash(std::string path) {
  if (path.empty() || path.back() != '/') path += '/';
  return path;
}

// An absolute form of `path` without "." and ".." parts, so that a folder
// is held once however it was written.
std::string Absolute(const std::string& path) {
  WCHAR buffer[4096];
  const DWORD n = GetFullPathNameW(ZqvstWiden(path).c_str(), 4096, buffer, nullptr);
  return n > 0 && n < 4096 ? ZqvstNarrow(buffer) : path;
}

bool IsFolder(const std::string& path) {
  const DWORD attributes = GetFileAttributesW(ZqvstWiden(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace

// The sink of scans that show nothing: reading the store, storing folders.
// Never destroyed: the library may hold it until the process ends.
IZqProgress* ZqvstQuietProgress() {
  static CZqSilentProgress* const quiet = new CZqSilentProgress();
  return quiet;
}

int ZqvstOpenCatalog(ZqvstLibrary* library, ZqvstCatalog* catalog, bool load) {
  ZqvstFailure failure;
  if (!library->Load(&failure) || !catalog->Open(library, &failure) ||
      (load && !catalog->Load(ZqvstQuietProgress(), &failure))) {
    ZqvstReport(library, failure);
    return kZqvstExitJobFailed;
  }
  return kZqvstExitOk;
}

bool ZqvstCatalog::Open(ZqvstLibrary* library, ZqvstFailure* failure) {
  HRESULT hr = library->CreateObject(CLSID_ZqVstWrapFilterMapper, IID_IVstFilterMapper, m_mapper.PutVoid());
  if (FAILED(hr)) {
    *failure = {"the library offers no plug-in catalogue", hr};
    return false;
  }
  hr = m_mapper->Init(u"zqvst", u"zqvst", kCatalogVersion, nullptr);
  if (FAILED(hr)) {
    *failure = {"cannot open the plug-in catalogue in the settings store", hr};
    return false;
  }
  if (FAILED(hr = m_mapper.As(&m_enum)) || FAILED(hr = m_mapper.As(&m_prefs))) {
    *failure = {"the library's catalogue lacks an interface", hr};
    return false;
  }
  return true;
}

bool ZqvstCatalog::Load(IZqProgress* progress, ZqvstFailure* failure) {
  // A scan that trusts the folders and finds nothing changed only reads the
  // store.  With no folders on a first start there is nothing stored.
  const HRESULT hr = m_mapper->Grovel(nullptr, GROVEL_TRUST_PATHS, progress, 0, nullptr);
  if (FAILED(hr)) {
    *failure = {"cannot read the plug-in catalogue", hr};
    return false;
  }
  return true;
}

std::vector<VstMapping> ZqvstCatalog::Mappings() const {
  std::vector<VstMapping> all;
  const INT count = m_prefs->GetMappingCount();
  for (INT i = 0; i < count; ++i) {
    VstMapping* m = nullptr;
    if (m_prefs->GetMapping(i, &m) == S_OK && m) all.push_back(*m);
  }
  return all;
}

std::vector<std::string> ZqvstCatalog::Folders() const {
  std::vector<std::string> folders;
  const INT count = m_prefs->GetSearchPathCount();
  for (INT i = 0; i < count; ++i) {
    WCHAR path[260] = {};
    if (m_prefs->GetSearchPath(i, path, 260, nullptr) == S_OK) folders.push_back(ZqvstNarrow(path));
  }
  return folders;
}

bool ZqvstCatalog::AddFolder(const std::string& path, ZqvstFailure* failure) {
  const std::string folder = WithSlash(Absolute(path));
  if (!IsFolder(folder)) {
    *failure = {"no such folder: " + path};
    return false;
  }
  if (folder.size() >= 259) {
    *failure = {"the folder's path is too long: " + path};
    return false;
  }
  const HRESULT hr = m_prefs->SetSearchPath(m_prefs->GetSearchPathCount(), ZqvstWiden(folder).c_str(), kFolderFlags);
  if (FAILED(hr) && hr != kDuplicateFolder) {
    *failure = {"cannot add the folder " + path, hr};
    return false;
  }
  return true;
}

bool ZqvstCatalog::RemoveFolder(const std::string& path, ZqvstFailure* failure) {
  // The folder as the user wrote it first, then as the catalogue holds it.
  for (const std::string& form : {WithSlash(path), WithSlash(Absolute(path))}) {
    if (m_prefs->RemoveSearchPath(ZqvstWiden(form).c_str()) == S_OK) return true;
  }
  *failure = {"not a search folder: " + path};
  return false;
}

HRESULT ZqvstCatalog::Scan(DWORD flags, IZqProgress* progress, DWORD timeLimitMs) {
  return m_mapper->Grovel(nullptr, flags, progress, timeLimitMs, nullptr);
}

bool ZqvstCatalog::SetEnabled(REFCLSID clsid, bool enabled, ZqvstFailure* failure) {
  VstMapping* found = nullptr;
  const INT count = m_prefs->GetMappingCount();
  for (INT i = 0; i < count && !found; ++i) {
    VstMapping* m = nullptr;
    if (m_prefs->GetMapping(i, &m) == S_OK && m && IsEqualGUID(m->Clsid, clsid)) found = m;
  }
  if (!found) {
    *failure = {"no plug-in " + ClsidText(clsid) + " in the catalogue", ZQ_E_NOT_FOUND};
    return false;
  }
  VstMapping changed = *found;
  changed.Flags = enabled ? (changed.Flags | VMF_ENABLED) : (changed.Flags & ~VMF_ENABLED);
  const HRESULT hr = m_prefs->SaveMapping(&changed);
  if (FAILED(hr)) {
    *failure = {"cannot store the change of " + ZqvstNarrow(found->Name), hr};
    return false;
  }
  found->Flags = changed.Flags;
  return true;
}

std::string ZqvstCatalog::ClsidText(REFCLSID clsid) {
  WCHAR text[64] = {};
  StringFromGUID2(clsid, text, 64);
  return ZqvstNarrow(text);
}
