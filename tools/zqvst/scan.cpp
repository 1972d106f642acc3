// zqvst scan: brings the library's catalogue up to date with the search
// folders and tells what changed.  zqvst list: what the catalogue holds.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <mutex>

#include "kernel/com/object.h"
#include "platform/console.h"
#include "tools/zqvst/catalog.h"
#include "tools/zqvst/cmdline.h"
#include "tools/zqvst/commands.h"
#include "tools/zqvst/json.h"

const char* const kZqvstScanHelp =
    "Usage: zqvst scan [--folder DIR]... [--rescan] [--in-process] [--time-limit S]\n"
    "\n"
    "Looks for VST 2.x plug-ins in the search folders and stores what it finds\n"
    "in the catalogue of the settings store.  Modules known and unchanged are\n"
    "not loaded again.  On the first scan the folders are those of VST_PATH,\n"
    "else ~/.vst, /usr/local/lib/vst, /usr/lib/vst and /usr/lib/lxvst, when\n"
    "they exist.  Ctrl-C stops the scan (after the module being looked at) and\n"
    "keeps what was found.\n"
    "\n"
    "  --folder DIR   add DIR to the search folders first (may be repeated)\n"
    "  --rescan       forget the catalogue and look at every module again\n"
    "  --in-process   look at modules in this process, not in the probe server\n"
    "  --time-limit S seconds a module may take before it counts as hung (10)\n"
    "  --help         print this help\n";

const char* const kZqvstListHelp =
    "Usage: zqvst list [--all] [--json]\n"
    "\n"
    "Prints the plug-ins of the catalogue: name, vendor, unique id, channels\n"
    "(inputs/outputs) and class identifier.\n"
    "\n"
    "  --all   also the disabled and failed ones, with their state\n"
    "  --json  print a JSON array\n"
    "  --help  print this help\n";

namespace {

constexpr DWORD kFailedFlags = VMF_FAILED | VMF_NO_ENTRY | VMF_BAD_IMAGE;

std::atomic<bool> g_interrupted{false};

extern "C" void OnInterrupt(int) {
  g_interrupted.store(true);
  // A second Ctrl-C ends the program at once.
  std::signal(SIGINT, SIG_DFL);
}

// What the scan tells, drawn as a bar on a terminal and as one line per
// module otherwise.  Called from the scan's worker thread.
class ScanProgress final : public ZqComObject<ScanProgress, IZqProgress> {
 public:
  explicit ScanProgress(bool quiet)
      : m_quiet(quiet), m_terminal(!quiet && ZqIsConsole(STD_ERROR_HANDLE)),
        m_width(std::max(40, std::min(ZqGetConsoleWidth(STD_ERROR_HANDLE), 200))) {}

  HRESULT STDMETHODCALLTYPE Begin(const WCHAR*, DWORD, DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE SetText(const WCHAR* text) override {
    std::lock_guard<std::mutex> lock(m_lock);
    m_text = ZqvstNarrow(text);
    if (m_quiet || m_text.empty()) return S_OK;
    ++m_steps;
    if (m_terminal) {
      Draw();
    } else {
      std::fprintf(stderr, "%s\n", m_text.c_str());
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetProgress(DWORD done, DWORD total) override { return SetCount(done, total); }
  HRESULT STDMETHODCALLTYPE SetCount(DWORD done, DWORD total) override {
    std::lock_guard<std::mutex> lock(m_lock);
    m_done = done;
    m_total = total;
    if (m_terminal) Draw();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE IsCancelled() override { return g_interrupted.load() ? ZQ_E_CANCELLED : S_OK; }
  HRESULT STDMETHODCALLTYPE End(HRESULT) override {
    std::lock_guard<std::mutex> lock(m_lock);
    if (m_terminal && m_drawn) std::fprintf(stderr, "\r%*s\r", m_width - 1, "");
    m_drawn = false;
    return S_OK;
  }

 private:
  friend class ZqComObject<ScanProgress, IZqProgress>;
  ~ScanProgress() = default;

  // "[#####-----] text" while the scan tells how far it is, else the
  // count of steps so far and the text; cut to the terminal's width.
  void Draw() {
    constexpr int kBar = 20;
    std::string line;
    if (m_total) {
      const int filled = static_cast<int>(uint64_t(kBar) * std::min(m_done, m_total) / m_total);
      line = "[" + std::string(size_t(filled), '#') + std::string(size_t(kBar - filled), '-') + "] " + m_text;
    } else {
      line = "[" + std::to_string(m_steps) + "] " + m_text;
    }
    if (line.size() > size_t(m_width - 1)) line.resize(size_t(m_width - 1));
    std::fprintf(stderr, "\r%-*s", m_width - 1, line.c_str());
    std::fflush(stderr);
    m_drawn = true;
  }

  const bool m_quiet;
  const bool m_terminal;
  const int m_width;
  std::mutex m_lock;
  std::string m_text;
  DWORD m_done = 0, m_total = 0;
  unsigned m_steps = 0;
  bool m_drawn = false;
};

// Why a module is no usable plug-in, from what the probe recorded.
const char* FailureReason(DWORD flags) {
  if (flags & VMF_BAD_IMAGE) return "not a loadable module for this machine";
  if (flags & VMF_NO_ENTRY) return "no VST entry point";
  return "the plug-in faulted, hung or refused to open when looked at";
}

const char* StateOf(DWORD flags) {
  if (flags & kFailedFlags) return "failed";
  return flags & VMF_ENABLED ? "enabled" : "disabled";
}

std::string Channels(const VstMapping& m) {
  return std::to_string(m.Properties.numInputs) + "/" + std::to_string(m.Properties.numOutputs);
}

const VstMapping* FindByClsid(const std::vector<VstMapping>& list, REFCLSID clsid) {
  for (const auto& m : list)
    if (IsEqualGUID(m.Clsid, clsid)) return &m;
  return nullptr;
}

bool ParseOrUsage(const char* command, const char* help, int argc, char** argv, int first,
                  std::vector<ZqvstOption> known, ZqvstArgs* args, int* exitCode) {
  known.push_back({"help", false, false});
  std::string error;
  if (!args->Parse(argc, argv, first, known, &error)) {
    ZqvstReportUsage(command, error);
    *exitCode = kZqvstExitUsage;
    return false;
  }
  if (args->Has("help")) {
    std::fputs(help, stdout);
    *exitCode = kZqvstExitOk;
    return false;
  }
  return true;
}

}  // namespace

int ZqvstScanCommand(int argc, char** argv, int first) {
  ZqvstArgs args;
  int exitCode = 0;
  if (!ParseOrUsage("scan", kZqvstScanHelp, argc, argv, first,
                    {{"folder", true, true},
                     {"rescan", false, false},
                     {"in-process", false, false},
                     {"time-limit", true, false}},
                    &args,
                    &exitCode))
    return exitCode;
  if (!args.Positional().empty()) {
    ZqvstReportUsage("scan", "unexpected argument '" + args.Positional()[0] + "'");
    return kZqvstExitUsage;
  }
  double seconds = ZqvstCatalog::kDefaultTimeLimitMs / 1000.0;
  if (args.Has("time-limit") &&
      (!ZqvstParseDouble(args.Get("time-limit"), &seconds) || seconds < 0.001 || seconds > 3600)) {
    ZqvstReportUsage("scan", "invalid value '" + args.Get("time-limit") + "' for --time-limit");
    return kZqvstExitUsage;
  }
  ZqvstLibrary library;
  ZqvstCatalog catalog;
  if (const int opened = ZqvstOpenCatalog(&library, &catalog, true)) return opened;
  ZqvstFailure failure;
  for (const auto& folder : args.All("folder")) {
    if (!catalog.AddFolder(folder, &failure)) {
      ZqvstReport(&library, failure);
      return kZqvstExitJobFailed;
    }
  }
  if (catalog.Folders().empty()) {
    ZqvstReport(&library, {"no folders to scan; give one with --folder DIR or 'zqvst folders add DIR'"});
    return kZqvstExitJobFailed;
  }
  const std::vector<VstMapping> before = catalog.Mappings();

  auto progress = ZqComPtr<ScanProgress>::Adopt(new ScanProgress(false));
  std::signal(SIGINT, OnInterrupt);
  DWORD flags = GROVEL_FORCE;
  if (args.Has("rescan")) flags |= GROVEL_RESCAN;
  if (args.Has("in-process")) flags |= GROVEL_IN_PROCESS;
  const HRESULT hr = catalog.Scan(flags, progress.Get(), DWORD(seconds * 1000.0 + 0.5));
  std::signal(SIGINT, SIG_DFL);
  if (FAILED(hr) && hr != ZQ_E_CANCELLED) {
    ZqvstReport(&library, {"the scan failed", hr});
    return kZqvstExitJobFailed;
  }

  const std::vector<VstMapping> after = catalog.Mappings();
  size_t added = 0, changed = 0, failed = 0, offered = 0;
  std::string lines;
  for (const auto& m : after) {
    if ((m.Flags & VMF_ENABLED) && !(m.Flags & kFailedFlags)) ++offered;
    const VstMapping* old = FindByClsid(before, m.Clsid);
    const bool isNew = old == nullptr;
    const bool isChanged = old && (old->FileTime.dwLowDateTime != m.FileTime.dwLowDateTime ||
                                   old->FileTime.dwHighDateTime != m.FileTime.dwHighDateTime ||
                                   old->Flags != m.Flags);
    if (!isNew && !isChanged) continue;
    const std::string path = ZqvstNarrow(m.Path);
    if (m.Flags & kFailedFlags) {
      ++failed;
      lines += "failed   " + path + ": " + FailureReason(m.Flags) + "\n";
    } else {
      ++(isNew ? added : changed);
      lines += std::string(isNew ? "new      " : "changed  ") + ZqvstNarrow(m.Name) + " (" + path + ")\n";
    }
  }
  size_t removed = 0;
  for (const auto& m : before)
    if (!FindByClsid(after, m.Clsid)) {
      ++removed;
      lines += "removed  " + ZqvstNarrow(m.Name) + " (" + ZqvstNarrow(m.Path) + ")\n";
    }
  std::fputs(lines.c_str(), stdout);
  std::printf("%zu new, %zu changed, %zu failed, %zu removed; %zu plug-ins offered\n", added, changed, failed,
              removed, offered);
  std::fflush(stdout);
  if (hr == ZQ_E_CANCELLED) {
    ZqvstReport(&library, {"the scan was cancelled; what it found is kept"});
    return kZqvstExitJobFailed;
  }
  return kZqvstExitOk;
}

int ZqvstListCommand(int argc, char** argv, int first) {
  ZqvstArgs args;
  int exitCode = 0;
  if (!ParseOrUsage("list", kZqvstListHelp, argc, argv, first, {{"all", false, false}, {"json", false, false}}, &args,
                    &exitCode))
    return exitCode;
  if (!args.Positional().empty()) {
    ZqvstReportUsage("list", "unexpected argument '" + args.Positional()[0] + "'");
    return kZqvstExitUsage;
  }
  ZqvstLibrary library;
  ZqvstCatalog catalog;
  if (const int opened = ZqvstOpenCatalog(&library, &catalog, true)) return opened;
  const std::vector<VstMapping> all = catalog.Mappings();
  if (all.empty()) {
    ZqvstReport(&library, {"the catalogue is empty; run 'zqvst scan' first"});
    return kZqvstExitJobFailed;
  }
  const bool everything = args.Has("all");
  std::vector<const VstMapping*> shown;
  for (const auto& m : all)
    if (everything || ((m.Flags & VMF_ENABLED) && !(m.Flags & kFailedFlags))) shown.push_back(&m);

  if (args.Has("json")) {
    ZqvstJsonWriter w;
    w.BeginArray();
    for (const VstMapping* m : shown) {
      w.BeginObject();
      w.String("name", ZqvstNarrow(m->Name));
      w.String("vendor", ZqvstNarrow(m->Vendor));
      w.String("uniqueId", ZqvstFourChars(static_cast<uint32_t>(m->Properties.uniqueID)));
      w.Integer("inputs", m->Properties.numInputs);
      w.Integer("outputs", m->Properties.numOutputs);
      w.String("clsid", ZqvstCatalog::ClsidText(m->Clsid));
      w.String("module", ZqvstNarrow(m->Path));
      w.String("state", StateOf(m->Flags));
      if (m->Flags & kFailedFlags) w.String("reason", FailureReason(m->Flags));
      w.EndObject();
    }
    w.EndArray();
    std::fputs(w.Text().c_str(), stdout);
  } else {
    size_t nameWidth = 4, vendorWidth = 6;
    for (const VstMapping* m : shown) {
      nameWidth = std::max(nameWidth, ZqvstNarrow(m->Name).size());
      vendorWidth = std::max(vendorWidth, ZqvstNarrow(m->Vendor).size());
    }
    std::string header = "NAME" + std::string(nameWidth - 4 + 2, ' ') + "VENDOR" +
                         std::string(vendorWidth - 6 + 2, ' ') + "ID    I/O   CLSID";
    if (everything) header += "                                   STATE";
    std::printf("%s\n", header.c_str());
    for (const VstMapping* m : shown) {
      std::printf("%-*s  %-*s  %s  %-4s  %s", int(nameWidth), ZqvstNarrow(m->Name).c_str(), int(vendorWidth),
                  ZqvstNarrow(m->Vendor).c_str(), ZqvstFourChars(uint32_t(m->Properties.uniqueID)).c_str(),
                  Channels(*m).c_str(), ZqvstCatalog::ClsidText(m->Clsid).c_str());
      if (everything) std::printf("  %s", StateOf(m->Flags));
      std::printf("\n");
    }
  }
  std::fflush(stdout);
  return kZqvstExitOk;
}
