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
