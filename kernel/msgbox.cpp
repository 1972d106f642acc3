// Message boxes: see msgbox.h.
#include "kernel/msgbox.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

#include "kernel/kformat.h"
#include "kernel/langtable.h"
#include "kernel/log.h"
#include "platform/text.h"
#include "platform/thread.h"

namespace {

// A set's buttons, left to right, and whether it disables close.
struct ButtonSet {
  int count;
  int ids[5];
  bool noClose;
};

constexpr ButtonSet kOkSet = {1, {ZQID_OK}, false};
constexpr ButtonSet kSets[16] = {
    kOkSet,
    {2, {ZQID_OK, ZQID_CANCEL}, false},
    {3, {ZQID_ABORT, ZQID_RETRY, ZQID_IGNORE}, true},
    {3, {ZQID_YES, ZQID_NO, ZQID_CANCEL}, false},
    {2, {ZQID_YES, ZQID_NO}, true},
    {2, {ZQID_RETRY, ZQID_CANCEL}, false},
    kOkSet, kOkSet, kOkSet, kOkSet,
    {4, {ZQID_YES, ZQID_YESTOALL, ZQID_NO, ZQID_CANCEL}, false},
    {3, {ZQID_YES, ZQID_NO, ZQID_DELETE}, true},
    {4, {ZQID_YES, ZQID_NO, ZQID_NOTOALL, ZQID_CANCEL}, false},
    {5, {ZQID_YES, ZQID_YESTOALL, ZQID_NO, ZQID_NOTOALL, ZQID_CANCEL}, false},
    kOkSet, kOkSet,
};

const ButtonSet& SetOf(UINT flags) { return kSets[flags & ZQMB_BUTTONS_MASK]; }
UINT DefaultNumber(UINT flags) { return (flags & ZQMB_DEFAULT_MASK) >> ZQMB_DEFAULT_SHIFT; }

constexpr const WCHAR* kInvalidBox = u"Invalid Message Box parameter...User intervention is needed!!!!";

// The process's box state.
struct BoxState {
  std::mutex lock;
  DWORD thread = 0;
  HMODULE module = nullptr;
  HWND appWindow = nullptr;
  WCHAR title[128] = {};
  ZQMSGBOXHOOK hook = nullptr;
  void* hookData = nullptr;
  ZQMSGBOXNOUICALLBACK noUi = nullptr;
  CLog* log = nullptr;
};
BoxState& State() {
  static BoxState state;
  return state;
}

int NoUiAdapter(void*, HWND, LPCWSTR text, LPCWSTR, UINT flags) {
  BoxState& s = State();
  if (GetCurrentThreadId() != s.thread) return 0;
  const ZQMSGBOXNOUICALLBACK callback = s.noUi;
  const int result = ZqMsgBox_NoUIResult(flags);
  if (callback) callback(result == -1 ? kInvalidBox : text);
  return result;
}

HWND OwnerOf(HWND window) {
  if (window == ZQMB_NO_OWNER) return nullptr;
  return window ? window : State().appWindow;
}

// Without a display: the box goes to standard error and the log, and the
// default button answers.
int ShowWithoutDisplay(const tZQMSGBOX& box) {
  BoxState& s = State();
  std::u16string text = u"[";
  text += box.title && box.title[0] ? box.title : s.title;
  text += u"] ";
  text += box.text ? box.text : u"";
  if (box.detailsText && (box.flags & ZQMB_DETAILS) == ZQMB_DETAILS) text += std::u16string(u"\n") + box.detailsText;
  const std::string utf8 = ZqUtf16ToUtf8(text);
  std::fprintf(stderr, "%s\n", utf8.c_str());
  std::fflush(stderr);
  if (CLog* log = s.log) log->Write(ZQLOG_WARNING, u"msgbox", 0, u"%s", text.c_str());
  if (box.checkValue && (box.flags & ZQMB_CHECKBOX)) *box.checkValue = *box.checkValue ? 1 : 0;
  return ZqMsgBox_DefaultButton(box.flags);
}

// The hook's answer, or -1 when there is no hook or it declines.
int AskHook(HWND owner, LPCWSTR text, LPCWSTR title, UINT flags) {
  BoxState& s = State();
  const ZQMSGBOXHOOK hook = s.hook;
  return hook ? hook(s.hookData, owner, text, title, flags) : -1;
}

// The custom box, steps 1 to 6.
int ShowCustom(HWND window, UINT flags, LPCWSTR details, LPCWSTR checkText, int* check, LPCWSTR title,
               LPCWSTR linkAddress, LPCWSTR linkText, LPCWSTR format, va_list args) {
  if (((flags & ZQMB_DETAILS) == ZQMB_DETAILS && !details) || ((flags & ZQMB_CHECKBOX) && !check)) return 0;
  const HWND owner = OwnerOf(window);
  WCHAR printed[4096];
  LPCWSTR text = format ? format : u"";
  if (ZqKernelIsFormat(text)) {
    ZqKernelFormatV(printed, 4096, text, args);
    text = printed;
  }
  tZQMSGBOX box{};
  box.flags = flags;
  box.text = text;
  box.detailsText = details;
  box.noClose = ZqMsgBox_IsNoClose(flags);
  box.checkText = checkText;
  if ((flags & ZQMB_CHECKBOX) && !checkText)
    box.checkText = ZqGetString(nullptr, ZqLangEntryRef(ZQSTR::MSG_DONT_SHOW_AGAIN));
  box.checkValue = check;
  box.title = title;
  box.linkAddress = linkAddress;
  box.linkText = linkText;
  if (State().hook) {
    std::u16string hooked = text;
    if ((flags & ZQMB_DETAILS) == ZQMB_DETAILS)
      hooked += std::u16string(u"\r\n<Details>\r\n") + details + u"\r\n</Details>";
    const int result = AskHook(owner, hooked.c_str(), title, flags);
    if (result != -1) return result;
  }
  return ShowWithoutDisplay(box);
}

}  // namespace

// ---------------------------------------------------------------------------
// The rules.
// ---------------------------------------------------------------------------

ZQ_API int ZqMsgBox_GetButtons(UINT flags, int* ids) {
  const ButtonSet& set = SetOf(flags);
  if (ids)
    for (int i = 0; i < set.count; ++i) ids[i] = set.ids[i];
  return set.count;
}

ZQ_API BOOL ZqMsgBox_IsNoClose(UINT flags) { return SetOf(flags).noClose; }

ZQ_API LPCWSTR ZqMsgBox_ButtonLabel(int id) {
  ZQSTR entry;
  switch (id) {
    case ZQID_OK: entry = ZQSTR::BTN_OK; break;
    case ZQID_CANCEL: entry = ZQSTR::BTN_CANCEL; break;
    case ZQID_ABORT: entry = ZQSTR::BTN_ABORT; break;
    case ZQID_RETRY: entry = ZQSTR::BTN_RETRY; break;
    case ZQID_IGNORE: entry = ZQSTR::BTN_IGNORE; break;
    case ZQID_YES: entry = ZQSTR::BTN_YES; break;
    case ZQID_NO: entry = ZQSTR::BTN_NO; break;
    case ZQID_YESTOALL: entry = ZQSTR::BTN_YES_TO_ALL; break;
    case ZQID_DELETE: entry = ZQSTR::BTN_DELETE; break;
    case ZQID_NOTOALL: entry = ZQSTR::BTN_NO_TO_ALL; break;
    case ZQID_DETAILS: entry = ZQSTR::BTN_DETAILS_SHOW; break;
    default: return nullptr;
  }
  return ZqLangEntry(entry);
}

ZQ_API int ZqMsgBox_DefaultButton(UINT flags) {
  const ButtonSet& set = SetOf(flags);
  const UINT number = DefaultNumber(flags);
  return set.ids[number < static_cast<UINT>(set.count) ? number : set.count - 1];
}

ZQ_API int ZqMsgBox_NoUIResult(UINT flags) {
  const ButtonSet& set = SetOf(flags);
  if (set.count == 1) return ZQID_OK;
  const UINT number = DefaultNumber(flags);
  return number < static_cast<UINT>(set.count) ? set.ids[number] : -1;
}

ZQ_API int ZqMsgBox_ResultOfCommand(UINT flags, int id) {
  if (id == ZQID_DETAILS) return 0;
  if (id == ZQID_CANCEL) {
    if (SetOf(flags).noClose) return 0;
    if ((flags & ZQMB_BUTTONS_MASK) == ZQMB_OK) return ZQID_OK;
  }
  return id;
}

// ---------------------------------------------------------------------------
// State.
// ---------------------------------------------------------------------------

ZQ_API void ZqMsgBoxSetAppData(HMODULE module, HWND appWindow, LPCWSTR title) {
  BoxState& s = State();
  std::lock_guard<std::mutex> hold(s.lock);
  s.thread = GetCurrentThreadId();
  s.module = module;
  s.appWindow = appWindow;
  ZqKernelCopy(s.title, 128, title);
}

ZQ_API LPCWSTR ZqMsgBoxGetAppTitle() { return State().title; }

ZQ_API BOOL ZqMsgBoxSetHook(ZQMSGBOXHOOK hook, void* data) {
  BoxState& s = State();
  std::lock_guard<std::mutex> hold(s.lock);
  if (GetCurrentThreadId() != s.thread) return 0;
  s.hook = hook;
  s.hookData = data;
  return 1;
}

ZQ_API BOOL ZqMsgBoxSetNoUIHook(ZQMSGBOXNOUICALLBACK callback) {
  BoxState& s = State();
  std::lock_guard<std::mutex> hold(s.lock);
  if (GetCurrentThreadId() != s.thread) return 0;
  if (callback) {
    s.noUi = callback;
    s.hook = NoUiAdapter;
    s.hookData = nullptr;
  } else if (s.hook == NoUiAdapter) {
    s.hook = nullptr;
    s.noUi = nullptr;
  }
  return 1;
}

ZQ_API void ZqMsgBoxSetLog(CLog* log) { State().log = log; }

// ---------------------------------------------------------------------------
// Boxes.
// ---------------------------------------------------------------------------

ZQ_API int ZqMessageBox(HWND window, LPCWSTR text, LPCWSTR title, UINT flags) {
  const HWND owner = OwnerOf(window);
  const int hooked = AskHook(owner, text ? text : u"", title, flags);
  if (hooked != -1) return hooked;
  tZQMSGBOX box{};
  box.flags = flags & ~(ZQMB_DETAILS | ZQMB_CHECKBOX);
  box.text = text;
  box.title = title;
  return ShowWithoutDisplay(box);
}

ZQ_API int ZqMsgBoxF(HWND window, UINT flags, LPCWSTR format, ...) {
  WCHAR text[4096];
  va_list args;
  va_start(args, format);
  if (ZqKernelIsFormat(format))
    ZqKernelFormatV(text, 4096, format, args);
  else
    ZqKernelCopy(text, 4096, format);
  va_end(args);
  return ZqMessageBox(window, text, nullptr, flags);
}

ZQ_API int ZqMsgBoxId(HZQLANG lang, HWND window, UINT flags, UINT id, ...) {
  WCHAR format[1024];
  ZqLoadString(lang ? lang : ZqLang_GetKernelLang(), id, format, 1024);
  WCHAR text[4096];
  va_list args;
  va_start(args, id);
  ZqKernelFormatV(text, 4096, format, args);
  va_end(args);
  return ZqMessageBox(window, text, nullptr, flags);
}

ZQ_API int ZqMsgBox_CustomF(HWND window, UINT flags, LPCWSTR details, LPCWSTR format, ...) {
  va_list args;
  va_start(args, format);
  const int result = ShowCustom(window, flags, details, nullptr, nullptr, nullptr, nullptr, nullptr, format, args);
  va_end(args);
  return result;
}

ZQ_API int ZqMsgBox_TitledF(HWND window, UINT flags, LPCWSTR details, LPCWSTR title, LPCWSTR format, ...) {
  va_list args;
  va_start(args, format);
  const int result = ShowCustom(window, flags, details, nullptr, nullptr, title, nullptr, nullptr, format, args);
  va_end(args);
  return result;
}

ZQ_API int ZqMsgBox_CustomExF(HWND window, UINT flags, LPCWSTR details, LPCWSTR checkText, int* check,
                              LPCWSTR format, ...) {
  va_list args;
  va_start(args, format);
  const int result = ShowCustom(window, flags, details, checkText, check, nullptr, nullptr, nullptr, format, args);
  va_end(args);
  return result;
}

ZQ_API int ZqMsgBox_CustomExLinkF(HWND window, UINT flags, LPCWSTR details, LPCWSTR checkText, int* check,
                                  LPCWSTR linkAddress, LPCWSTR linkText, LPCWSTR format, ...) {
  va_list args;
  va_start(args, format);
  const int result =
      ShowCustom(window, flags, details, checkText, check, nullptr, linkAddress, linkText, format, args);
  va_end(args);
  return result;
}

ZQ_API int ZqMsgBoxNoF(HWND window, UINT flags, LPCWSTR text) { return ZqMsgBoxF(window, flags, u"%s", text); }

ZQ_API int ZqMsgBox_CustomNoF(HWND window, UINT flags, LPCWSTR details, LPCWSTR text) {
  return ZqMsgBox_CustomF(window, flags, details, u"%s", text);
}

ZQ_API int ZqMsgBox_TitledNoF(HWND window, UINT flags, LPCWSTR details, LPCWSTR title, LPCWSTR text) {
  return ZqMsgBox_TitledF(window, flags, details, title, u"%s", text);
}

ZQ_API int ZqMsgBox_CustomExNoF(HWND window, UINT flags, LPCWSTR details, LPCWSTR checkText, int* check,
                                LPCWSTR text) {
  return ZqMsgBox_CustomExF(window, flags, details, checkText, check, u"%s", text);
}
