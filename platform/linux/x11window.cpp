// Temporary windows through XCB.  XCB reports a failed connection as an
// error state instead of calling an error handler that ends the process,
// which matters here: a host without a display must get a status back.
#include "platform/x11window.h"

#include <dlfcn.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <string>

#include "base/status.h"
#include "platform/environment.h"
#include "platform/text.h"

namespace {

// DISPLAY read through the layer's environment lock: another thread may be
// changing the environment at the same time.
std::string DisplayName() {
  WCHAR buffer[256];
  const DWORD length = GetEnvironmentVariableW(u"DISPLAY", buffer, 256);
  if (length == 0 || length >= 256) return std::string();
  return ZqUtf16ToUtf8(std::u16string(buffer, length));
}

}  // namespace

BOOL ZqCreateTemporaryNativeWindow(ZqNativeWindow* out) {
  if (out == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  *out = ZqNativeWindow{};
  const std::string display = DisplayName();
  if (display.empty()) {
    // xcb_connect would fall back to nothing sensible; say "no display".
    SetLastError(ERROR_NOT_READY);
    return FALSE;
  }
  int screenNumber = 0;
  xcb_connection_t* connection = xcb_connect(display.c_str(), &screenNumber);
  if (xcb_connection_has_error(connection)) {
    xcb_disconnect(connection);  // also frees the error-state connection
    SetLastError(ERROR_NOT_READY);
    return FALSE;
  }
  xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
  for (int i = 0; i < screenNumber && screens.rem > 0; ++i) xcb_screen_next(&screens);
  if (screens.rem <= 0 || screens.data == nullptr) {
    xcb_disconnect(connection);
    SetLastError(ERROR_NOT_READY);
    return FALSE;
  }
  const xcb_screen_t* screen = screens.data;
  const xcb_window_t window = xcb_generate_id(connection);
  // X forbids a zero-sized window; 1x1 is the smallest there is.  It is
  // never mapped: the editor only needs a parent to attach to.
  const xcb_void_cookie_t created = xcb_create_window_checked(
      connection, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 1, 1, 0,
      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
  xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME,
                      XCB_ATOM_STRING, 8, 0, "");
  // Checking the creation is a round trip, which also flushes: the window
  // exists on the server before a plug-in opens its own connection and
  // parents to it.
  xcb_generic_error_t* error = xcb_request_check(connection, created);
  if (error != nullptr || xcb_connection_has_error(connection)) {
    std::free(error);
    xcb_disconnect(connection);
    SetLastError(ERROR_NOT_READY);
    return FALSE;
  }
  out->window = window;
  out->connection = connection;
  return TRUE;
}

void ZqDestroyTemporaryNativeWindow(ZqNativeWindow* window) {
  if (window == nullptr || window->connection == nullptr) return;
  auto* connection = static_cast<xcb_connection_t*>(window->connection);
  if (window->window != 0) xcb_destroy_window(connection, static_cast<xcb_window_t>(window->window));
  xcb_flush(connection);
  xcb_disconnect(connection);
  *window = ZqNativeWindow{};
}

namespace {

// libX11, loaded once and never unloaded: plug-ins may keep using Xlib
// after their editor closed.
struct XlibEntries {
  void* (*open)(const char*) = nullptr;
  int (*close)(void*) = nullptr;
};

const XlibEntries& Xlib() {
  static const XlibEntries entries = [] {
    XlibEntries e;
    void* library = dlopen("libX11.so.6", RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr) return e;
    e.open = reinterpret_cast<void* (*)(const char*)>(dlsym(library, "XOpenDisplay"));
    e.close = reinterpret_cast<int (*)(void*)>(dlsym(library, "XCloseDisplay"));
    if (e.open == nullptr || e.close == nullptr) e = XlibEntries{};
    return e;
  }();
  return entries;
}

}  // namespace

void* ZqOpenEditorDisplay() {
  const std::string display = DisplayName();
  // Checked first: Xlib would fall back to ":0" without a name.
  if (display.empty() || Xlib().open == nullptr) return nullptr;
  return Xlib().open(display.c_str());
}

void ZqCloseEditorDisplay(void* display) {
  if (display != nullptr && Xlib().close != nullptr) Xlib().close(display);
}
