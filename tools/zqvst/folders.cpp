// zqvst folders: the catalogue's search folders.  zqvst enable / disable:
// whether a catalogued plug-in is offered.
#include <cstdio>

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
    VstMapping m{};
    ZqvstFailure failure;
    if (!ZqvstFindPlugin(catalog, text, &m, &failure)) {
      ZqvstReport(&library, failure);
      return failure.exitStatus;
    }
    chosen.push_back(m);
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
