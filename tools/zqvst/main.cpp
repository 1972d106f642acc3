// zqvst: a command-line host of VST 2.x plug-ins through libzqvstwrap.
//
//   zqvst info    what a plug-in is
//   zqvst render  an audio file through a plug-in into another
//   zqvst preset  save a plug-in's program or bank; show a preset file
//   zqvst scan, list, folders, enable, disable: the catalogue of plug-ins
//
// Exit status: 0 done, 1 the job failed, 2 the command line was misused.
#include <cstdio>
#include <string>

#include "tools/zqvst/commands.h"
#include "tools/zqvst/host.h"

namespace {

const char kUsage[] =
    "Usage: zqvst COMMAND [OPTIONS]\n"
    "\n"
    "Hosts VST 2.x plug-ins as filters of libzqvstwrap.\n"
    "\n"
    "Commands:\n"
    "  info     print what a plug-in is: names, channels, programs, parameters\n"
    "  render   stream an audio file (or a generated signal) through a plug-in\n"
    "  preset   save a plug-in's program or bank, or show a preset file\n"
    "  scan     look for plug-ins in the search folders and catalogue them\n"
    "  list     print the catalogued plug-ins\n"
    "  folders  print, add or remove the search folders\n"
    "  enable   offer a catalogued plug-in again\n"
    "  disable  stop offering a catalogued plug-in\n"
    "  help     print this help, or a command's ('zqvst help render')\n"
    "\n"
    "Options:\n"
    "  --help     print this help\n"
    "  --version  print the version\n"
    "\n"
    "Environment:\n"
    "  ZQVST_LIBRARY  the library to load instead of ../lib/libzqvstwrap.so.0\n"
    "                 next to the program's folder\n";

int Help(const std::string& command) {
  if (command.empty()) {
    std::fputs(kUsage, stdout);
  } else if (command == "info") {
    std::fputs(kZqvstInfoHelp, stdout);
  } else if (command == "render") {
    std::fputs(kZqvstRenderHelp, stdout);
  } else if (command == "preset") {
    std::fputs(kZqvstPresetHelp, stdout);
  } else if (command == "scan") {
    std::fputs(kZqvstScanHelp, stdout);
  } else if (command == "list") {
    std::fputs(kZqvstListHelp, stdout);
  } else if (command == "folders") {
    std::fputs(kZqvstFoldersHelp, stdout);
  } else if (command == "enable" || command == "disable") {
    std::fputs(kZqvstEnableHelp, stdout);
  } else {
    ZqvstReportUsage("", "unknown command '" + command + "'");
    return kZqvstExitUsage;
  }
  return kZqvstExitOk;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    ZqvstReportUsage("", "a command is needed (info, render, preset, scan, list, folders, enable, disable)");
    return kZqvstExitUsage;
  }
  const std::string command = argv[1];
  if (command == "--help" || command == "-h") return Help("");
  if (command == "help") return Help(argc > 2 ? argv[2] : "");
  if (command == "--version") {
    std::printf("zqvst %s\n", ZQVST_VERSION);
    return kZqvstExitOk;
  }
  if (command == "info") return ZqvstInfoCommand(argc, argv, 2);
  if (command == "render") return ZqvstRenderCommand(argc, argv, 2);
  if (command == "preset") return ZqvstPresetCommand(argc, argv, 2);
  if (command == "scan") return ZqvstScanCommand(argc, argv, 2);
  if (command == "list") return ZqvstListCommand(argc, argv, 2);
  if (command == "folders") return ZqvstFoldersCommand(argc, argv, 2);
  if (command == "enable") return ZqvstEnableCommand(argc, argv, 2);
  if (command == "disable") return ZqvstDisableCommand(argc, argv, 2);
  ZqvstReportUsage("", command[0] == '-' ? "unknown option '" + command + "'" : "unknown command '" + command + "'");
  return kZqvstExitUsage;
}
