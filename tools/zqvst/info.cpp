// zqvst info: what a plug-in is, as a host sees it through the library.
#include <cstdio>

#include "tools/zqvst/cmdline.h"
#include "tools/zqvst/commands.h"
#include "tools/zqvst/host.h"
#include "tools/zqvst/json.h"

const char* const kZqvstInfoHelp =
    "Usage: zqvst info [--plugin MODULE] [--json] [--isolated]\n"
    "\n"
    "Prints what a VST 2.x plug-in is: names, unique id, version, channels,\n"
    "latency, tail, flags, programs and every parameter with its type, range,\n"
    "display text and label.\n"
    "\n"
    "  --plugin MODULE  the plug-in's module (default: the bundled zqdelay.so)\n"
    "                   or a catalogued plug-in's name, unique id or class id,\n"
    "                   or SHELL.so:ID for one plug-in of a shell module\n"
    "  --json           print the same as a JSON object\n"
    "  --isolated       run the plug-in in the companion server process\n"
    "  --help           print this help\n";

namespace {

struct FlagName {
  DWORD bit;
  const char* name;
};

const FlagName kEffectFlags[] = {
    {effFlagsHasEditor, "HasEditor"},         {effFlagsHasClip, "HasClip"},
    {effFlagsHasVu, "HasVu"},                 {effFlagsCanMono, "CanMono"},
    {effFlagsCanReplacing, "CanReplacing"},   {effFlagsProgramChunks, "ProgramChunks"},
    {effFlagsIsSynth, "IsSynth"},             {effFlagsNoSoundInStop, "NoSoundInStop"},
    {effFlagsExtIsAsync, "ExtIsAsync"},       {effFlagsExtHasBuffer, "ExtHasBuffer"},
    {effFlagsCanDoubleReplacing, "CanDoubleReplacing"},
};

const FlagName kMappingFlags[] = {
    {VMF_SYNTH, "synth"},         {VMF_EFFECT, "effect"},         {VMF_SHELL_ITEM, "shell-item"},
    {VMF_HAS_EDITOR, "editor"},   {VMF_ENABLED, "enabled"},       {VMF_FAILED, "failed"},
    {VMF_NO_LATENCY, "no-latency"}, {VMF_NO_ENTRY, "no-entry"},   {VMF_BAD_IMAGE, "bad-image"},
};

template <size_t N>
std::vector<std::string> Words(DWORD flags, const FlagName (&names)[N]) {
  std::vector<std::string> words;
  for (const auto& f : names)
    if (flags & f.bit) words.push_back(f.name);
  return words;
}

std::string Join(const std::vector<std::string>& words, const char* separator) {
  std::string text;
  for (const auto& w : words) {
    if (!text.empty()) text += separator;
    text += w;
  }
  return text;
}

const char* TypeName(MP_TYPE type) {
  switch (type) {
    case MPT_INT: return "int";
    case MPT_FLOAT: return "float";
    case MPT_BOOL: return "bool";
    case MPT_ENUM: return "enum";
    default: return "?";
  }
}

std::string Number(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

struct Program {
  LONG index;
  std::string name;
};

struct Description {
  std::vector<Program> programs;
  LONG currentProgram = 0;
  std::vector<ZqvstPlugin::ParamDescription> params;
};

bool Describe(const ZqvstPlugin& plugin, Description* out, ZqvstFailure* failure) {
  if (IVstFilterPreset* presets = plugin.Presets()) {
    LONG count = 0;
    presets->GetPresetCount(&count);
    presets->GetCurrentPreset(&out->currentProgram);
    for (LONG i = 0; i < count; ++i) {
      WCHAR buffer[256] = {};
      presets->GetPresetName(i, buffer, 256);
      out->programs.push_back({i, ZqvstNarrow(buffer)});
    }
  }
  const DWORD params = plugin.ParamCount();
  for (DWORD i = 0; i < params; ++i) {
    ZqvstPlugin::ParamDescription p;
    if (!plugin.DescribeParam(i, &p, failure)) return false;
    out->params.push_back(std::move(p));
  }
  return true;
}

void PrintText(const ZqvstPlugin& plugin, const Description& d) {
  const VstMapping& m = plugin.Mapping();
  const VstEffectInfo& e = m.Properties;
  std::printf("module:      %s\n", ZqvstNarrow(m.Path).c_str());
  std::printf("name:        %s\n", ZqvstNarrow(m.Name).c_str());
  std::printf("vendor:      %s\n", ZqvstNarrow(m.Vendor).c_str());
  std::printf("product:     %s\n", ZqvstNarrow(m.Product).c_str());
  std::printf("unique id:   '%s' (%s)\n", ZqvstFourChars(e.uniqueID).c_str(),
              ZqvstHex(static_cast<DWORD>(e.uniqueID)).c_str());
  std::printf("version:     %ld (vendor version %ld)\n", long(e.version), long(e.vendorVersion));
  std::printf("inputs:      %ld\n", long(e.numInputs));
  std::printf("outputs:     %ld\n", long(e.numOutputs));
  std::printf("latency:     %ld\n", long(plugin.Latency()));
  std::printf("tail:        %ld\n", long(plugin.Tail()));
  std::printf("flags:       %s\n", Join(Words(DWORD(e.flags), kEffectFlags), " ").c_str());
  std::printf("kind:        %s\n", Join(Words(m.Flags, kMappingFlags), " ").c_str());
  std::printf("programs:    %zu (current %ld)\n", d.programs.size(), long(d.currentProgram));
  for (const auto& p : d.programs) std::printf("  %3ld %s\n", long(p.index), p.name.c_str());
  std::printf("parameters:  %zu\n", d.params.size());
  for (const auto& p : d.params) {
    std::string line = "  " + std::string(p.index < 10 ? "  " : p.index < 100 ? " " : "") + std::to_string(p.index) +
                       " " + p.name;
    line += "  " + std::string(TypeName(p.info.mpType)) + " " + Number(p.info.mpdMinValue) + ".." +
            Number(p.info.mpdMaxValue) + " neutral " + Number(p.info.mpdNeutralValue);
    const std::string unit = ZqvstNarrow(p.info.szUnitText);
    if (!unit.empty()) line += " unit \"" + unit + "\"";
    if (!p.enumNames.empty()) line += " values " + Join(p.enumNames, "|");
    line += "  = " + p.display;
    if (!p.label.empty()) line += " " + p.label;
    std::printf("%s\n", line.c_str());
  }
}

void PrintJson(const ZqvstPlugin& plugin, const Description& d) {
  const VstMapping& m = plugin.Mapping();
  const VstEffectInfo& e = m.Properties;
  ZqvstJsonWriter w;
  w.BeginObject();
  w.String("module", ZqvstNarrow(m.Path));
  w.String("name", ZqvstNarrow(m.Name));
  w.String("vendor", ZqvstNarrow(m.Vendor));
  w.String("product", ZqvstNarrow(m.Product));
  w.String("uniqueId", ZqvstFourChars(e.uniqueID));
  w.String("uniqueIdHex", ZqvstHex(static_cast<DWORD>(e.uniqueID)));
  w.Integer("version", e.version);
  w.Integer("vendorVersion", e.vendorVersion);
  w.Integer("inputs", e.numInputs);
  w.Integer("outputs", e.numOutputs);
  w.Integer("latency", plugin.Latency());
  w.Integer("tail", plugin.Tail());
  w.BeginArray("flags");
  for (const auto& f : Words(DWORD(e.flags), kEffectFlags)) w.String(nullptr, f);
  w.EndArray();
  w.BeginArray("kind");
  for (const auto& f : Words(m.Flags, kMappingFlags)) w.String(nullptr, f);
  w.EndArray();
  w.Integer("currentProgram", d.currentProgram);
  w.BeginArray("programs");
  for (const auto& p : d.programs) {
    w.BeginObject();
    w.Integer("index", p.index);
    w.String("name", p.name);
    w.EndObject();
  }
  w.EndArray();
  w.BeginArray("parameters");
  for (const auto& p : d.params) {
    w.BeginObject();
    w.Integer("index", p.index);
    w.String("name", p.name);
    w.String("type", TypeName(p.info.mpType));
    w.Number("min", p.info.mpdMinValue);
    w.Number("max", p.info.mpdMaxValue);
    w.Number("neutral", p.info.mpdNeutralValue);
    w.String("unit", ZqvstNarrow(p.info.szUnitText));
    w.String("mediaLabel", ZqvstNarrow(p.info.szLabel));
    if (!p.enumNames.empty()) {
      w.BeginArray("values");
      for (const auto& n : p.enumNames) w.String(nullptr, n);
      w.EndArray();
    }
    w.String("display", p.display);
    w.String("label", p.label);
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
  std::fputs(w.Text().c_str(), stdout);
}

}  // namespace

int ZqvstInfoCommand(int argc, char** argv, int first) {
  ZqvstArgs args;
  std::string error;
  if (!args.Parse(argc, argv, first,
                  {{"plugin", true, false}, {"json", false, false}, {"isolated", false, false}, {"help", false, false}},
                  &error)) {
    ZqvstReportUsage("info", error);
    return kZqvstExitUsage;
  }
  if (args.Has("help")) {
    std::fputs(kZqvstInfoHelp, stdout);
    return kZqvstExitOk;
  }
  if (!args.Positional().empty()) {
    ZqvstReportUsage("info", "unexpected argument '" + args.Positional()[0] + "'");
    return kZqvstExitUsage;
  }
  const std::string module = args.Has("plugin") ? args.Get("plugin") : ZqvstDefaultPlugin();

  ZqvstLibrary library;
  ZqvstFailure failure;
  ZqvstPlugin plugin;
  Description description;
  if (!library.Load(&failure) || (args.Has("isolated") && !library.Isolate(&failure)) ||
      !plugin.Open(&library, module, &failure) ||
      !Describe(plugin, &description, &failure)) {
    ZqvstReport(&library, failure);
    return failure.exitStatus;
  }
  if (args.Has("json"))
    PrintJson(plugin, description);
  else
    PrintText(plugin, description);
  std::fflush(stdout);
  return kZqvstExitOk;
}
