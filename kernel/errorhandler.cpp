// The error handler: see errorhandler.h.
#include "kernel/errorhandler.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

#include "kernel/kformat.h"
#include "kernel/langtable.h"
#include "platform/faultinfo.h"
#include "platform/memory.h"
#include "platform/text.h"
#include "platform/thread.h"

namespace {

// The context table: context number and its table entry.  Row 0 comes first
// and stands for every number it does not list.
struct ContextRow {
  UINT number;
  ZQSTR entry;
};
constexpr ContextRow kContexts[] = {
    {0, ZQSTR::CONTEXT_0},   {1, ZQSTR::CONTEXT_1},   {2, ZQSTR::CONTEXT_2},   {3, ZQSTR::CONTEXT_3},
    {4, ZQSTR::CONTEXT_4},   {5, ZQSTR::CONTEXT_5},   {6, ZQSTR::CONTEXT_6},   {7, ZQSTR::CONTEXT_7},
    {8, ZQSTR::CONTEXT_8},   {9, ZQSTR::CONTEXT_9},   {10, ZQSTR::CONTEXT_10}, {11, ZQSTR::CONTEXT_11},
    {12, ZQSTR::CONTEXT_12}, {14, ZQSTR::CONTEXT_14}, {15, ZQSTR::CONTEXT_15}, {16, ZQSTR::CONTEXT_16},
    {17, ZQSTR::CONTEXT_17}, {18, ZQSTR::CONTEXT_18}, {19, ZQSTR::CONTEXT_19}, {20, ZQSTR::CONTEXT_20},
    {21, ZQSTR::CONTEXT_21}, {22, ZQSTR::CONTEXT_22}, {23, ZQSTR::CONTEXT_23}, {24, ZQSTR::CONTEXT_24},
    {25, ZQSTR::CONTEXT_25}, {26, ZQSTR::CONTEXT_26}, {27, ZQSTR::CONTEXT_27}, {28, ZQSTR::CONTEXT_28},
    {29, ZQSTR::CONTEXT_29}, {30, ZQSTR::CONTEXT_30}, {31, ZQSTR::CONTEXT_31}, {32, ZQSTR::CONTEXT_32},
    {33, ZQSTR::CONTEXT_33}, {34, ZQSTR::CONTEXT_34}, {35, ZQSTR::CONTEXT_35}, {36, ZQSTR::CONTEXT_36},
    {37, ZQSTR::CONTEXT_37}, {38, ZQSTR::CONTEXT_38}, {39, ZQSTR::CONTEXT_39}, {40, ZQSTR::CONTEXT_40},
    {41, ZQSTR::CONTEXT_41}, {43, ZQSTR::CONTEXT_43}, {44, ZQSTR::CONTEXT_44}, {45, ZQSTR::CONTEXT_45},
    {46, ZQSTR::CONTEXT_46}, {47, ZQSTR::CONTEXT_47}, {48, ZQSTR::CONTEXT_48}, {50, ZQSTR::CONTEXT_50},
    {51, ZQSTR::CONTEXT_51}, {52, ZQSTR::CONTEXT_52}, {54, ZQSTR::CONTEXT_54}, {55, ZQSTR::CONTEXT_55},
    {56, ZQSTR::CONTEXT_56}, {57, ZQSTR::CONTEXT_57},
};

// Platform error numbers with a status of their own; all others give E_FAIL.
struct Win32Row {
  DWORD code;
  uint32_t status;
};
constexpr Win32Row kWin32[] = {
    {0, 0},            {1, 0x80070057},   {2, 0x8004E00A},   {3, 0x8004E00A},   {4, 0x8004E026},
    {5, 0x80070005},   {6, 0x80070006},   {14, 0x8007000E},  {15, 0x800404B0},  {32, 0x8004E05A},
    {39, 0x8004E002},  {80, 0x8004E032},  {84, 0x8007000E},  {110, 0x8004E007}, {112, 0x8004E002},
    {120, 0x80004001}, {123, 0x8004E00D}, {126, 0x8004E00A}, {127, 0x8004E00A}, {170, 0x8004E005},
    {183, 0x8004E170},
};

struct Table {
  const _zqerror_table* rows;
  int count;
  HZQLANG lang;
};

// The process's record and the registry of tables.  The lock keeps a line
// whole; ownership of the record is the convention of the header.
struct ErrorState {
  std::mutex lock;
  tZQERRORDETAILS record;
  WCHAR lineBuffer[8192];
  Table tables[ZQERR_MAX_TABLES];
  int tableCount;
};
ErrorState& State() {
  static ErrorState* state = new ErrorState();
  return *state;
}

void ClearRecord(tZQERRORDETAILS& record) { std::memset(&record, 0, sizeof record); }

LPCWSTR Smart(HZQLANG lang, LPCWSTR text) {
  return ZqGetStringSmart(lang ? lang : ZqLang_GetKernelLang(), text);
}

}  // namespace

// ---------------------------------------------------------------------------
// Texts.
// ---------------------------------------------------------------------------

ZQ_API LPCWSTR ZqErrorHandler_GetContextString(UINT_PTR context) {
  if (context > 0xFFFF) return reinterpret_cast<LPCWSTR>(context);
  ZQSTR entry = kContexts[0].entry;
  for (const ContextRow& row : kContexts)
    if (row.number == context) entry = row.entry;
  return ZqGetString(nullptr, ZqLangEntryRef(entry));
}

ZQ_API LPCWSTR ZqErrorHandler_GetHresultString(HRESULT status) {
  ErrorState& s = State();
  for (int t = 0; t < s.tableCount; ++t)
    for (int r = 0; r < s.tables[t].count; ++r)
      if (s.tables[t].rows[r].status == status) return Smart(s.tables[t].lang, s.tables[t].rows[r].text);
  const WCHAR* entry = ZqLangStatusEntry(status);
  return entry ? Smart(nullptr, entry) : nullptr;
}

ZQ_API int ZqErrorHandler_AddErrorTableLang(HZQLANG lang, const _zqerror_table* rows, int count) {
  ErrorState& s = State();
  std::lock_guard<std::mutex> hold(s.lock);
  if (s.tableCount >= ZQERR_MAX_TABLES) return 1;
  s.tables[s.tableCount++] = Table{rows, rows ? count : 0, lang};
  return 0;
}

ZQ_API int ZqErrorHandler_AddErrorTable(const _zqerror_table* rows, int count) {
  return ZqErrorHandler_AddErrorTableLang(nullptr, rows, count);
}

ZQ_API LPCWSTR ZqErrorHandler_GetErrorMessage(UINT_PTR context, HRESULT status, LPCWSTR argument) {
  WCHAR* message = State().record.message;
  int length = ZqKernelFormat(message, ZQERR_MESSAGE_CHARS, ZqErrorHandler_GetContextString(context),
                              argument ? argument : u"");
  if (length >= ZQERR_CONTEXT_LIMIT) return message;
  LPCWSTR text = ZqErrorHandler_GetHresultString(status);
  WCHAR missing[100];
  if (!text) {
    ZqKernelFormat(missing, 100, ZqGetString(nullptr, ZqLangEntryRef(ZQSTR::MSG_MISSING)),
                   static_cast<unsigned>(status));
    text = missing;
  }
  // The status's text is printed for its tokens; it takes no arguments, and
  // the empty text stands in for a stray "%s".
  ZqKernelFormat(message + length, ZQERR_MESSAGE_CHARS - length, text, u"");
  return message;
}

ZQ_API BSTR ZqErrorHandler_ComposeErrorText(UINT_PTR context, HRESULT status, LPCWSTR argument) {
  std::u16string text = ZqErrorHandler_GetErrorMessage(context, status, argument);
  const tZQERRORDETAILS& record = State().record;
  if (record.detailCount > 0) text += std::u16string(u"\r\n<Details>\r\n") + record.details + u"\r\n</Details>";
  return SysAllocStringLen(text.c_str(), static_cast<UINT>(text.size()));
}

// ---------------------------------------------------------------------------
// Boxes.
// ---------------------------------------------------------------------------

ZQ_API int ZqErrorHandler_MsgBox(HWND window, UINT flags, UINT_PTR context, HRESULT status, LPCWSTR argument,
                                 bool warning) {
  if (status == ZQ_E_CANCELLED) return 1;
  return ZqErrorHandler_MsgBoxText(window, flags, ZqErrorHandler_GetErrorMessage(context, status, argument),
                                   warning);
}

ZQ_API int ZqErrorHandler_MsgBoxText(HWND window, UINT flags, LPCWSTR text, bool warning) {
  WCHAR prefix[50];
  ZqLoadString(nullptr, ZqLangEntryRef(ZQSTR::MSG_WARNING), prefix, 50);
  ErrorState& s = State();
  std::u16string details, address, linkText;
  std::u16string boxText = warning ? prefix : u"";
  boxText += text ? text : u"";
  {
    std::lock_guard<std::mutex> hold(s.lock);
    flags &= ~ZQMB_DETAILS;
    if (s.record.detailCount > 0 && s.record.details[0]) {
      details = s.record.details;
      flags |= ZQMB_DETAILS;
    }
    address = s.record.linkAddress;
    linkText = s.record.linkText;
    ClearRecord(s.record);
  }
  const LPCWSTR pane = details.empty() ? nullptr : details.c_str();
  if (!address.empty() && !linkText.empty())
    return ZqMsgBox_CustomExLinkF(window, flags, pane, nullptr, nullptr, address.c_str(), linkText.c_str(), u"%s",
                                  boxText.c_str());
  return ZqMsgBox_CustomF(window, flags, pane, u"%s", boxText.c_str());
}

// ---------------------------------------------------------------------------
// Details.
// ---------------------------------------------------------------------------

ZQ_API HRESULT ZqErrorHandler_GetLastError() { return State().record.lastError; }

ZQ_API HRESULT ZqErrorHandler_DetailsInit() {
  ErrorState& s = State();
  std::lock_guard<std::mutex> hold(s.lock);
  ClearRecord(s.record);
  return S_OK;
}

ZQ_API LPCWSTR ZqErrorHandler_DetailsInfo(HRESULT* status, INT* count, DWORD* thread) {
  const tZQERRORDETAILS& record = State().record;
  if (status) *status = record.lastError;
  if (count) *count = record.detailCount;
  if (thread) *thread = record.detailThread;
  return record.detailCount < 1 ? nullptr : record.details;
}

ZQ_API HRESULT ZqErrorHandler_DetailsAddString(HRESULT status, LPCWSTR format, ...) {
  ErrorState& s = State();
  std::lock_guard<std::mutex> hold(s.lock);
  tZQERRORDETAILS& record = s.record;
  const DWORD me = GetCurrentThreadId();
  if (record.detailThread == 0)
    record.detailThread = me;
  else if (record.detailThread != me && status != record.lastError)
    return E_FAIL;
  if (!format) return E_POINTER;
  LPCWSTR text = format;
  if (ZqKernelIsFormat(format)) {
    va_list args;
    va_start(args, format);
    ZqKernelFormatV(s.lineBuffer, 8192, format, args);
    va_end(args);
    text = s.lineBuffer;
  }
  const int have = lstrlenW(record.details);
  const int add = lstrlenW(text);
  if ((have + add + 2) * 2 >= ZQERR_DETAIL_BYTES) return E_FAIL;
  std::memcpy(record.details + have, text, add * sizeof(WCHAR));
  record.details[have + add] = u'\r';
  record.details[have + add + 1] = u'\n';
  record.details[have + add + 2] = 0;
  ++record.detailCount;
  record.lastError = status;
  return S_OK;
}

ZQ_API HRESULT ZqErrorHandler_DetailsSetHyperlink(LPCWSTR address, LPCWSTR text) {
  if (!address || !text) return E_POINTER;
  ErrorState& s = State();
  std::lock_guard<std::mutex> hold(s.lock);
  ZqKernelCopy(s.record.linkAddress, 2083, address);
  ZqKernelCopy(s.record.linkText, 2048, text);
  return S_OK;
}

// ---------------------------------------------------------------------------
// Error numbers.
// ---------------------------------------------------------------------------

ZQ_API HRESULT ZqErrorHandler_TranslateWin32Error(DWORD code) {
  for (const Win32Row& row : kWin32)
    if (row.code == code) return static_cast<HRESULT>(row.status);
  return E_FAIL;
}

ZQ_API HRESULT ZqErrorHandler_TranslateCommDlgError(DWORD code) {
  switch (code) {
    case 0: return S_OK;
    case 1: case 3: case 4: case 11: case 0x3003: case 0x4001: case 0xFFFF: return E_INVALIDARG;
    case 2: case 5: case 7: case 8: case 9: case 10: case 0x3001: return E_OUTOFMEMORY;
    case 6: return ZQ_E_MISSING_RESOURCE;
    case 0x3002: return ZQ_E_BAD_FILE_NAME;
    default: return E_FAIL;
  }
}

// ---------------------------------------------------------------------------
// Exceptions.
// ---------------------------------------------------------------------------

namespace {

struct ExceptionNameRow {
  DWORD code;
  const char* name;
};
constexpr ExceptionNameRow kExceptionNames[] = {
    {0x80000001, "guard page violation"},  {0x80000002, "datatype misalignment"},
    {0x80000003, "breakpoint"},            {0x80000004, "single step"},
    {0xC0000005, "access violation"},      {0xC0000006, "in page error"},
    {0xC0000008, "invalid handle"},        {0xC0000017, "no memory"},
    {0xC000001D, "illegal instruction"},   {0xC0000025, "noncontinuable exception"},
    {0xC0000026, "invalid disposition"},   {0xC000008C, "array bounds exceeded"},
    {0xC000008D, "float denormal operand"}, {0xC000008E, "float divide by zero"},
    {0xC000008F, "float inexact result"},  {0xC0000090, "float invalid operation"},
    {0xC0000091, "float overflow"},        {0xC0000092, "float stack check"},
    {0xC0000093, "float underflow"},       {0xC0000094, "integer divide by zero"},
    {0xC0000095, "integer overflow"},      {0xC0000096, "privileged instruction"},
    {0xC00000FD, "stack overflow"},        {0xC000013A, "control+c exit"},
};

// Appends to a narrow text of `size` bytes.
class Writer {
 public:
  Writer(char* dst, int size)
      : dst_(dst), size_(size), length_(dst && size > 0 ? static_cast<int>(strnlen(dst, size)) : 0) {
    if (dst_ && size_ > 0 && length_ >= size_) dst_[length_ = size_ - 1] = 0;
  }
  void Add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    if (!dst_ || size_ - length_ <= 1) return;
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(dst_ + length_, size_ - length_, format, args);
    va_end(args);
    if (n > 0) length_ = std::min(length_ + n, size_ - 1);
  }
  int Room() const { return size_ - length_; }
  int Length() const { return length_; }

 private:
  char* dst_;
  int size_;
  int length_;
};

// Copies `size` bytes of any readable memory.  Dumps read what lies on a
// stack or around an address, which the address checker of instrumented
// builds may hold poisoned: the copy is left uninstrumented on purpose.
__attribute__((no_sanitize("address"))) bool ReadBytes(const void* at, void* out, size_t size) {
  if (!ZqIsMemoryReadable(at, size)) return false;
  const volatile BYTE* from = static_cast<const volatile BYTE*>(at);
  BYTE* to = static_cast<BYTE*>(out);
  for (size_t i = 0; i < size; ++i) to[i] = from[i];
  return true;
}

// " <base> + <offset> (<file>)" for a word that points into a module.
bool AddModule(Writer& w, ULONG_PTR word) {
  ULONG_PTR base = 0;
  char path[MAX_PATH];
  if (!ZqDescribeAddress(reinterpret_cast<const void*>(word), &base, path, sizeof path)) return false;
  const char* name = std::strrchr(path, '/');
  w.Add(" %p + %lX (%s)", reinterpret_cast<void*>(base), static_cast<unsigned long>(word - base),
        name ? name + 1 : path);
  return true;
}

// One stack line; answers whether the word points into a module.
bool StackLine(Writer& w, ULONG_PTR at, const char* lead) {
  ULONG_PTR word = 0;
  const bool readable = ReadBytes(reinterpret_cast<const void*>(at), &word, sizeof word);
  w.Add("%s%p: ", lead, reinterpret_cast<void*>(at));
  if (readable)
    w.Add("%016llX ", static_cast<unsigned long long>(word));
  else
    w.Add("................ ");
  const bool inModule = readable && AddModule(w, word);
  w.Add("\r\n");
  return inModule;
}

void DumpStack(Writer& w, ULONG_PTR sp, ULONG_PTR top) {
  constexpr ULONG_PTR kWord = sizeof(ULONG_PTR);
  w.Add("Stack Dump:\r\n");
  ULONG_PTR end = sp + 16 * kWord;
  if (top > end && top - end <= 80) end = top;
  if (top && end > top) end = top;
  int hits = 0;
  ULONG_PTR at = sp;
  for (; at < end && w.Room() >= ZQDUMP_RESERVE; at += kWord) hits += StackLine(w, at, " ");
  if (hits < 6 && top > sp + 64 + 16) {
    for (ULONG_PTR walk = std::max(at, sp + 64); walk + 16 <= top && hits < 6 && w.Room() >= ZQDUMP_RESERVE;
         walk += kWord) {
      ULONG_PTR word = 0;
      if (!ReadBytes(reinterpret_cast<const void*>(walk), &word, kWord)) break;
      if (ZqDescribeAddress(reinterpret_cast<const void*>(word), nullptr, nullptr, 0)) {
        StackLine(w, walk, ">");
        ++hits;
      }
      at = walk + kWord;
    }
  }
  if (top && top > at + 4 * kWord && w.Room() >= ZQDUMP_RESERVE) {
    w.Add("- - -\r\n");
    for (ULONG_PTR last = top - 4 * kWord; last < top && w.Room() >= ZQDUMP_RESERVE; last += kWord)
      StackLine(w, last, " ");
  }
}

// Lines of `perLine` units of `unit` bytes.
int DumpUnits(char* dst, int size, const void* address, int count, int unit, int perLine) {
  Writer w(dst, size);
  const int start = w.Length();
  const auto* bytes = static_cast<const BYTE*>(address);
  for (int line = 0; line < count && w.Room() >= ZQDUMP_RESERVE; line += unit * perLine) {
    w.Add(" %p: ", static_cast<const void*>(bytes + line));
    std::string shown;
    for (int i = 0; i < unit * perLine; i += unit) {
      BYTE at[4] = {};
      if (line + i >= count) {
        w.Add("%*s", unit * 2 + 1, "");
        continue;
      }
      if (!ReadBytes(bytes + line + i, at, unit)) {
        w.Add("%s ", unit == 1 ? ".." : "........");
        shown.append(unit, '.');
        continue;
      }
      if (unit == 1) {
        w.Add("%02X ", at[0]);
      } else {
        DWORD word = 0;
        std::memcpy(&word, at, sizeof word);
        w.Add("%08X ", word);
      }
      for (int b = 0; b < unit; ++b) shown += at[b] < 32 || at[b] >= 127 ? '.' : static_cast<char>(at[b]);
    }
    w.Add("%s\r\n", shown.c_str());
  }
  return w.Length() - start;
}

}  // namespace

ZQ_API LPCSTR ZqErrorHandler_ExceptionName(DWORD code) {
  for (const ExceptionNameRow& row : kExceptionNames)
    if (row.code == code) return row.name;
  return "Unknown Type";
}

ZQ_API int ZqErrorHandler_DumpHex(char* dst, int size, const void* address, int count) {
  return DumpUnits(dst, size, address, count, 1, 8);
}

ZQ_API int ZqErrorHandler_DumpHexDWords(char* dst, int size, const void* address, int count) {
  return DumpUnits(dst, size, address, count, 4, 4);
}

ZQ_API void ZqErrorHandler_DumpExceptionRecord(char* dst, int size, LPCWSTR threadName,
                                               const EXCEPTION_POINTERS* pointers, UINT sections) {
  if (!dst || size < 1 || !pointers || !pointers->ExceptionRecord) return;
  if (sections == 0) sections = ZQDUMP_ALL;
  // The crash reporter of the original platform has no counterpart here.
  const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
  const CONTEXT* context = pointers->ContextRecord;
  Writer w(dst, size);
  const auto stop = [&] { return w.Room() < ZQDUMP_RESERVE; };
  if (sections & ZQDUMP_EXCEPTION) {
    char access[64] = "";
    if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters >= 2)
      std::snprintf(access, sizeof access, " %s:0x%p", record.ExceptionInformation[0] ? "WRITE" : "READ",
                    reinterpret_cast<void*>(record.ExceptionInformation[1]));
    w.Add("Exception 0x%X (%s)%s IP:0x%p\r\n", record.ExceptionCode, ZqErrorHandler_ExceptionName(record.ExceptionCode),
          access, record.ExceptionAddress);
    if (stop()) return;
  }
  if (sections & ZQDUMP_MODULE) {
    ULONG_PTR base = 0;
    char path[MAX_PATH] = "?";
    ZqDescribeAddress(record.ExceptionAddress, &base, path, sizeof path);
    w.Add("In Module '%s' at Address 0x%p + 0x%p\r\n", path, reinterpret_cast<void*>(base),
          reinterpret_cast<void*>(reinterpret_cast<ULONG_PTR>(record.ExceptionAddress) - base));
    if (stop()) return;
  }
  ULONG_PTR low = 0, top = 0;
  if (sections & ZQDUMP_THREAD) {
    const std::string name = ZqUtf16ToUtf8(threadName ? threadName : u"");
    char stack[64] = "unknown";
    if (ZqGetThreadStack(&low, &top) && context && context->Rsp >= low && context->Rsp < top)
      std::snprintf(stack, sizeof stack, "0x%p-0x%p", reinterpret_cast<void*>(low), reinterpret_cast<void*>(top));
    else
      low = top = 0;
    w.Add("Thread: %s ID=0x%X Stack=%s\r\n", name.c_str(), GetCurrentThreadId(), stack);
    if (stop()) return;
  }
  if ((sections & ZQDUMP_REGISTERS) && context) {
    const CONTEXT& c = *context;
    using ull = unsigned long long;
    w.Add("Registers:\r\n");
    w.Add(" RAX=%016llx RBX=%016llx RCX=%016llx RDX=%016llx\r\n", ull(c.Rax), ull(c.Rbx), ull(c.Rcx), ull(c.Rdx));
    w.Add(" RSI=%016llx RDI=%016llx RBP=%016llx RSP=%016llx\r\n", ull(c.Rsi), ull(c.Rdi), ull(c.Rbp), ull(c.Rsp));
    w.Add(" R8 =%016llx R9 =%016llx R10=%016llx R11=%016llx\r\n", ull(c.R8), ull(c.R9), ull(c.R10), ull(c.R11));
    w.Add(" R12=%016llx R13=%016llx R14=%016llx R15=%016llx\r\n", ull(c.R12), ull(c.R13), ull(c.R14), ull(c.R15));
    w.Add(" RIP=%016llx EFLGS=%08x MXCSR=%08x FPCW=%04x\r\n", ull(c.Rip), c.EFlags, c.MxCsr, c.FltSave.ControlWord);
    if (stop()) return;
  }
  if ((sections & ZQDUMP_CODE) && context) {
    w.Add("Bytes at CS:EIP:\r\n");
    ZqErrorHandler_DumpHex(dst, size, reinterpret_cast<const void*>(context->Rip), 16);
    w = Writer(dst, size);
    if (stop()) return;
  }
  if ((sections & ZQDUMP_STACK) && context) DumpStack(w, context->Rsp, top);
}

namespace {

void AddDump(const char* dump, LPCWSTR title) {
  ZqErrorHandler_DetailsInit();
  ZqErrorHandler_DetailsAddString(ZQ_E_EXCEPTION, u"%s",
                                  title ? title : ZqGetString(nullptr, ZqLangEntryRef(ZQSTR::PLUGIN_UNKNOWN)));
  const std::u16string wide = ZqUtf8ToUtf16(dump);
  ZqErrorHandler_DetailsAddString(ZQ_E_EXCEPTION, u"%s", wide.c_str());
}

int ShowDetails() {
  return ZqErrorHandler_MsgBoxText(ZQMB_NO_OWNER, 48, ZqErrorHandler_GetErrorMessage(0, ZQ_E_EXCEPTION, nullptr),
                                   false);
}

}  // namespace

ZQ_API int ZqErrorHandler_ShowException(const EXCEPTION_POINTERS* pointers, LPCWSTR threadName, LPCWSTR title) {
  char dump[4096] = "";
  ZqErrorHandler_DumpExceptionRecord(dump, sizeof dump, threadName, pointers, ZQDUMP_ALL);
  AddDump(dump, title);
  return ShowDetails();
}

ZQ_API LONG ZqErrorHandler_ExceptionFilter(const EXCEPTION_POINTERS* pointers, LPCWSTR threadName) {
  if (!pointers || !pointers->ExceptionRecord) return 0;
  if (pointers->ExceptionRecord->ExceptionCode == EXCEPTION_DATATYPE_MISALIGNMENT) return 0;
  char dump[4096] = "";
  ZqErrorHandler_DumpExceptionRecord(dump, sizeof dump, threadName, pointers, ZQDUMP_ALL);
  if (IsDebuggerPresent()) return 0;
  AddDump(dump, ZqMsgBoxGetAppTitle());
  ShowDetails();
  return 1;
}
