#include "aplugins/zqvstwrap/host/zqvstfilenames.h"

namespace {

char16_t Lower(char16_t c) { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c; }

bool EqualNoCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (Lower(a[i]) != Lower(b[i])) return false;
  return true;
}

}  // namespace

std::u16string ZqVstFolderOf(std::u16string_view path) {
  const size_t slash = path.rfind(u'/');
  return slash == std::u16string_view::npos ? std::u16string() : std::u16string(path.substr(0, slash + 1));
}

std::u16string ZqVstPresetFileName(std::u16string_view chosen, std::u16string_view extension) {
  const size_t slash = chosen.rfind(u'/');
  const size_t nameStart = slash == std::u16string_view::npos ? 0 : slash + 1;
  const size_t dot = chosen.rfind(u'.');
  if (dot != std::u16string_view::npos && dot >= nameStart && EqualNoCase(chosen.substr(dot), extension))
    return std::u16string(chosen);
  // A folder's dots are not the name's: only the name's trailing dots go.
  size_t end = chosen.size();
  while (end > nameStart && chosen[end - 1] == u'.') --end;
  std::u16string name(chosen.substr(0, end));
  name += extension;
  return name;
}
