// A native window that lives only for a moment: enough for a plug-in's
// editor to open in so that it can tell its size.  On Linux it is an X11
// window on the display named by DISPLAY; a plug-in's editor receives its
// id as the parent window, as it would from a host's page.
#pragma once

#include "base/types.h"

struct ZqNativeWindow {
  UINT_PTR window;  // the X11 window id, 0 when none
  void* connection;  // the display connection that owns the window
};

// Creates an unmapped top-level window of minimal size with an empty title.
// FALSE with the last error (ERROR_NOT_READY) when there is no display to
// create it on: DISPLAY unset or the server unreachable.  `*out` is zeroed
// then.
ZQ_EXTERN_C BOOL ZqCreateTemporaryNativeWindow(ZqNativeWindow* out);

// Destroys the window and closes its display connection; a zeroed record
// is left alone.
ZQ_EXTERN_C void ZqDestroyTemporaryNativeWindow(ZqNativeWindow* window);

// The Xlib `Display*` a plug-in's editor is given with its parent window, as
// Linux VST 2.x plug-ins expect: a connection of its own to the display
// named by DISPLAY, opened through the system's libX11, which is loaded
// only here and only when an editor opens.  Null when there is no display
// or no libX11.  Each opened connection is closed by
// ZqCloseEditorDisplay (null is accepted) after the editor has closed.
ZQ_EXTERN_C void* ZqOpenEditorDisplay();
ZQ_EXTERN_C void ZqCloseEditorDisplay(void* display);
