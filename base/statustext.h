// English texts of the system's status codes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/types.h"

// The text of `status`, or null for a code without one.  The text is a
// constant of the library and lives as long as it is loaded.
ZQ_API const char* ZqStatusText(HRESULT status);

// One row of the table behind ZqStatusText: the code's 32 bits and its text.
struct ZqStatusTextRow {
  uint32_t code;
  const char* text;
};

// The whole table, rising by code; for checks of the table itself.
const ZqStatusTextRow* ZqStatusTextRows(size_t* count);
