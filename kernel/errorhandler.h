// The error handler: the one way in which the system tells anybody that
// something went wrong.
//
// A failing routine returns its status and may add an explanation with
// ZqErrorHandler_DetailsAddString.  The code at the top of the action, the
// one that owns a window, calls ZqErrorHandler_MsgBox: the sentence of the
// context and the sentence of the status are joined, the details go into
// the box's expandable pane, and the details are cleared.  Code that goes on
// after a failure without showing it calls ZqErrorHandler_DetailsInit.
// Quiet failures go to a CLog instead.
//
// Texts.  A context is a number of the kernel's context table (an unknown
// number takes row 0, "An error occurred during the current operation.") or,
// above 65535, a text of its own; it may hold one "%s" for the text
// argument.  A status's text is looked up in the registered tables in the
// order of registration, then in the kernel's table; the kernel's texts
// begin with two line feeds, which separate them from the context's
// sentence.  A status without text reads "Error 0x8004e999 (message
// missing)".
//
// Threads.  The details record is one per process, guarded by a convention
// rather than a lock: the thread that adds the first line after a clearing
// owns it, and other threads may add lines only under the same status as
// the last line.  `message` and the print buffers are shared too:
// ZqErrorHandler_GetErrorMessage serves one thread at a time.  The table
// registry is written at start-up, before other threads use it.
#pragma once

#include "base/status.h"
#include "base/types.h"
#include "kernel/lang.h"
#include "kernel/msgbox.h"
#include "kernel/sysstring.h"

#if !defined(_WIN32)
#include "platform/guard.h"
#endif

// The details record, one per process; fields in the original order.
struct tZQERRORDETAILS {
  HRESULT lastError;         // status of the last detail line
  WCHAR message[2048];       // the message composed last
  DWORD detailThread;        // thread that added the first detail line
  INT detailCount;           // lines in `details`
  WCHAR details[8192];       // lines, each ended by CR LF
  WCHAR linkAddress[2083];   // target of the link
  WCHAR linkText[2048];      // text of the link
};
static_assert(offsetof(tZQERRORDETAILS, message) == 4);
static_assert(offsetof(tZQERRORDETAILS, detailThread) == 4 + 2 * 2048);
static_assert(offsetof(tZQERRORDETAILS, details) == 4 + 2 * 2048 + 8);
static_assert(sizeof(tZQERRORDETAILS) == 4 + 2 * 2048 + 8 + 2 * (8192 + 2083 + 2048) + 2);

// Limits of the record and of the registry of tables.
constexpr int ZQERR_MESSAGE_CHARS = 2048;
constexpr int ZQERR_DETAIL_BYTES = 16384;  // a line that would reach this is refused
constexpr int ZQERR_MAX_TABLES = 32;
// A context sentence this long leaves no room for the status's sentence.
constexpr int ZQERR_CONTEXT_LIMIT = 1948;

// A row of a message table: a status and its text, which is a table entry,
// a resource number or a plain text (the three forms of ZqGetStringSmart).
struct _zqerror_table {
  HRESULT status;
  LPCWSTR text;
};
// The same row with a resource number.
struct _zqerror_table_rcid {
  HRESULT status;
  UINT_PTR id;
};
static_assert(sizeof(_zqerror_table) == sizeof(_zqerror_table_rcid));

// ---------------------------------------------------------------------------
// Messages.
// ---------------------------------------------------------------------------

// Shows the message of `context`, `status` and `argument` (null: empty) in
// a box of `flags` (kernel/msgbox.h), prefixed with "Warning: " when
// `warning` is set.  ZQ_E_CANCELLED shows nothing and answers 1.  Answers
// the box's result.  Clears the details record.
ZQ_API int ZqErrorHandler_MsgBox(HWND window, UINT flags, UINT_PTR context, HRESULT status,
                                 LPCWSTR argument, bool warning);
// Shows a finished text the same way: the details (when there are any) go
// to the box's details pane (0xC000 is set, otherwise cleared), the link to
// its link, and the record is cleared before the box opens.
ZQ_API int ZqErrorHandler_MsgBoxText(HWND window, UINT flags, LPCWSTR text, bool warning);
// Composes the message into the record's `message` and answers it.  Only
// one thread at a time.
ZQ_API LPCWSTR ZqErrorHandler_GetErrorMessage(UINT_PTR context, HRESULT status, LPCWSTR argument);
// The message followed, when there are details, by "\r\n<Details>\r\n",
// the details and "\r\n</Details>", as a new system string (free it with
// SysFreeString; null when memory runs out).
ZQ_API BSTR ZqErrorHandler_ComposeErrorText(UINT_PTR context, HRESULT status, LPCWSTR argument);
// The context's text (row 0 for an unknown number; a value above 65535 is
// answered as the text it points at).
ZQ_API LPCWSTR ZqErrorHandler_GetContextString(UINT_PTR context);
// The status's text, or null when no table has it.
ZQ_API LPCWSTR ZqErrorHandler_GetHresultString(HRESULT status);
// Registers a table of `count` rows whose texts are read through `lang`
// (null: the kernel's handle).  The rows stay the caller's and must live as
// long as the process.  0, or 1 when 32 tables are registered already.
ZQ_API int ZqErrorHandler_AddErrorTable(const _zqerror_table* rows, int count);
ZQ_API int ZqErrorHandler_AddErrorTableLang(HZQLANG lang, const _zqerror_table* rows, int count);

// ---------------------------------------------------------------------------
// Details.
// ---------------------------------------------------------------------------

// The status of the last detail line.
ZQ_API HRESULT ZqErrorHandler_GetLastError();
// Clears the whole record.  Answers 0.
ZQ_API HRESULT ZqErrorHandler_DetailsInit();
// Fills what is asked for (each pointer may be null); answers `details`, or
// null when there is no line.
ZQ_API LPCWSTR ZqErrorHandler_DetailsInfo(HRESULT* status, INT* count, DWORD* thread);
// Adds one line, printed from `format` and its arguments when the format
// holds a "%" or "$" and used as it is otherwise.  S_OK; E_FAIL from a
// thread that does not own the record unless `status` equals the last
// line's, and when the line would bring `details` to 16384 bytes (the
// earlier lines stay); E_POINTER for a null format.
ZQ_API HRESULT ZqErrorHandler_DetailsAddString(HRESULT status, LPCWSTR format, ...);
// The link the next box shows.  E_POINTER when either is null; both are cut
// to their fields.
ZQ_API HRESULT ZqErrorHandler_DetailsSetHyperlink(LPCWSTR address, LPCWSTR text);

// ---------------------------------------------------------------------------
// Platform error numbers.
// ---------------------------------------------------------------------------

// The status for a platform error number (GetLastError): 0 gives 0; the
// numbers the system knows give their statuses (a missing file or folder
// ZQ_E_NOT_FOUND, a full disk ZQ_E_DISK_FULL, a file in use
// ZQ_E_FILE_IN_USE, an existing file ZQ_E_FILE_EXISTS, ...); every other
// number E_FAIL.
ZQ_API HRESULT ZqErrorHandler_TranslateWin32Error(DWORD code);
// The status for an error number of the common dialogs.
ZQ_API HRESULT ZqErrorHandler_TranslateCommDlgError(DWORD code);

// ---------------------------------------------------------------------------
// Exceptions.
// ---------------------------------------------------------------------------

// Sections of ZqErrorHandler_DumpExceptionRecord (0 means all).
constexpr UINT ZQDUMP_EXCEPTION = 1;
constexpr UINT ZQDUMP_MODULE = 2;
constexpr UINT ZQDUMP_REGISTERS = 4;
constexpr UINT ZQDUMP_CODE = 8;
constexpr UINT ZQDUMP_STACK = 16;
constexpr UINT ZQDUMP_THREAD = 32;
constexpr UINT ZQDUMP_ALL = 255;
// The dump stops after a section that leaves fewer bytes than this.
constexpr int ZQDUMP_RESERVE = 50;

// `count` bytes at `address` as lines of 8: " <address>: ", each byte "%02X "
// (".. " when unreadable, blanks past the end), the bytes as text ("." for
// unreadable ones and values below 32 or from 127 up), CR LF.  Appends to
// the narrow text in `dst` of `size` bytes; stops when fewer than 50 bytes
// are left.  Answers the characters written.
ZQ_API int ZqErrorHandler_DumpHex(char* dst, int size, const void* address, int count);
// The same with 4 words of 32 bits a line ("%08X ", "........ ").
ZQ_API int ZqErrorHandler_DumpHexDWords(char* dst, int size, const void* address, int count);
// Appends the report of an exception to the narrow text in `dst` of `size`
// bytes: the code with its name and address, the module that holds the
// address with the offset into it, the thread with its stack, the
// registers, the bytes at the instruction pointer and the stack, as
// `sections` selects.  Safe to call from a guard's filter: unreadable
// memory prints as dots.
ZQ_API void ZqErrorHandler_DumpExceptionRecord(char* dst, int size, LPCWSTR threadName,
                                               const EXCEPTION_POINTERS* pointers, UINT sections);
// Shows an exception: the details record is cleared and given `title`
// (null: "Unknown plug-in") and the dump (at most 4,096 bytes) as two lines
// under ZQ_E_EXCEPTION, and the box of context 0 and ZQ_E_EXCEPTION opens
// with no owner and the exclamation icon.  Answers the box's result.
ZQ_API int ZqErrorHandler_ShowException(const EXCEPTION_POINTERS* pointers, LPCWSTR threadName, LPCWSTR title);
// The filter of a guard that reports: passes misalignment faults and faults
// under a debugger on (0); otherwise shows the exception under the
// application's title and answers 1 (handle).
ZQ_API LONG ZqErrorHandler_ExceptionFilter(const EXCEPTION_POINTERS* pointers, LPCWSTR threadName);
// The name of an exception code ("access violation"), or "Unknown Type".
ZQ_API LPCSTR ZqErrorHandler_ExceptionName(DWORD code);
