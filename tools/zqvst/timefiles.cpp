#include "tools/zqvst/timefiles.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>

#include "aplugins/zqvstwrap/mediaparams.h"
#include "tools/zqvst/cmdline.h"

namespace {

struct Token {
  std::string text;
  bool quoted = false;
};

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

std::string LinePrefix(int line) { return "line " + std::to_string(line) + ": "; }

// Splits one line into fields.  A double-quoted field may hold blanks and `#`;
// inside it \" and \\ stand for the quote and the backslash, any other
// backslash is kept as it is (names of parameters rarely need one).
bool SplitLine(std::string_view line, int lineNumber, std::vector<Token>* tokens, std::string* error) {
  tokens->clear();
  size_t i = 0;
  while (i < line.size()) {
    const char c = line[i];
    if (IsBlank(c)) {
      ++i;
      continue;
    }
    if (c == '#') break;
    Token token;
    if (c == '"') {
      token.quoted = true;
      ++i;
      bool closed = false;
      while (i < line.size()) {
        const char q = line[i];
        if (q == '"') {
          closed = true;
          ++i;
          break;
        }
        if (q == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) {
          token.text += line[i + 1];
          i += 2;
          continue;
        }
        token.text += q;
        ++i;
      }
      if (!closed) {
        *error = LinePrefix(lineNumber) + "missing closing quote";
        return false;
      }
      // "a"b would be a puzzle to read back: a quoted field ends at a blank.
      if (i < line.size() && !IsBlank(line[i]) && line[i] != '#') {
        *error = LinePrefix(lineNumber) + "a blank must follow the closing quote";
        return false;
      }
    } else {
      while (i < line.size() && !IsBlank(line[i]) && line[i] != '#') token.text += line[i++];
    }
    tokens->push_back(std::move(token));
  }
  return true;
}

// Calls `onLine` for every line with its 1-based number.  Lines end in LF or
// CR LF; a byte-order mark that an editor put in front is skipped.
template <class F>
bool ForEachLine(const std::string& text, F&& onLine) {
  std::string_view rest(text);
  if (rest.substr(0, 3) == "\xEF\xBB\xBF") rest.remove_prefix(3);
  int number = 0;
  while (!rest.empty()) {
    ++number;
    const size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (!onLine(line, number)) return false;
  }
  return true;
}

bool ReadNumber(const Token& token, const char* what, int line, double* value, std::string* error) {
  if (token.quoted || !ZqvstParseDouble(token.text, value)) {
    *error = LinePrefix(line) + "bad " + what + " '" + token.text + "'";
    return false;
  }
  return true;
}

bool AllDigits(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s)
    if (c < '0' || c > '9') return false;
  return true;
}

struct CurveName {
  const char* name;
  int curve;
};
constexpr CurveName kCurves[] = {
    {"jump", MP_CURVE_JUMP},           {"linear", MP_CURVE_LINEAR}, {"square", MP_CURVE_SQUARE},
    {"invsquare", MP_CURVE_INVSQUARE}, {"sine", MP_CURVE_SINE},
};

bool ParseAutomationLine(const std::vector<Token>& tokens, int line, ZqvstAutomationEntry* entry,
                         std::string* error) {
  if (tokens.size() < 6) {
    *error = LinePrefix(line) + "expected PARAM START END FROM TO CURVE, found " + std::to_string(tokens.size()) +
             (tokens.size() == 1 ? " field" : " fields");
    return false;
  }
  if (tokens.size() > 6) {
    *error = LinePrefix(line) + "unexpected '" + tokens[6].text + "' after the curve";
    return false;
  }

  const Token& param = tokens[0];
  entry->param = param.text;
  entry->byIndex = false;
  entry->index = -1;
  entry->line = line;
  if (param.text.empty()) {
    *error = LinePrefix(line) + "empty parameter name";
    return false;
  }
  if (!param.quoted && AllDigits(param.text)) {
    long index = 0;
    const auto [end, ec] = std::from_chars(param.text.data(), param.text.data() + param.text.size(), index);
    if (ec != std::errc() || end != param.text.data() + param.text.size() || index > INT_MAX) {
      *error = LinePrefix(line) + "parameter index " + param.text + " is too large";
      return false;
    }
    entry->byIndex = true;
    entry->index = index;
  } else if (!param.quoted && param.text.size() > 1 && param.text[0] == '-' &&
             AllDigits(std::string_view(param.text).substr(1))) {
    // Almost certainly meant as an index; quote it to use it as a name.
    *error = LinePrefix(line) + "parameter index " + param.text + " is negative";
    return false;
  }

  if (!ReadNumber(tokens[1], "start time", line, &entry->start, error)) return false;
  if (!ReadNumber(tokens[2], "end time", line, &entry->end, error)) return false;
  if (entry->start < 0) {
    *error = LinePrefix(line) + "start time " + tokens[1].text + " is negative";
    return false;
  }
  if (entry->end < entry->start) {
    *error = LinePrefix(line) + "end time " + tokens[2].text + " is before the start time " + tokens[1].text;
    return false;
  }
  if (!ReadNumber(tokens[3], "start value", line, &entry->from, error)) return false;
  if (!ReadNumber(tokens[4], "end value", line, &entry->to, error)) return false;

  const Token& curve = tokens[5];
  entry->curve = 0;
  for (const CurveName& known : kCurves)
    if (!curve.quoted && ZqvstEqualsNoCase(curve.text, known.name)) entry->curve = known.curve;
  if (entry->curve == 0) {
    *error = LinePrefix(line) + "unknown curve '" + curve.text + "' (jump, linear, square, invsquare or sine)";
    return false;
  }
  return true;
}

// "N/D": N 1..99, D a power of two from 1 to 64.
bool ParseMeter(const Token& token, int line, int* numerator, int* denominator, std::string* error) {
  std::string why;
  if (token.quoted) why = "bad meter '" + token.text + "' (expected N/D, as in 3/4)";
  if (!token.quoted && ZqvstParseMeter(token.text, numerator, denominator, &why)) return true;
  *error = LinePrefix(line) + why;
  return false;
}

// Splits every line into fields and hands the lines that have any to
// `onFields(tokens, number, &entries, &message)`.  All or nothing: on the
// first error `out` is emptied and `error` tells which line.
template <class Entry, class F>
bool ParseEntries(const std::string& text, std::vector<Entry>* out, std::string* error, F&& onFields) {
  std::vector<Entry> entries;
  std::vector<Token> tokens;
  std::string message;
  const bool ok = ForEachLine(text, [&](std::string_view line, int number) {
    if (!SplitLine(line, number, &tokens, &message)) return false;
    return tokens.empty() || onFields(tokens, number, &entries, &message);
  });
  if (!ok) {
    out->clear();
    if (error) *error = message;
    return false;
  }
  *out = std::move(entries);
  return true;
}

}  // namespace

bool ZqvstParseAutomation(const std::string& text, std::vector<ZqvstAutomationEntry>* out, std::string* error) {
  return ParseEntries(text, out, error,
                      [](const std::vector<Token>& tokens, int number, std::vector<ZqvstAutomationEntry>* entries,
                         std::string* message) {
                        ZqvstAutomationEntry entry{};
                        if (!ParseAutomationLine(tokens, number, &entry, message)) return false;
                        entries->push_back(std::move(entry));
                        return true;
                      });
}

bool ZqvstParseTempoMap(const std::string& text, std::vector<ZqvstTempoEntry>* out, std::string* error) {
  // The time of the latest entries, and which kinds were set at it.
  std::string lastTimeText;
  bool tempoAtLast = false, meterAtLast = false;

  return ParseEntries(text, out, error, [&](const std::vector<Token>& tokens, int number,
                                            std::vector<ZqvstTempoEntry>* entries, std::string* failure) {
    std::string& message = *failure;
    ZqvstTempoEntry entry{};
    entry.line = number;
    const bool meter = tokens.size() >= 2 && !tokens[1].quoted && ZqvstEqualsNoCase(tokens[1].text, "meter");
    const size_t expected = meter ? 3 : 2;
    if (tokens.size() < expected) {
      message = LinePrefix(number) + (meter ? "expected TIME meter N/D" : "expected TIME BPM or TIME meter N/D");
      return false;
    }
    if (tokens.size() > expected) {
      message = LinePrefix(number) + "unexpected '" + tokens[expected].text + "' after the " +
                (meter ? "meter" : "tempo");
      return false;
    }
    if (!ReadNumber(tokens[0], "time", number, &entry.time, &message)) return false;
    if (entry.time < 0) {
      message = LinePrefix(number) + "time " + tokens[0].text + " is negative";
      return false;
    }
    if (meter) {
      entry.isMeter = true;
      if (!ParseMeter(tokens[2], number, &entry.numerator, &entry.denominator, &message)) return false;
    } else {
      if (!ReadNumber(tokens[1], "tempo", number, &entry.bpm, &message)) return false;
      if (!ZqvstIsTempo(entry.bpm)) {
        message = LinePrefix(number) + "tempo " + tokens[1].text + " is not above 0 and at most 999";
        return false;
      }
    }

    if (!entries->empty()) {
      const ZqvstTempoEntry& last = entries->back();
      if (entry.time < last.time) {
        message = LinePrefix(number) + "time " + tokens[0].text + " comes before " + lastTimeText + " on line " +
                  std::to_string(last.line) + " (entries go in rising time order)";
        return false;
      }
      if (entry.time > last.time) tempoAtLast = meterAtLast = false;
    }
    bool& seen = entry.isMeter ? meterAtLast : tempoAtLast;
    if (seen) {
      message = LinePrefix(number) + "a second " + (entry.isMeter ? "meter" : "tempo") + " at " + tokens[0].text +
                " seconds";
      return false;
    }
    seen = true;
    lastTimeText = tokens[0].text;
    entries->push_back(entry);
    return true;
  });
}

bool ZqvstReadFile(const std::string& path, std::string* bytes, std::string* error) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::file_status status = fs::status(path, ec);
  if (ec) {
    if (error) *error = path + ": " + ec.message();
    return false;
  }
  if (fs::is_directory(status)) {
    if (error) *error = path + ": is a folder, not a file";
    return false;
  }
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    const int reason = errno;
    if (error)
      *error = path + ": " + (reason ? std::generic_category().message(reason) : "cannot be opened for reading");
    return false;
  }
  std::ostringstream content;
  content << in.rdbuf();
  if (in.bad()) {
    if (error) *error = path + ": read error";
    return false;
  }
  *bytes = std::move(content).str();
  return true;
}

bool ZqvstParseMeter(std::string_view text, int* numerator, int* denominator, std::string* why) {
  const size_t slash = text.find('/');
  const auto readPart = [](std::string_view part, int* value) {
    if (!AllDigits(part) || part.size() > 4) return false;
    const auto [end, ec] = std::from_chars(part.data(), part.data() + part.size(), *value);
    return ec == std::errc() && end == part.data() + part.size();
  };
  if (slash == std::string_view::npos || !readPart(text.substr(0, slash), numerator) ||
      !readPart(text.substr(slash + 1), denominator)) {
    *why = "bad meter '" + std::string(text) + "' (expected N/D, as in 3/4)";
    return false;
  }
  if (!ZqvstIsMeterNumerator(*numerator)) {
    *why = "meter numerator " + std::to_string(*numerator) + " is not between 1 and 99";
    return false;
  }
  if (!ZqvstIsMeterDenominator(*denominator)) {
    *why = "meter denominator " + std::to_string(*denominator) + " is not 1, 2, 4, 8, 16, 32 or 64";
    return false;
  }
  return true;
}
