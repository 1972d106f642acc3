// zqvst preset: save a plug-in's program or bank to a file, and show what a
// preset or bank file holds without the plug-in.
#include <cstdio>

#include "platform/file.h"
#include "tools/zqvst/cmdline.h"
#include "tools/zqvst/commands.h"
#include "tools/zqvst/host.h"
#include "tools/zqvst/presetfile.h"
#include "tools/zqvst/render.h"

const char* const kZqvstPresetHelp =
    "Usage: zqvst preset save [--plugin MODULE] --output FILE.fxp|FILE.fxb\n"
    "                         [--program N] [--set PARAM=VALUE]...\n"
    "       zqvst preset show FILE\n"
    "\n"
    "save  writes the plug-in's current program (.fxp) or all its programs\n"
    "      (.fxb), after selecting the program and setting the values given\n"
    "show  prints the header and the names of a preset or bank file\n"
    "\n"
    "  --plugin MODULE    the plug-in's module (default: the bundled zqdelay.so)\n"
    "                     or a catalogued plug-in's name, unique id or class id,\n"
    "                     or SHELL.so:ID for one plug-in of a shell module\n"
    "  --output FILE      the file to write; its extension chooses the kind\n"
    "  --program N        select program N first\n"
    "  --set PARAM=VALUE  set a parameter (name or index) in its outward units;\n"
    "                     repeatable\n"
    "  --help             print this help\n";

namespace {

bool EndsWithNoCase(const std::string& text, std::string_view suffix) {
  return text.size() >= suffix.size() &&
         ZqvstEqualsNoCase(std::string_view(text).substr(text.size() - suffix.size()), suffix);
}

int Save(int argc, char** argv, int first) {
  ZqvstArgs args;
  std::string error;
  if (!args.Parse(argc, argv, first,
                  {{"plugin", true, false},
                   {"output", true, false},
                   {"program", true, false},
                   {"set", true, true},
                   {"help", false, false}},
                  &error)) {
    ZqvstReportUsage("preset", error);
    return kZqvstExitUsage;
  }
  if (args.Has("help")) {
    std::fputs(kZqvstPresetHelp, stdout);
    return kZqvstExitOk;
  }
  if (!args.Positional().empty()) {
    ZqvstReportUsage("preset", "unexpected argument '" + args.Positional()[0] + "'");
    return kZqvstExitUsage;
  }
  const std::string output = args.Get("output");
  const bool bank = EndsWithNoCase(output, ".fxb");
  if (!bank && !EndsWithNoCase(output, ".fxp")) {
    ZqvstReportUsage("preset", "preset save needs --output ending in .fxp or .fxb");
    return kZqvstExitUsage;
  }
  long program = -1;
  if (args.Has("program") && (!ZqvstParseLong(args.Get("program"), &program) || program < 0)) {
    ZqvstReportUsage("preset", "invalid value '" + args.Get("program") + "' for --program");
    return kZqvstExitUsage;
  }
  std::vector<std::pair<std::string, double>> sets;
  if (!ZqvstReadSets(args, &sets, &error)) {
    ZqvstReportUsage("preset", error);
    return kZqvstExitUsage;
  }
  const std::string module = args.Has("plugin") ? args.Get("plugin") : ZqvstDefaultPlugin();

  ZqvstLibrary library;
  ZqvstFailure failure;
  const std::string temporary = ZqvstTemporaryPath(output);
  bool ok;
  {
    ZqvstPlugin plugin;
    ok = library.Load(&failure) && plugin.Open(&library, module, &failure) &&
         (program < 0 || plugin.SetProgram(program, &failure));
    for (size_t i = 0; ok && i < sets.size(); ++i) ok = plugin.SetParam(sets[i].first, sets[i].second, &failure);
    if (ok) {
      const std::u16string path = ZqvstWiden(temporary);
      const HRESULT hr =
          bank ? plugin.Presets()->SaveBankFile(path.c_str()) : plugin.Presets()->SavePresetFile(path.c_str());
      if (FAILED(hr)) {
        failure = {std::string("cannot save the ") + (bank ? "bank " : "preset ") + output, hr};
        ok = false;
      }
    }
    if (ok) ok = ZqvstCommitOutput(temporary, output, &failure);
  }
  if (!ok) {
    DeleteFileW(ZqvstWiden(temporary).c_str());
    ZqvstReport(&library, failure);
    return failure.exitStatus;
  }
  std::printf("%s: %s saved\n", output.c_str(), bank ? "bank" : "preset");
  return kZqvstExitOk;
}

int Show(int argc, char** argv, int first) {
  ZqvstArgs args;
  std::string error;
  if (!args.Parse(argc, argv, first, {{"help", false, false}}, &error)) {
    ZqvstReportUsage("preset", error);
    return kZqvstExitUsage;
  }
  if (args.Has("help")) {
    std::fputs(kZqvstPresetHelp, stdout);
    return kZqvstExitOk;
  }
  if (args.Positional().size() != 1) {
    ZqvstReportUsage("preset", "preset show needs one FILE");
    return kZqvstExitUsage;
  }
  std::string text;
  if (!ZqvstDescribePresetFile(args.Positional()[0], &text, &error)) {
    ZqvstReport(nullptr, {error, S_OK});
    return kZqvstExitJobFailed;
  }
  std::fputs(text.c_str(), stdout);
  return kZqvstExitOk;
}

}  // namespace

int ZqvstPresetCommand(int argc, char** argv, int first) {
  if (first >= argc) {
    ZqvstReportUsage("preset", "preset needs 'save' or 'show'");
    return kZqvstExitUsage;
  }
  const std::string action = argv[first];
  if (action == "--help" || action == "help") {
    std::fputs(kZqvstPresetHelp, stdout);
    return kZqvstExitOk;
  }
  if (action == "save") return Save(argc, argv, first + 1);
  if (action == "show") return Show(argc, argv, first + 1);
  ZqvstReportUsage("preset", "unknown preset action '" + action + "' (save or show)");
  return kZqvstExitUsage;
}
