// A very small JSON writer: objects, arrays, strings with the escapes JSON
// requires, integers and finite doubles, written into a string with two
// spaces of indentation per level.
#pragma once

#include <charconv>
#include <cmath>
#include <string>
#include <vector>

class ZqvstJsonWriter {
 public:
  void BeginObject(const char* key = nullptr) { Open(key, '{'); }
  void EndObject() { Close('}'); }
  void BeginArray(const char* key = nullptr) { Open(key, '['); }
  void EndArray() { Close(']'); }

  void String(const char* key, const std::string& value) {
    Key(key);
    Quote(value);
  }
  void Integer(const char* key, long long value) {
    Key(key);
    m_out += std::to_string(value);
  }
  void Number(const char* key, double value) { ShortestNumber(key, value); }
  // A float by its own shortest form (0.1f gives 0.1, not 0.100000001).
  void Number(const char* key, float value) { ShortestNumber(key, value); }
  void Bool(const char* key, bool value) {
    Key(key);
    m_out += value ? "true" : "false";
  }

  const std::string& Text() const { return m_out; }

 private:
  // The shortest text that reads back as `value` in its own type; JSON has
  // no infinities or NaN, so they are null.
  template <class Real>
  void ShortestNumber(const char* key, Real value) {
    Key(key);
    if (!std::isfinite(value)) {
      m_out += "null";
      return;
    }
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    m_out.append(buffer, result.ptr);
  }

  void Open(const char* key, char bracket) {
    Key(key);
    m_out += bracket;
    m_counts.push_back(0);
  }
  void Close(char bracket) {
    const bool empty = m_counts.back() == 0;
    m_counts.pop_back();
    if (!empty) Newline();
    m_out += bracket;
    if (m_counts.empty()) m_out += '\n';
  }
  // Separator, indentation and (inside an object) the key of the next value.
  void Key(const char* key) {
    if (!m_counts.empty()) {
      if (m_counts.back()++ > 0) m_out += ',';
      Newline();
    }
    if (key) {
      Quote(key);
      m_out += ": ";
    }
  }
  void Newline() {
    m_out += '\n';
    m_out.append(m_counts.size() * 2, ' ');
  }
  void Quote(const std::string& text) {
    m_out += '"';
    for (unsigned char c : text) {
      switch (c) {
        case '"': m_out += "\\\""; break;
        case '\\': m_out += "\\\\"; break;
        case '\b': m_out += "\\b"; break;
        case '\f': m_out += "\\f"; break;
        case '\n': m_out += "\\n"; break;
        case '\r': m_out += "\\r"; break;
        case '\t': m_out += "\\t"; break;
        default:
          if (c < 0x20) {
            static const char digits[] = "0123456789abcdef";
            m_out += "\\u00";
            m_out += digits[c >> 4];
            m_out += digits[c & 15];
          } else {
            m_out += char(c);
          }
      }
    }
    m_out += '"';
  }

  std::string m_out;
  std::vector<int> m_counts;  // values written at each open level
};
