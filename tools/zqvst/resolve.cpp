// How every command finds the plug-in the user names: a module path as it
// is, a sub-plug-in of a shell module as PATH:ITEM, and otherwise a name, a
// unique id or a class identifier looked up in the catalogue.
#include <algorithm>

#include "kernel/com/guid.h"
#include "platform/file.h"
#include "tools/zqvst/catalog.h"
#include "tools/zqvst/cmdline.h"

namespace {

bool IsFile(const std::string& path) {
  const DWORD attributes = GetFileAttributesW(ZqvstWiden(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

std::string AbsolutePath(const std::string& path) {
  WCHAR buffer[4096];
  const DWORD n = GetFullPathNameW(ZqvstWiden(path).c_str(), 4096, buffer, nullptr);
  return n > 0 && n < 4096 ? ZqvstNarrow(buffer) : path;
}

LONG IdOf(const std::string& fourChars) {
  uint32_t id = 0;
  for (char c : fourChars) id = (id << 8) | static_cast<unsigned char>(c);
  return static_cast<LONG>(id);
}

// The mappings `text` names, by the first kind of naming that matches any.
std::vector<VstMapping> Matches(const std::vector<VstMapping>& all, const std::string& text) {
  std::vector<VstMapping> found;
  auto collect = [&](auto&& test) {
    for (const auto& m : all)
      if (test(m)) found.push_back(m);
    return !found.empty();
  };
  CLSID clsid{};
  if (text.size() == 38 && text[0] == '{' && SUCCEEDED(CLSIDFromString(ZqvstWiden(text).c_str(), &clsid))) {
    collect([&](const VstMapping& m) { return IsEqualGUID(m.Clsid, clsid); });
  } else if (text.find('/') != std::string::npos || IsFile(text)) {
    const std::string path = AbsolutePath(text);
    collect([&](const VstMapping& m) { return ZqvstNarrow(m.Path) == path; });
  } else if (!collect([&](const VstMapping& m) { return ZqvstEqualsNoCase(ZqvstNarrow(m.Name), text); }) &&
             text.size() == 4) {
    collect([&](const VstMapping& m) { return m.Properties.uniqueID == IdOf(text); });
  }
  return found;
}

bool OpenQuietly(ZqvstLibrary* library, ZqvstCatalog* catalog, ZqvstFailure* failure) {
  return library->Load(failure) && catalog->Open(library, failure) && catalog->Load(ZqvstQuietProgress(), failure);
}

}  // namespace

bool ZqvstFindPlugin(const ZqvstCatalog& catalog, const std::string& text, VstMapping* mapping,
                     ZqvstFailure* failure) {
  const std::vector<VstMapping> all = catalog.Mappings();
  const std::vector<VstMapping> found = Matches(all, text);
  if (found.size() == 1) {
    *mapping = found[0];
    return true;
  }
  if (found.empty()) {
    *failure = {all.empty() ? "no plug-in '" + text + "': the catalogue is empty; run 'zqvst scan' first"
                            : "no plug-in '" + text + "' in the catalogue (see 'zqvst list --all')"};
    return false;
  }
  std::string what = "'" + text + "' names " + std::to_string(found.size()) + " plug-ins:";
  for (const auto& m : found) what += " " + ZqvstNarrow(m.Path) + " " + ZqvstCatalog::ClsidText(m.Clsid) + ",";
  what.back() = ';';
  *failure = {what + " name one by its path or class identifier", S_OK, kZqvstExitUsage};
  return false;
}

bool ZqvstLocatePlugin(ZqvstLibrary* library, const std::string& text, std::string* modulePath, LONG* uniqueId,
                       ZqvstFailure* failure) {
  *uniqueId = 0;
  const size_t slash = text.rfind('/');
  const size_t colon = text.rfind(':');
  if (IsFile(text) || (slash != std::string::npos && (colon == std::string::npos || colon < slash))) {
    *modulePath = text;
    return true;
  }
  ZqvstCatalog catalog;
  if (slash != std::string::npos && IsFile(text.substr(0, colon))) {
    // A shell's sub-plug-in: its unique id works without a scan, its name
    // needs the catalogue.
    *modulePath = text.substr(0, colon);
    const std::string item = text.substr(colon + 1);
    if (item.size() == 4) {
      *uniqueId = IdOf(item);
      return true;
    }
    if (!OpenQuietly(library, &catalog, failure)) return false;
    const std::string path = AbsolutePath(*modulePath);
    for (const auto& m : catalog.Mappings())
      if (ZqvstNarrow(m.Path) == path && ZqvstEqualsNoCase(ZqvstNarrow(m.Name), item)) {
        *uniqueId = m.Properties.uniqueID;
        return true;
      }
    *failure = {"no sub-plug-in '" + item + "' of " + *modulePath +
                " in the catalogue; give its four-character id, or run 'zqvst scan' on its folder"};
    return false;
  }
  VstMapping m{};
  if (!OpenQuietly(library, &catalog, failure) || !ZqvstFindPlugin(catalog, text, &m, failure)) return false;
  *modulePath = ZqvstNarrow(m.Path);
  if (m.Flags & VMF_SHELL_ITEM) *uniqueId = m.Properties.uniqueID;
  return true;
}

std::string ZqvstShellItems(ZqvstLibrary* library, const std::string& modulePath) {
  ZqvstCatalog catalog;
  ZqvstFailure ignored;
  std::string items;
  if (!OpenQuietly(library, &catalog, &ignored)) return items;
  const std::string path = AbsolutePath(modulePath);
  for (const auto& m : catalog.Mappings())
    if (ZqvstNarrow(m.Path) == path && (m.Flags & VMF_SHELL_ITEM))
      items += (items.empty() ? "" : ", ") + ZqvstFourChars(uint32_t(m.Properties.uniqueID)) + " " +
               ZqvstNarrow(m.Name);
  return items;
}
