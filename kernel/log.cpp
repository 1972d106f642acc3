// CLog: see log.h.
#include "kernel/log.h"

#include <cstring>

#include "platform/file.h"
#include "platform/time.h"

namespace {

// Appends the UTF-8 form of one code point; answers the bytes used.
size_t PutUtf8(char* out, uint32_t cp) {
  if (cp < 0x80) {
    out[0] = static_cast<char>(cp);
    return 1;
  }
  if (cp < 0x800) {
    out[0] = static_cast<char>(0xC0 | (cp >> 6));
    out[1] = static_cast<char>(0x80 | (cp & 0x3F));
    return 2;
  }
  if (cp < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (cp >> 12));
    out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (cp & 0x3F));
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | (cp >> 18));
  out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (cp & 0x3F));
  return 4;
}

// Wide text (at most `count` units, or to its terminator when count < 0) to
// UTF-8 in `out` of `size` bytes, always terminated; a lone surrogate becomes
// U+FFFD.  Answers the bytes written without the terminator.
size_t WideToUtf8(char* out, size_t size, const WCHAR* text, ptrdiff_t count = -1) {
  if (size == 0) return 0;
  size_t used = 0;
  for (ptrdiff_t i = 0; text && (count < 0 ? text[i] != 0 : i < count); ++i) {
    uint32_t cp = text[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && (count < 0 || i + 1 < count) && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    char bytes[4];
    size_t n = PutUtf8(bytes, cp);
    if (used + n + 1 > size) break;
    memcpy(out + used, bytes, n);
    used += n;
  }
  out[used] = 0;
  return used;
}

// Appends `text` (UTF-8, `n` bytes) to the output, cutting at a character
// boundary when it does not fit.
struct Sink {
  char* out;
  size_t size;
  size_t used;

  void Put(const char* text, size_t n) {
    if (used + 1 >= size) return;
    size_t room = size - 1 - used;
    if (n > room) {
      n = room;
      while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) --n;
    }
    memcpy(out + used, text, n);
    used += n;
    out[used] = 0;
  }
};

// Pads a converted text to a printf width and precision (counted in bytes of
// UTF-8, close enough for the diagnostic use of the log).
void PutText(Sink& sink, const char* text, bool left, int width, int precision) {
  size_t n = strlen(text);
  if (precision >= 0 && static_cast<size_t>(precision) < n) {
    n = static_cast<size_t>(precision);
    while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) --n;
  }
  size_t pad = (width > 0 && static_cast<size_t>(width) > n) ? static_cast<size_t>(width) - n : 0;
  static const char spaces[] = "                                ";
  auto padOut = [&] {
    for (size_t p = pad; p > 0;) {
      size_t k = p < sizeof spaces - 1 ? p : sizeof spaces - 1;
      sink.Put(spaces, k);
      p -= k;
    }
  };
  if (!left) padOut();
  sink.Put(text, n);
  if (left) padOut();
}

// The number of UTF-8 bytes of `text` that make its first `units` UTF-16 units.
size_t Utf8PrefixOfUnits(const char* text, size_t units) {
  size_t i = 0;
  while (text[i] != 0 && units > 0) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    size_t n = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    size_t w = n == 4 ? 2 : 1;
    if (w > units) break;
    units -= w;
    for (size_t k = 0; k < n && text[i] != 0; ++k) ++i;
  }
  return i;
}

constexpr size_t kMaxMessageChars = 1023;

}  // namespace

size_t ZqLogFormatV(char* out, size_t size, const WCHAR* format, va_list args) {
  if (out == nullptr || size == 0) return 0;
  out[0] = 0;
  Sink sink{out, size, 0};
  if (format == nullptr) return 0;
  char literal[64];
  size_t lit = 0;
  auto flushLiteral = [&] {
    sink.Put(literal, lit);
    lit = 0;
  };
  for (const WCHAR* p = format; *p;) {
    if (*p != u'%') {
      const WCHAR* start = p;
      ptrdiff_t n = 1;
      if (*p >= 0xD800 && *p <= 0xDBFF && p[1] >= 0xDC00 && p[1] <= 0xDFFF) n = 2;
      p += n;
      if (lit + 8 > sizeof literal) flushLiteral();
      lit += WideToUtf8(literal + lit, sizeof literal - lit, start, n);
      continue;
    }
    flushLiteral();
    // %[flags][width][.precision][length]conversion
    char fmtspec[32];
    size_t s = 0;
    fmtspec[s++] = '%';
    ++p;
    bool left = false;
    while (*p == u'-' || *p == u'+' || *p == u' ' || *p == u'#' || *p == u'0') {
      if (*p == u'-') left = true;
      if (s < 8) fmtspec[s++] = static_cast<char>(*p);
      ++p;
    }
    int width = -1;
    if (*p == u'*') {
      width = va_arg(args, int);
      if (width < 0) {
        left = true;
        width = -width;
      }
      ++p;
    } else {
      while (*p >= u'0' && *p <= u'9') width = (width < 0 ? 0 : width) * 10 + (*p++ - u'0');
    }
    int precision = -1;
    if (*p == u'.') {
      ++p;
      precision = 0;
      if (*p == u'*') {
        precision = va_arg(args, int);
        ++p;
      } else {
        while (*p >= u'0' && *p <= u'9') precision = precision * 10 + (*p++ - u'0');
      }
    }
    if (width >= 0) s += static_cast<size_t>(snprintf(fmtspec + s, sizeof fmtspec - s, "%d", width));
    if (precision >= 0) s += static_cast<size_t>(snprintf(fmtspec + s, sizeof fmtspec - s, ".%d", precision));
    // Length: h, hh, l, ll, z, j, t, L, and the platform's I64 / I32.
    int longs = 0;
    bool shortish = false, sizeT = false, ptrdiff = false, longDouble = false, wideHint = false;
    for (;;) {
      if (*p == u'h') {
        shortish = true;
        ++p;
      } else if (*p == u'l') {
        ++longs;
        wideHint = true;
        ++p;
      } else if (*p == u'z') {
        sizeT = true;
        ++p;
      } else if (*p == u'j' || *p == u'q') {
        longs = 2;
        ++p;
      } else if (*p == u't') {
        ptrdiff = true;
        ++p;
      } else if (*p == u'L') {
        longDouble = true;
        ++p;
      } else if (*p == u'I' && p[1] == u'6' && p[2] == u'4') {
        longs = 2;
        p += 3;
      } else if (*p == u'I' && p[1] == u'3' && p[2] == u'2') {
        p += 3;
      } else {
        break;
      }
    }
    WCHAR conv = *p;
    if (conv == 0) break;
    ++p;
    char tmp[512];
    switch (conv) {
      case u'%':
        sink.Put("%", 1);
        break;
      case u'd':
      case u'i':
      case u'u':
      case u'x':
      case u'X':
      case u'o': {
        char c = static_cast<char>(conv);
        if (longs >= 2) {
          fmtspec[s++] = 'l';
          fmtspec[s++] = 'l';
          fmtspec[s++] = c;
          fmtspec[s] = 0;
          snprintf(tmp, sizeof tmp, fmtspec, va_arg(args, long long));
        } else if (longs == 1 || sizeT || ptrdiff) {
          fmtspec[s++] = 'l';
          fmtspec[s++] = c;
          fmtspec[s] = 0;
          snprintf(tmp, sizeof tmp, fmtspec, va_arg(args, long));
        } else {
          // short arguments arrive promoted to int
          (void)shortish;
          fmtspec[s++] = c;
          fmtspec[s] = 0;
          snprintf(tmp, sizeof tmp, fmtspec, va_arg(args, int));
        }
        sink.Put(tmp, strlen(tmp));
        break;
      }
      case u'f':
      case u'F':
      case u'e':
      case u'E':
      case u'g':
      case u'G':
      case u'a':
      case u'A': {
        fmtspec[s++] = static_cast<char>(conv);
        fmtspec[s] = 0;
        if (longDouble) {
          fmtspec[s - 1] = 'L';
          fmtspec[s++] = static_cast<char>(conv);
          fmtspec[s] = 0;
          snprintf(tmp, sizeof tmp, fmtspec, va_arg(args, long double));
        } else {
          snprintf(tmp, sizeof tmp, fmtspec, va_arg(args, double));
        }
        sink.Put(tmp, strlen(tmp));
        break;
      }
      case u'p': {
        fmtspec[s++] = 'p';
        fmtspec[s] = 0;
        snprintf(tmp, sizeof tmp, fmtspec, va_arg(args, void*));
        sink.Put(tmp, strlen(tmp));
        break;
      }
      case u'c':
      case u'C': {
        // %c is a wide character in a wide format, %C (and %hc) an 8-bit one.
        int value = va_arg(args, int);
        char text[8];
        if (conv == u'C' || shortish) {
          text[0] = static_cast<char>(value);
          text[1] = 0;
        } else {
          WCHAR w = static_cast<WCHAR>(value);
          WideToUtf8(text, sizeof text, &w, 1);
        }
        PutText(sink, text, left, width, -1);
        break;
      }
      case u's':
      case u'S': {
        // In a wide format %s (and %ls) is wide text and %S (and %hs) 8-bit text.
        bool narrow = (conv == u'S' && !wideHint) || (conv == u's' && shortish);
        if (narrow) {
          const char* text = va_arg(args, const char*);
          PutText(sink, text ? text : "(null)", left, width, precision);
        } else {
          const WCHAR* text = va_arg(args, const WCHAR*);
          char buffer[4096];
          if (text) {
            WideToUtf8(buffer, sizeof buffer, text);
          } else {
            strcpy(buffer, "(null)");
          }
          PutText(sink, buffer, left, width, precision);
        }
        break;
      }
      default: {
        // An unknown conversion is printed as it stands.
        char text[8];
        WideToUtf8(text, sizeof text, &conv, 1);
        sink.Put("%", 1);
        sink.Put(text, strlen(text));
        break;
      }
    }
  }
  flushLiteral();
  return sink.used;
}

CLog::CLog() : m_ready(FALSE), m_file(nullptr), m_flags(0), m_maxSize(-1), m_path{}, m_previousPath{}, m_shareMode(0) {
  InitializeCriticalSection(&m_lock);
}

CLog::~CLog() {
  CloseFile();
  DeleteCriticalSection(&m_lock);
}

void CLog::CloseFile() {
  if (m_file) {
    fclose(m_file);
    m_file = nullptr;
  }
}

HRESULT CLog::OpenFile() {
  char path[MAX_PATH * 4];
  WideToUtf8(path, sizeof path, m_path);
  // The share mode has no counterpart here: every open lets others read and
  // write, which is what the default open gives on the original platform.
  m_file = fopen(path, "a+");
  if (m_file == nullptr) return ZQ_E_OPEN_FILE;
  // Appending: the position (which the rotation test reads) is the size.
  fseek(m_file, 0, SEEK_END);
  return S_OK;
}

HRESULT CLog::Init(const WCHAR* path, LOGFLAGS flags, int maxSize, int shareMode) {
  if (path == nullptr || flags == 0) return E_INVALIDARG;
  EnterCriticalSection(&m_lock);
  m_ready = FALSE;
  CloseFile();
  size_t n = 0;
  while (n < MAX_PATH - 1 && path[n] != 0) {
    m_path[n] = path[n];
    ++n;
  }
  m_path[n] = 0;
  static const char16_t kPrevious[] = u".previous";
  size_t k = 0;
  for (; k < n && k < MAX_PATH - 1; ++k) m_previousPath[k] = m_path[k];
  for (size_t i = 0; kPrevious[i] != 0 && k < MAX_PATH - 1; ++i) m_previousPath[k++] = kPrevious[i];
  m_previousPath[k] = 0;
  m_flags = flags;
  m_maxSize = maxSize;
  m_shareMode = static_cast<DWORD>(shareMode);
  HRESULT hr = OpenFile();
  if (SUCCEEDED(hr)) m_ready = TRUE;
  LeaveCriticalSection(&m_lock);
  return hr;
}

void CLog::Shutdown() {
  EnterCriticalSection(&m_lock);
  m_ready = FALSE;
  CloseFile();
  LeaveCriticalSection(&m_lock);
}

HRESULT CLog::Write(LOGFLAGS level, const WCHAR* sourceFile, int line, const WCHAR* format, ...) {
  EnterCriticalSection(&m_lock);
  HRESULT hr = S_OK;
  if (!m_ready || m_file == nullptr) {
    hr = ZQ_E_COMPONENT;
  } else if ((m_flags & level & ZQLOG_LEVEL_MASK) != 0) {
    if (m_maxSize > 0 && ftell(m_file) >= m_maxSize) {
      CloseFile();
      DeleteFileW(m_previousPath);
      MoveFileExW(m_path, m_previousPath, MOVEFILE_REPLACE_EXISTING);
      hr = OpenFile();
      if (FAILED(hr)) m_ready = FALSE;
    }
    if (SUCCEEDED(hr)) {
      const char* tag = "????";
      switch (level & ZQLOG_LEVEL_MASK) {
        case ZQLOG_ERROR: tag = "ERR "; break;
        case ZQLOG_WARNING: tag = "WARN"; break;
        case ZQLOG_INFO: tag = "INFO"; break;
        case ZQLOG_DEBUG: tag = "DBG "; break;
        case ZQLOG_PLAIN: tag = ""; break;
        default: break;
      }
      fputs(tag, m_file);
      if (m_flags & ZQLOG_DATETIME) {
        SYSTEMTIME now;
        GetLocalTime(&now);
        fprintf(m_file, " %02d-%02d-%02d %02d:%02d:%02d ", now.wYear, now.wMonth, now.wDay, now.wHour,
                now.wMinute, now.wSecond);
      }
      if (m_flags & ZQLOG_SOURCE) {
        const WCHAR* name = sourceFile ? sourceFile : u"";
        for (const WCHAR* c = name; *c; ++c)
          if (*c == u'/' || *c == u'\\') name = c + 1;
        char file[MAX_PATH * 4];
        WideToUtf8(file, sizeof file, name);
        fprintf(m_file, "%15s(%4d): ", file, line);
      }
      char message[kMaxMessageChars * 4 + 1];
      va_list args;
      va_start(args, format);
      ZqLogFormatV(message, sizeof message, format, args);
      va_end(args);
      message[Utf8PrefixOfUnits(message, kMaxMessageChars)] = 0;
      fprintf(m_file, "%s\n", message);
      fflush(m_file);
    }
  }
  LeaveCriticalSection(&m_lock);
  return hr;
}
