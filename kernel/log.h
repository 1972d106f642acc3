// CLog: the kernel's thread-safe text log with one generation of rotation.
//
// Routines that may fail quietly write a line here instead of showing a box.
// Every line carries a level tag and, on request, the local date and time and
// the source file and line of the call; every line is flushed before Write
// returns, so a crash right after loses nothing.  When the file reaches the
// size limit it becomes "<path>.previous" (one generation, the older one is
// deleted) and a new file is started with the line that caused the turn.
//
// Threads: every operation may be called from any thread; Init and Write take
// the log's own lock, so lines never interleave.
#pragma once

#include <cstdarg>
#include <cstdio>

#include "base/status.h"
#include "base/types.h"
#include "platform/sync.h"

// Levels and line parts.  The low 16 bits are levels (a Write with a level
// that the log's flags do not hold writes nothing), the high bits add parts
// to every line.
typedef DWORD LOGFLAGS;
constexpr LOGFLAGS ZQLOG_ERROR = 0x1;     // tag "ERR "
constexpr LOGFLAGS ZQLOG_WARNING = 0x2;   // tag "WARN"
constexpr LOGFLAGS ZQLOG_INFO = 0x4;      // tag "INFO"
constexpr LOGFLAGS ZQLOG_DEBUG = 0x8;     // tag "DBG "
constexpr LOGFLAGS ZQLOG_PLAIN = 0x10;    // no tag
constexpr LOGFLAGS ZQLOG_DATETIME = 0x10000;  // " yyyy-mm-dd hh:mm:ss " after the tag
constexpr LOGFLAGS ZQLOG_SOURCE = 0x20000;    // "<file>(<line>): " before the message
constexpr LOGFLAGS ZQLOG_LEVEL_MASK = 0xFFFF;

class ZQ_EXPORT CLog {
 public:
  CLog();
  // Closes the file.
  virtual ~CLog();

  // Opens (appends to) the log at `path`.  `maxSize` is the rotation limit in
  // bytes, 0 or less for none; `shareMode` is how others may open the file
  // meanwhile (0: the default; accepted and kept, every open shares here).
  // E_INVALIDARG for a null path or zero flags, ZQ_E_OPEN_FILE when the file
  // cannot be opened (the log then stays unusable).
  HRESULT Init(const WCHAR* path, LOGFLAGS flags, int maxSize, int shareMode);

  // Writes one line.  `format` is a wide format in the platform's manner:
  // %s takes a wide text, %S an 8-bit (UTF-8) text, %c a wide character, the
  // numeric conversions are those of printf.  The message is cut at 1,023
  // characters.  Answers S_OK, 0 also when the level is not enabled,
  // ZQ_E_COMPONENT when the log is not open, or the failure of a rotation
  // (after which the log is closed).
  HRESULT Write(LOGFLAGS level, const WCHAR* sourceFile, int line, const WCHAR* format, ...);

  // Closes the file; later writes answer ZQ_E_COMPONENT.
  void Shutdown();

  // The path given to Init.
  const WCHAR* GetLogFileName() const { return m_path; }

 private:
  HRESULT OpenFile();
  void CloseFile();

  BOOL m_ready;
  FILE* m_file;
  LOGFLAGS m_flags;
  int m_maxSize;
  WCHAR m_path[MAX_PATH];
  WCHAR m_previousPath[MAX_PATH];
  CRITICAL_SECTION m_lock;
  DWORD m_shareMode;
};

// Formats a wide printf-style format with its arguments into UTF-8 text, as
// CLog::Write does (%s wide text, %S 8-bit text, %c wide character).  Writes
// at most `size` - 1 bytes and a terminator, cutting at a character boundary;
// answers the bytes written.
ZQ_EXPORT size_t ZqLogFormatV(char* out, size_t size, const WCHAR* format, va_list args);
