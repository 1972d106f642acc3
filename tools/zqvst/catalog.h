// The library's catalogue of plug-ins as zqvst sees it: the mapper object,
// reached through DllGetClassObject like any host reaches it, bound to the
// application name "zqvst".  It keeps the search folders and the mappings
// the scans found, in the settings store; zqvst scans nothing itself.
//
// Threads: the main thread only, except the progress sink the scan calls
// from its worker thread.
#pragma once

#include <string>
#include <vector>

#include "aplugins/zqvstwrap/discovery/ivstfiltermapper.h"
#include "aplugins/zqvstwrap/discovery/zqvstmapping.h"
#include "tools/zqvst/host.h"

class ZqvstCatalog {
 public:
  // Makes the mapper and binds it; with no stored folders the library enters
  // its first-start folders (VST_PATH, else the usual places).
  bool Open(ZqvstLibrary* library, ZqvstFailure* failure);
  // Reads the stored mappings without walking the folders.  False with a
  // failure when the store cannot be read.
  bool Load(IZqProgress* progress, ZqvstFailure* failure);

  // Copies of every mapping, enabled or not, in the cache's order.
  std::vector<VstMapping> Mappings() const;
  // The search folders, each ending in "/".
  std::vector<std::string> Folders() const;

  // Changes the folders in memory; a scan stores them.  False with a
  // failure for a folder that does not exist, or one not held.
  bool AddFolder(const std::string& path, ZqvstFailure* failure);
  bool RemoveFolder(const std::string& path, ZqvstFailure* failure);

  // Grovel with `flags` (GROVEL_*): S_OK, S_FALSE with no folders,
  // ZQ_E_CANCELLED when the sink cancelled (what was found is kept).  A
  // module still busy after `timeLimitMs` counts as hung and failed, and the
  // scan goes on with the next; the sink is asked between modules.
  static constexpr DWORD kDefaultTimeLimitMs = 10000;
  HRESULT Scan(DWORD flags, IZqProgress* progress, DWORD timeLimitMs = kDefaultTimeLimitMs);

  // Stores the mapping of `clsid` enabled or disabled.
  bool SetEnabled(REFCLSID clsid, bool enabled, ZqvstFailure* failure);

  // The text of a class identifier, "{XXXXXXXX-...}".
  static std::string ClsidText(REFCLSID clsid);

 private:
  ZqComPtr<IVstFilterMapper> m_mapper;
  ZqComPtr<IEnumVstFilters> m_enum;
  ZqComPtr<IZqVstWrapPrefs> m_prefs;
};

// The one catalogued plug-in `text` names: a module path, a name (case
// ignored), a four-character unique id or a class identifier, tried in that
// order of kinds.  False with a failure when none or several match (exit
// status 2 then, the candidates named).
bool ZqvstFindPlugin(const ZqvstCatalog& catalog, const std::string& text, VstMapping* mapping,
                     ZqvstFailure* failure);

// What a command's --plugin names, as a module and the unique id of a
// shell's sub-plug-in (0 for a module's own plug-in): a module path as it
// is, "PATH:ITEM" for a sub-plug-in by four-character id or by name, else
// a plug-in of the catalogue (ZqvstFindPlugin).  The library must be loaded.
bool ZqvstLocatePlugin(ZqvstLibrary* library, const std::string& text, std::string* modulePath, LONG* uniqueId,
                       ZqvstFailure* failure);
// The catalogued sub-plug-ins of a shell module, "ID Name, ..." (empty when
// none are known).
std::string ZqvstShellItems(ZqvstLibrary* library, const std::string& modulePath);

// Loads the library and opens the catalogue (reading the store when `load`);
// kZqvstExitOk, or the exit status after a one-line report.
int ZqvstOpenCatalog(ZqvstLibrary* library, ZqvstCatalog* catalog, bool load);

// A progress sink that shows nothing and never cancels; it lives as long as
// the process.
IZqProgress* ZqvstQuietProgress();
