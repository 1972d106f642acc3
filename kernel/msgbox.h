// Message boxes: the kernel's own modal box (button sets, an expandable
// details pane, a check box and a link) and a thin wrapper round the
// platform's box, with a process-wide hook through which a host takes the
// boxes over or runs without any user interface.
//
// Showing a box.  With a hook set, the hook answers first; a result other
// than -1 is the box's.  Otherwise the box is shown without drawing: its
// caption, text and details go to standard error and to the log given to
// ZqMsgBoxSetLog, and the box answers its default button (the default number
// of the flags, clipped to the last button of the set).
//
// Owners.  Window 0 means the application window given to
// ZqMsgBoxSetAppData; ZQMB_NO_OWNER (-1) means no owner.
//
// Threads.  Boxes may be shown from any thread.  The box state is set once,
// by ZqMsgBoxSetAppData, before other threads show boxes; the hooks may be
// set only on the thread that called it.
#pragma once

#include "base/types.h"
#include "kernel/lang.h"
#include "platform/message.h"

class CLog;

// Box flags.
constexpr UINT ZQMB_BUTTONS_MASK = 0x000F;   // button set, see below
constexpr UINT ZQMB_ICON_MASK = 0x00F0;      // 0x10 stop, 0x20 question, 0x30 exclamation, 0x40 information
constexpr UINT ZQMB_DEFAULT_MASK = 0x0F00;   // number of the default button, from 0
constexpr UINT ZQMB_DEFAULT_SHIFT = 8;
constexpr UINT ZQMB_CHECKBOX = 0x1000;       // show the check box
constexpr UINT ZQMB_DETAILS = 0xC000;        // show the details button and pane

// Button sets (the platform's box uses the same numbers for 0 to 5).
constexpr UINT ZQMB_OK = 0;
constexpr UINT ZQMB_OKCANCEL = 1;
constexpr UINT ZQMB_ABORTRETRYIGNORE = 2;
constexpr UINT ZQMB_YESNOCANCEL = 3;
constexpr UINT ZQMB_YESNO = 4;
constexpr UINT ZQMB_RETRYCANCEL = 5;
constexpr UINT ZQMB_YESALLNOCANCEL = 10;
constexpr UINT ZQMB_YESNODELETE = 11;
constexpr UINT ZQMB_YESNONOALLCANCEL = 12;
constexpr UINT ZQMB_YESALLNONOALLCANCEL = 13;

// Results: the id of the button pressed.
constexpr int ZQID_OK = 1;
constexpr int ZQID_CANCEL = 2;
constexpr int ZQID_ABORT = 3;
constexpr int ZQID_RETRY = 4;
constexpr int ZQID_IGNORE = 5;
constexpr int ZQID_YES = 6;
constexpr int ZQID_NO = 7;
constexpr int ZQID_YESTOALL = 100;
constexpr int ZQID_DELETE = 101;
constexpr int ZQID_NOTOALL = 102;
constexpr int ZQID_DETAILS = 200;   // toggles the details pane; never a result

#define ZQMB_NO_OWNER (reinterpret_cast<HWND>(static_cast<intptr_t>(-1)))

// The argument of the kernel's box; fields in the original order.
struct tZQMSGBOX {
  UINT flags;
  LPCWSTR text;          // the formatted message
  LPCWSTR detailsText;   // shown in the details pane
  BOOL expanded;         // details pane open
  INT expandBy;          // height of the pane with its margins
  BOOL noClose;          // cancel and the title bar's close do nothing
  LPCWSTR checkText;     // label of the check box
  int* checkValue;       // in: initial state; out: state at closing
  LPCWSTR title;         // caption; null takes the application's
  LPCWSTR linkAddress;   // address behind the link
  LPCWSTR linkText;      // text of the link
};

// hook(data, owner, text, title, flags): a result other than -1 is the box's.
typedef int (*ZQMSGBOXHOOK)(void* data, HWND owner, LPCWSTR text, LPCWSTR title, UINT flags);
// Receives the text of a box that is answered without a user interface.
typedef void (*ZQMSGBOXNOUICALLBACK)(LPCWSTR text);

// ---------------------------------------------------------------------------
// Boxes.  The F forms print `format` (when it holds a "%" or "$") with the
// arguments; the NoF forms take a finished text, in which "%" and "$" are
// safe.  The custom forms answer 0 at once when the flags ask for details
// without a details text, or for the check box without a check pointer.
// ---------------------------------------------------------------------------

// The platform's box: `flags` are the platform's (the same button sets 0 to
// 5, icons and default numbers).  A null title takes the application's.
ZQ_API int ZqMessageBox(HWND window, LPCWSTR text, LPCWSTR title, UINT flags);
ZQ_API int ZqMsgBoxF(HWND window, UINT flags, LPCWSTR format, ...);
// The format is string resource `id` of `lang` (null: the kernel's handle).
ZQ_API int ZqMsgBoxId(HZQLANG lang, HWND window, UINT flags, UINT id, ...);
ZQ_API int ZqMsgBox_CustomF(HWND window, UINT flags, LPCWSTR details, LPCWSTR format, ...);
ZQ_API int ZqMsgBox_TitledF(HWND window, UINT flags, LPCWSTR details, LPCWSTR title, LPCWSTR format, ...);
ZQ_API int ZqMsgBox_CustomExF(HWND window, UINT flags, LPCWSTR details, LPCWSTR checkText, int* check,
                              LPCWSTR format, ...);
ZQ_API int ZqMsgBox_CustomExLinkF(HWND window, UINT flags, LPCWSTR details, LPCWSTR checkText, int* check,
                                  LPCWSTR linkAddress, LPCWSTR linkText, LPCWSTR format, ...);
ZQ_API int ZqMsgBoxNoF(HWND window, UINT flags, LPCWSTR text);
ZQ_API int ZqMsgBox_CustomNoF(HWND window, UINT flags, LPCWSTR details, LPCWSTR text);
ZQ_API int ZqMsgBox_TitledNoF(HWND window, UINT flags, LPCWSTR details, LPCWSTR title, LPCWSTR text);
ZQ_API int ZqMsgBox_CustomExNoF(HWND window, UINT flags, LPCWSTR details, LPCWSTR checkText, int* check,
                                LPCWSTR text);

// ---------------------------------------------------------------------------
// Process-wide state.
// ---------------------------------------------------------------------------

// Keeps the calling thread (the one that may set hooks), the module, the
// application window and its title (up to 127 characters; null: empty).
ZQ_API void ZqMsgBoxSetAppData(HMODULE module, HWND appWindow, LPCWSTR title);
// The application's title as given.
ZQ_API LPCWSTR ZqMsgBoxGetAppTitle();
// Sets (or with a null hook removes) the hook.  1 when done; 0 on any
// thread but the one that called ZqMsgBoxSetAppData.
ZQ_API BOOL ZqMsgBoxSetHook(ZQMSGBOXHOOK hook, void* data);
// Installs an adapter as the hook that shows nothing: it passes the text to
// `callback` and answers the default button of the box (ZqMsgBox_NoUIResult),
// or, for a default number the set does not have, passes "Invalid Message
// Box parameter...User intervention is needed!!!!" and answers -1 so that
// the real box appears; on other threads it answers 0.  A null callback
// removes the adapter when it is the hook.  1 when done; 0 on any thread but
// the one that called ZqMsgBoxSetAppData.
ZQ_API BOOL ZqMsgBoxSetNoUIHook(ZQMSGBOXNOUICALLBACK callback);
// The log that boxes shown without a display write to (null: none).  The
// log stays the caller's and must outlive its use here.
ZQ_API void ZqMsgBoxSetLog(CLog* log);

// ---------------------------------------------------------------------------
// The rules of the box, for hosts that draw it themselves.
// ---------------------------------------------------------------------------

// The ids of the buttons of the flags' set, left to right, into `ids` (room
// for 5).  Answers the count.
ZQ_API int ZqMsgBox_GetButtons(UINT flags, int* ids);
// 1 when the set disables cancel and the title bar's close (sets 2, 4, 11).
ZQ_API BOOL ZqMsgBox_IsNoClose(UINT flags);
// The table entry of a button's label (the details button included), or
// null for an unknown id.
ZQ_API LPCWSTR ZqMsgBox_ButtonLabel(int id);
// The default button's id, the default number clipped to the last button.
ZQ_API int ZqMsgBox_DefaultButton(UINT flags);
// The no-UI adapter's answer: the id at the default number of the set, 1 for
// the sets with a single "OK", -1 for a number the set does not have.
ZQ_API int ZqMsgBox_NoUIResult(UINT flags);
// What pressing `id` does: the result that ends the box, 0 when the box stays
// open (cancel or Escape in a set without close, the details button).
// Cancel (2, also the Escape key) in set 0 ends with 1.
ZQ_API int ZqMsgBox_ResultOfCommand(UINT flags, int id);
