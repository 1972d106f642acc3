// zqvst folders: the catalogue's search folders.  zqvst enable / disable:
// whether a catalogued plug-in is offered.  And how every command finds the
// plug-in the user names.
#include <algorithm>
#include <cstdio>

#include "kernel/com/guid.h"
#include "platform/file.h"
#include "tools/zqvst/catalog.h"
#include "tools/zqvst/cmdline.h"
#include "tools/zqvst/commands.h"

const char* const kZqvstFoldersHelp =
    "Usage: zqvst folders [add DIR... | remove DIR...]\n"
    "\n"
    "Without arguments, prints the search folders of the catalogue, one a line.\n"
    "'add' enters folders (searched with their subfolders) and 'remove' takes\n"
    "them out; either scans the folders at once, so that the catalogue and its\n"
    "folders agree.\n"
    "\n"
    "  --help  print this help\n";

const char* const kZqvstEnableHelp =
    "Usage: zqvst enable PLUGIN...\n"
    "       zqvst disable PLUGIN...\n"
    "\n"
    "Offers a catalogued plug-in again, or stops offering it ('zqvst list'\n"
    "leaves disabled plug-ins out).  PLUGIN is a module path, a name (case\n"
    "ignored), a four-character unique id or a class identifier.\n"
    "\n"
    "  --help  print this help\n";

namespace {

bool LooksLikePath(const std::string& text) {
  if (text.find('/') != std::string::npos) return true;
  const DWORD attributes = GetFileAttributesW(ZqvstWiden(text).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

std::string AbsolutePath(const std::string& path) {
  WCHAR buffer[4096];
  const DWORD n = GetFullPathNameW(ZqvstWiden(path).c_str(), 4096, buffer, nullptr);
  return n > 0 && n < 4096 ? ZqvstNarrow(buffer) : path;
}

// The mappings `text` names, by the first way of naming that matches any.
std::vector<VstMapping> Matches(const std::vector<VstMapping>& all, const std::string& text) {
  std::vector<VstMapping> found;
  auto collect = [&](auto&& test) {
    for (const auto& m : all)
      if (test(m)) found.push_back(m);
    return !found.empty();
  };
  CLSID clsid{};
  if (text.size() == 38 && text[0] == '{' && SUCCEEDED(CLSIDFromString(ZqvstWiden(text).c_str(), &clsid)))
    return collect([&](const VstMapping& m) { return IsEqualGUID(m.Clsid, clsid); }), found;
  if (LooksLikePath(text)) {
    const std::string path = AbsolutePath(text);
    return collect([&](const VstMapping& m) { return ZqvstNarrow(m.Path) == path; }), found;
  }
  if (collect([&](const VstMapping& m) { return ZqvstEqualsNoCase(ZqvstNarrow(m.Name), text); })) return found;
  if (text.size() == 4)
    collect([&](const VstMapping& m) { return ZqvstFourChars(uint32_t(m.Properties.uniqueID)) == text; });
  return found;
}

int SetEnabled(int argc, char** argv, int first, bool enable) {
  const char* command = enable ? "enable" : "disable";
  ZqvstArgs args;
  std::string error;
  if (!args.Parse(argc, argv, first, {{"help", false, false}}, &error)) {
    ZqvstReportUsage(command, error);
    return kZqvstExitUsage;
  }
  if (args.Has("help")) {
    std::fputs(kZqvstEnableHelp, stdout);
    return kZqvstExitOk;
  }
  if (args.Positional().empty()) {
    ZqvstReportUsage(command, "a plug-in is needed");
    return kZqvstExitUsage;
  }
  ZqvstLibrary library;
  ZqvstCatalog catalog;
  if (const int opened = ZqvstOpenCatalog(&library, &catalog, true)) return opened;
  // Every name is resolved before anything is stored: a bad one changes
  // nothing.
  std::vector<VstMapping> chosen;
  for (const auto& text : args.Positional()) {
    ZqvstChoice choice;
    const int status = ZqvstResolveIn(&library, catalog, text, &choice);
    if (status != kZqvstExitOk) return status;
    chosen.push_back(choice.mapping);
  }
  for (const auto& m : chosen) {
    ZqvstFailure failure;
    if (!catalog.SetEnabled(m.Clsid, enable, &failure)) {
      ZqvstReport(&library, failure);
      return kZqvstExitJobFailed;
    }
    std::printf("%s %s\n", enable ? "enabled" : "disabled", ZqvstNarrow(m.Name).c_str());
  }
  return kZqvstExitOk;
}

}  // namespace

int ZqvstResolveIn(ZqvstLibrary* library, const ZqvstCatalog& catalog, const std::string& text,
                   ZqvstChoice* choice) {
  const std::vector<VstMapping> all = catalog.Mappings();
  const std::vector<VstMapping> found = Matches(all, text);
  if (found.size() == 1) {
    choice->mapping = found[0];
    choice->fromCatalog = true;
    return kZqvstExitOk;
  }
  if (found.empty()) {
    ZqvstReport(library, {all.empty() ? "the catalogue is empty; run 'zqvst scan' first"
                                      : "no plug-in '" + text + "' in the catalogue (see 'zqvst list --all')"});
    return kZqvstExitJobFailed;
  }
  std::string line = "'" + text + "' names " + std::to_string(found.size()) + " plug-ins:";
  for (const auto& m : found) line += " " + ZqvstNarrow(m.Path) + " " + ZqvstCatalog::ClsidText(m.Clsid) + ";";
  line.pop_back();
  ZqvstReportUsage("", line + "; name one by its path or class identifier");
  return kZqvstExitUsage;
}

int ZqvstResolvePlugin(ZqvstLibrary* library, const std::string& text, ZqvstChoice* choice) {
  if (LooksLikePath(text)) {
    const std::u16string path = ZqvstWiden(text).substr(0, 259);
    std::copy(path.begin(), path.end(), choice->mapping.Path);
    choice->mapping.Path[path.size()] = 0;
    choice->fromCatalog = false;
    return kZqvstExitOk;
  }
  ZqvstCatalog catalog;
  if (const int opened = ZqvstOpenCatalog(library, &catalog, true)) return opened;
  return ZqvstResolveIn(library, catalog, text, choice);
}

int ZqvstFoldersCommand(int argc, char** argv, int first) {
  ZqvstArgs args;
  std::string error;
  if (!args.Parse(argc, argv, first, {{"help", false, false}}, &error)) {
    ZqvstReportUsage("folders", error);
    return kZqvstExitUsage;
  }
  if (args.Has("help")) {
    std::fputs(kZqvstFoldersHelp, stdout);
    return kZqvstExitOk;
  }
  const auto& words = args.Positional();
  const std::string action = words.empty() ? "" : words[0];
  if (!(action.empty() || ((action == "add" || action == "remove") && words.size() > 1))) {
    ZqvstReportUsage("folders", action == "add" || action == "remove" ? "a folder is needed"
                                                                       : "unknown action '" + action + "'");
    return kZqvstExitUsage;
  }
  ZqvstLibrary library;
  ZqvstCatalog catalog;
  if (const int opened = ZqvstOpenCatalog(&library, &catalog, true)) return opened;
  if (!action.empty()) {
    ZqvstFailure failure;
    for (size_t i = 1; i < words.size(); ++i) {
      const bool done = action == "add" ? catalog.AddFolder(words[i], &failure) : catalog.RemoveFolder(words[i], &failure);
      if (!done) {
        ZqvstReport(&library, failure);
        return kZqvstExitJobFailed;
      }
    }
    // The store takes folders with a scan only; a scan of changed folders
    // also drops what the removed ones held.
    const HRESULT hr = catalog.Scan(0, ZqvstQuietProgress());
    if (FAILED(hr)) {
      ZqvstReport(&library, {"cannot store the folders", hr});
      return kZqvstExitJobFailed;
    }
  }
  for (const auto& folder : catalog.Folders()) std::printf("%s\n", folder.c_str());
  return kZqvstExitOk;
}

int ZqvstEnableCommand(int argc, char** argv, int first) { return SetEnabled(argc, argv, first, true); }
int ZqvstDisableCommand(int argc, char** argv, int first) { return SetEnabled(argc, argv, first, false); }
