// Text widths through the system's text layout library (Pango over cairo),
// loaded by name at the first measurement.
#include <dlfcn.h>

#include <mutex>
#include <new>
#include <string>

#include "platform/text.h"
#include "platform/text_width.h"

struct tZQTEXTDEVICE {
  std::string description;
};

namespace {

constexpr const char* kUiFont = "Sans 8";
constexpr int kFallbackCharWidth = 7;

// The few entry points used, resolved once under the lock.
struct Pango {
  void* (*fontMapGetDefault)();
  void* (*createContext)(void* fontMap);
  void (*setResolution)(void* context, double dpi);
  void* (*layoutNew)(void* context);
  void (*setText)(void* layout, const char* text, int length);
  void* (*descriptionFromString)(const char* text);
  void (*setDescription)(void* layout, const void* description);
  void (*pixelSize)(void* layout, int* width, int* height);
  void (*descriptionFree)(void* description);
  void* layout;
  bool tried;
  bool ready;
};

std::mutex g_lock;
Pango g_pango;

template <class F>
bool Resolve(void* library, const char* name, F& fn) {
  fn = reinterpret_cast<F>(dlsym(library, name));
  return fn != nullptr;
}

// Loads the library and makes the one layout all measurements share.
bool Ready() {
  Pango& p = g_pango;
  if (p.tried) return p.ready;
  p.tried = true;
  void* library = dlopen("libpangocairo-1.0.so.0", RTLD_NOW | RTLD_LOCAL);
  if (!library) return false;
  if (!Resolve(library, "pango_cairo_font_map_get_default", p.fontMapGetDefault) ||
      !Resolve(library, "pango_font_map_create_context", p.createContext) ||
      !Resolve(library, "pango_cairo_context_set_resolution", p.setResolution) ||
      !Resolve(library, "pango_layout_new", p.layoutNew) ||
      !Resolve(library, "pango_layout_set_text", p.setText) ||
      !Resolve(library, "pango_font_description_from_string", p.descriptionFromString) ||
      !Resolve(library, "pango_layout_set_font_description", p.setDescription) ||
      !Resolve(library, "pango_layout_get_pixel_size", p.pixelSize) ||
      !Resolve(library, "pango_font_description_free", p.descriptionFree))
    return false;
  void* fontMap = p.fontMapGetDefault();
  void* context = fontMap ? p.createContext(fontMap) : nullptr;
  if (!context) return false;
  p.setResolution(context, 96.0);
  p.layout = p.layoutNew(context);
  p.ready = p.layout != nullptr;
  return p.ready;
}

}  // namespace

ZQ_API HZQTEXTDEVICE ZqTextDevice_Open(const char* description) {
  auto* device = new (std::nothrow) tZQTEXTDEVICE;
  if (device) device->description = description && description[0] ? description : kUiFont;
  return device;
}

ZQ_API void ZqTextDevice_Close(HZQTEXTDEVICE device) { delete device; }

ZQ_API int ZqTextDevice_Width(HZQTEXTDEVICE device, const WCHAR* text, int length) {
  if (!text) return 0;
  if (length < 0) length = lstrlenW(text);
  if (length == 0) return 0;
  const std::string utf8 = ZqUtf16ToUtf8(std::u16string_view(text, static_cast<size_t>(length)));
  std::lock_guard<std::mutex> hold(g_lock);
  if (!Ready()) return kFallbackCharWidth * length;
  Pango& p = g_pango;
  void* font = p.descriptionFromString(device ? device->description.c_str() : kUiFont);
  p.setDescription(p.layout, font);
  p.descriptionFree(font);
  p.setText(p.layout, utf8.data(), static_cast<int>(utf8.size()));
  int width = 0, height = 0;
  p.pixelSize(p.layout, &width, &height);
  return width;
}
