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

// One conversion of a format: %[flags][width][.precision][length]conversion.
struct Conversion {
  char form[32];  // its printf form so far: '%', flags, width, precision
  size_t length = 0;
  bool left = false;
  int width = -1;
  int precision = -1;
  int longs = 0;  // l or ll (and j, q, I64 as two)
  bool shortish = false;
  bool sizeT = false;
  bool ptrdiff = false;
  bool longDouble = false;
  bool wideHint = false;  // an l was given: %lS is wide text
  WCHAR conversion = 0;

  // The printf form with `suffix` appended, ready to use.
  const char* With(const char* suffix) {
    size_t n = length;
    for (; *suffix && n + 1 < sizeof form; ++suffix) form[n++] = *suffix;
    form[n] = 0;
    return form;
  }
};

// Reads flags, width and precision (taking '*' values from `args`) and the
// length modifiers; answers the position of the conversion character.
const WCHAR* ReadConversion(const WCHAR* p, va_list& args, Conversion* c) {
  c->form[c->length++] = '%';
  while (*p == u'-' || *p == u'+' || *p == u' ' || *p == u'#' || *p == u'0') {
    if (*p == u'-') c->left = true;
    if (c->length < 8) c->form[c->length++] = static_cast<char>(*p);
    ++p;
  }
  if (*p == u'*') {
    c->width = va_arg(args, int);
    if (c->width < 0) {
      c->left = true;
      c->width = -c->width;
    }
    ++p;
  } else {
    while (*p >= u'0' && *p <= u'9') c->width = (c->width < 0 ? 0 : c->width) * 10 + (*p++ - u'0');
  }
  if (*p == u'.') {
    ++p;
    c->precision = 0;
    if (*p == u'*') {
      c->precision = va_arg(args, int);
      ++p;
    } else {
      while (*p >= u'0' && *p <= u'9') c->precision = c->precision * 10 + (*p++ - u'0');
    }
  }
  if (c->width >= 0)
    c->length += static_cast<size_t>(snprintf(c->form + c->length, sizeof c->form - c->length, "%d", c->width));
  if (c->precision >= 0)
    c->length += static_cast<size_t>(snprintf(c->form + c->length, sizeof c->form - c->length, ".%d", c->precision));
  // Length: h, hh, l, ll, z, j, t, L, and the platform's I64 / I32.
  for (;;) {
    if (*p == u'h') {
      c->shortish = true;
      ++p;
    } else if (*p == u'l') {
      ++c->longs;
      c->wideHint = true;
      ++p;
    } else if (*p == u'z') {
      c->sizeT = true;
      ++p;
    } else if (*p == u'j' || *p == u'q') {
      c->longs = 2;
      ++p;
    } else if (*p == u't') {
      c->ptrdiff = true;
      ++p;
    } else if (*p == u'L') {
      c->longDouble = true;
      ++p;
    } else if (*p == u'I' && p[1] == u'6' && p[2] == u'4') {
      c->longs = 2;
      p += 3;
    } else if (*p == u'I' && p[1] == u'3' && p[2] == u'2') {
      p += 3;
    } else {
      break;
    }
  }
  c->conversion = *p;
  return p;
}

// %d %i %u %x %X %o, by the argument's width (short arguments arrive
// promoted to int).
void PutInteger(Sink& sink, Conversion& c, va_list& args) {
  const char letter = static_cast<char>(c.conversion);
  char tmp[512];
  if (c.longs >= 2) {
    const char suffix[] = {'l', 'l', letter, 0};
    snprintf(tmp, sizeof tmp, c.With(suffix), va_arg(args, long long));
  } else if (c.longs == 1 || c.sizeT || c.ptrdiff) {
    const char suffix[] = {'l', letter, 0};
    snprintf(tmp, sizeof tmp, c.With(suffix), va_arg(args, long));
  } else {
    const char suffix[] = {letter, 0};
    snprintf(tmp, sizeof tmp, c.With(suffix), va_arg(args, int));
  }
  sink.Put(tmp, strlen(tmp));
}

// %f %F %e %E %g %G %a %A, long double with L.
void PutFloating(Sink& sink, Conversion& c, va_list& args) {
  const char letter = static_cast<char>(c.conversion);
  char tmp[512];
  if (c.longDouble) {
    const char suffix[] = {'L', letter, 0};
    snprintf(tmp, sizeof tmp, c.With(suffix), va_arg(args, long double));
  } else {
    const char suffix[] = {letter, 0};
    snprintf(tmp, sizeof tmp, c.With(suffix), va_arg(args, double));
  }
  sink.Put(tmp, strlen(tmp));
}

void PutPointer(Sink& sink, Conversion& c, va_list& args) {
  char tmp[512];
  snprintf(tmp, sizeof tmp, c.With("p"), va_arg(args, void*));
  sink.Put(tmp, strlen(tmp));
}

// %c is a wide character in a wide format, %C (and %hc) an 8-bit one.
void PutCharacter(Sink& sink, const Conversion& c, va_list& args) {
  const int value = va_arg(args, int);
  char text[8];
  if (c.conversion == u'C' || c.shortish) {
    text[0] = static_cast<char>(value);
    text[1] = 0;
  } else {
    const WCHAR w = static_cast<WCHAR>(value);
    WideToUtf8(text, sizeof text, &w, 1);
  }
  PutText(sink, text, c.left, c.width, -1);
}

// In a wide format %s (and %ls) is wide text and %S (and %hs) 8-bit text.
void PutString(Sink& sink, const Conversion& c, va_list& args) {
  const bool narrow = (c.conversion == u'S' && !c.wideHint) || (c.conversion == u's' && c.shortish);
  if (narrow) {
    const char* text = va_arg(args, const char*);
    PutText(sink, text ? text : "(null)", c.left, c.width, c.precision);
    return;
  }
  const WCHAR* text = va_arg(args, const WCHAR*);
  char buffer[4096];
  if (text) {
    WideToUtf8(buffer, sizeof buffer, text);
  } else {
    strcpy(buffer, "(null)");
  }
  PutText(sink, buffer, c.left, c.width, c.precision);
}

// One conversion's output; an unknown conversion is printed as it stands.
void PutConversion(Sink& sink, Conversion& c, va_list& args) {
  switch (c.conversion) {
    case u'%':
      sink.Put("%", 1);
      return;
    case u'd':
    case u'i':
    case u'u':
    case u'x':
    case u'X':
    case u'o':
      return PutInteger(sink, c, args);
    case u'f':
    case u'F':
    case u'e':
    case u'E':
    case u'g':
    case u'G':
    case u'a':
    case u'A':
      return PutFloating(sink, c, args);
    case u'p':
      return PutPointer(sink, c, args);
    case u'c':
    case u'C':
      return PutCharacter(sink, c, args);
    case u's':
    case u'S':
      return PutString(sink, c, args);
    default: {
      char text[8];
      WideToUtf8(text, sizeof text, &c.conversion, 1);
      sink.Put("%", 1);
      sink.Put(text, strlen(text));
      return;
    }
  }
}

// Text between conversions, gathered as UTF-8 and put in runs, so that a
// run that does not fit is cut at a character boundary as a whole.
class LiteralRun {
 public:
  explicit LiteralRun(Sink& sink) : m_sink(sink) {}
  // Takes the character (one unit, or a surrogate pair) at `p`; answers
  // the position after it.
  const WCHAR* Take(const WCHAR* p) {
    const ptrdiff_t n = (*p >= 0xD800 && *p <= 0xDBFF && p[1] >= 0xDC00 && p[1] <= 0xDFFF) ? 2 : 1;
    if (m_length + 8 > sizeof m_text) Flush();
    m_length += WideToUtf8(m_text + m_length, sizeof m_text - m_length, p, n);
    return p + n;
  }
  void Flush() {
    m_sink.Put(m_text, m_length);
    m_length = 0;
  }

 private:
  Sink& m_sink;
  char m_text[64];
  size_t m_length = 0;
};

}  // namespace

size_t ZqLogFormatV(char* out, size_t size, const WCHAR* format, va_list args) {
  if (out == nullptr || size == 0) return 0;
  out[0] = 0;
  Sink sink{out, size, 0};
  if (format == nullptr) return 0;
  va_list ap;
  va_copy(ap, args);
  LiteralRun literal(sink);
  for (const WCHAR* p = format; *p;) {
    if (*p != u'%') {
      p = literal.Take(p);
      continue;
    }
    literal.Flush();
    Conversion c;
    p = ReadConversion(p + 1, ap, &c);
    if (*p == 0) break;
    ++p;
    PutConversion(sink, c, ap);
  }
  literal.Flush();
  va_end(ap);
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
