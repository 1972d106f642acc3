// English texts of the system's status codes.
//
// One table sorted by the code as an unsigned 32-bit number, searched by
// halves, merged at compile time from two sources:
//   - the codes of the kernel's message table, whose texts are the English
//     of the string table, generated from the text catalogue
//     (kernel/strings), without the two line feeds that a message box puts
//     in front of most of them and with the host application's name, which
//     only a message box fills in, as "the application";
//   - the codes the message table does not list, with the platform's own
//     system texts: media framework codes, storage and remote call codes,
//     and the platform errors that reach the system as HRESULT_FROM_WIN32.
#include "base/statustext.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace {

// clang-format off
constexpr ZqStatusTextRow kCatalogueRows[] = {
#include "base/zqstatus_rows.inc"
};

constexpr ZqStatusTextRow kPlatformRows[] = {
    {0x00000000, "The operation completed successfully."},  // S_OK
    {0x00030200, "The underlying file was converted to compound file format."},  // STG_S_CONVERTED
    {0x00040103, "The end of the list has been reached."},  // VFW_S_NO_MORE_ITEMS
    {0x0004022D, "An attempt to add a filter with a duplicate name succeeded with a modified name."},  // VFW_S_DUPLICATE_NAME
    {0x00040237, "The state transition has not completed."},  // VFW_S_STATE_INTERMEDIATE
    {0x00040270, "The stop time for the sample was not set."},  // VFW_S_NO_STOP_TIME
    {0x80004004, "Operation aborted"},  // E_ABORT
    {0x80010108, "The object invoked has disconnected from its clients."},  // RPC_E_DISCONNECTED
    {0x80030001, "Unable to perform requested operation."},  // STG_E_INVALIDFUNCTION
    {0x8003001E, "A disk error occurred during a read operation."},  // STG_E_READFAULT
    {0x80040110, "Class does not support aggregation (or class object is remote)"},  // CLASS_E_NOAGGREGATION
    {0x80040111, "ClassFactory cannot supply requested class"},  // CLASS_E_CLASSNOTAVAILABLE
    {0x80040200, "An invalid media type was specified."},  // VFW_E_INVALIDMEDIATYPE
    {0x80040201, "An invalid media subtype was specified."},  // VFW_E_INVALIDSUBTYPE
    {0x80040202, "This object can only be created as an aggregated object."},  // VFW_E_NEED_OWNER
    {0x80040203, "The enumerator has become invalid."},  // VFW_E_ENUM_OUT_OF_SYNC
    {0x80040204, "At least one of the pins involved in the operation is already connected."},  // VFW_E_ALREADY_CONNECTED
    {0x80040205, "This operation cannot be performed because the filter is active."},  // VFW_E_FILTER_ACTIVE
    {0x80040206, "One of the specified pins supports no media types."},  // VFW_E_NO_TYPES
    {0x80040207, "There is no common media type between these pins."},  // VFW_E_NO_ACCEPTABLE_TYPES
    {0x80040208, "Two pins of the same direction cannot be connected together."},  // VFW_E_INVALID_DIRECTION
    {0x80040209, "The operation cannot be performed because the pins are not connected."},  // VFW_E_NOT_CONNECTED
    {0x8004020A, "No sample buffer allocator is available."},  // VFW_E_NO_ALLOCATOR
    {0x8004020B, "A run-time error occurred."},  // VFW_E_RUNTIME_ERROR
    {0x8004020C, "No buffer space has been set."},  // VFW_E_BUFFER_NOTSET
    {0x8004020D, "The buffer is not big enough."},  // VFW_E_BUFFER_OVERFLOW
    {0x8004020E, "An invalid alignment was specified."},  // VFW_E_BADALIGN
    {0x8004020F, "Cannot change allocated memory while the filter is active."},  // VFW_E_ALREADY_COMMITTED
    {0x80040210, "One or more buffers are still active."},  // VFW_E_BUFFERS_OUTSTANDING
    {0x80040211, "Cannot allocate a sample when the allocator is not active."},  // VFW_E_NOT_COMMITTED
    {0x80040212, "Cannot allocate memory because no size has been set."},  // VFW_E_SIZENOTSET
    {0x80040213, "Cannot lock for synchronization because no clock has been defined."},  // VFW_E_NO_CLOCK
    {0x80040216, "An object or name was not found."},  // VFW_E_NOT_FOUND
    {0x80040217, "No combination of intermediate filters could be found to make the connection."},  // VFW_E_CANNOT_CONNECT
    {0x80040223, "The state changed while waiting to process the sample."},  // VFW_E_STATE_CHANGED
    {0x80040224, "The operation could not be performed because the filter is not stopped."},  // VFW_E_NOT_STOPPED
    {0x80040225, "The operation could not be performed because the filter is not paused."},  // VFW_E_NOT_PAUSED
    {0x80040226, "The operation could not be performed because the filter is not running."},  // VFW_E_NOT_RUNNING
    {0x80040227, "The operation could not be performed because the filter is in the wrong state."},  // VFW_E_WRONG_STATE
    {0x8004022A, "This pin cannot use the supplied media type."},  // VFW_E_TYPE_NOT_ACCEPTED
    {0x8004022B, "This sample cannot be rendered."},  // VFW_E_SAMPLE_REJECTED
    {0x8004022C, "This sample cannot be rendered because the end of the stream has been reached."},  // VFW_E_SAMPLE_REJECTED_EOS
    {0x8004022D, "An attempt to add a filter with a duplicate name failed."},  // VFW_E_DUPLICATE_NAME
    {0x8004022E, "A time-out has expired."},  // VFW_E_TIMEOUT
    {0x80040230, "The list has already been exhausted."},  // VFW_E_ENUM_OUT_OF_RANGE
    {0x80040231, "The filter graph is circular."},  // VFW_E_CIRCULAR_GRAPH
    {0x80040249, "No time stamp has been set for this sample."},  // VFW_E_SAMPLE_TIME_NOT_SET
    {0x80040251, "No media time stamp has been set for this sample."},  // VFW_E_MEDIA_TIME_NOT_SET
    {0x8004025F, "Cannot perform the requested function on an object that is not in the filter graph."},  // VFW_E_NOT_IN_GRAPH
    {0x80070002, "The system cannot find the file specified."},  // HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)
    {0x80070003, "The system cannot find the path specified."},  // HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND)
    {0x80070004, "The system cannot open the file."},  // HRESULT_FROM_WIN32(ERROR_TOO_MANY_OPEN_FILES)
    {0x80070008, "Not enough memory resources are available to process this command."},  // HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY)
    {0x80070015, "The device is not ready."},  // HRESULT_FROM_WIN32(ERROR_NOT_READY)
    {0x80070026, "Reached the end of the file."},  // HRESULT_FROM_WIN32(ERROR_HANDLE_EOF)
    {0x80070027, "The disk is full."},  // HRESULT_FROM_WIN32(ERROR_HANDLE_DISK_FULL)
    {0x80070050, "The file exists."},  // HRESULT_FROM_WIN32(ERROR_FILE_EXISTS)
    {0x80070070, "There is not enough space on the disk."},  // HRESULT_FROM_WIN32(ERROR_DISK_FULL)
    {0x8007007A, "The data area passed to a system call is too small."},  // HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER)
    {0x8007007B, "The filename, directory name, or volume label syntax is incorrect."},  // HRESULT_FROM_WIN32(ERROR_INVALID_NAME)
    {0x8007007E, "The specified module could not be found."},  // HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)
    {0x8007007F, "The specified procedure could not be found."},  // HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)
    {0x800700B7, "Cannot create a file when that file already exists."},  // HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS)
    {0x800700C1, "The file is not a valid application for this machine."},  // HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT)
    {0x800700EA, "More data is available."},  // HRESULT_FROM_WIN32(ERROR_MORE_DATA)
    {0x80070103, "No more data is available."},  // HRESULT_FROM_WIN32(ERROR_NO_MORE_ITEMS)
    {0x800703F1, "The configuration registry database is corrupt."},  // HRESULT_FROM_WIN32(ERROR_BADDB)
    {0x800703F3, "The configuration registry key could not be opened."},  // HRESULT_FROM_WIN32(ERROR_CANTOPEN)
    {0x800703FA, "Illegal operation attempted on a registry key that has been marked for deletion."},  // HRESULT_FROM_WIN32(ERROR_KEY_DELETED)
    {0x800705B4, "This operation returned because the timeout period expired."},  // HRESULT_FROM_WIN32(ERROR_TIMEOUT)
    {0x800706BA, "The RPC server is unavailable."},  // ZQ_E_RPC_CALL_FAILED
    {0x80080005, "Server execution failed"},  // CO_E_SERVER_EXEC_FAILURE
};
// clang-format on

template <size_t N>
constexpr bool StrictlyRising(const ZqStatusTextRow (&rows)[N]) {
  for (size_t i = 1; i < N; ++i)
    if (rows[i - 1].code >= rows[i].code) return false;
  return true;
}
static_assert(StrictlyRising(kCatalogueRows), "the catalogue's status rows come sorted, each code once");
static_assert(StrictlyRising(kPlatformRows), "the platform texts must stay sorted by code, each code once");

// Both lists merged by code.  A code in both takes the catalogue's text, so
// that the message table's sentence is the one shown.
constexpr size_t kRowCount = [] {
  size_t n = std::size(kCatalogueRows);
  for (const auto& p : kPlatformRows)
    if (std::none_of(std::begin(kCatalogueRows), std::end(kCatalogueRows),
                     [&](const ZqStatusTextRow& c) { return c.code == p.code; }))
      ++n;
  return n;
}();

constexpr std::array<ZqStatusTextRow, kRowCount> kRows = [] {
  std::array<ZqStatusTextRow, kRowCount> rows{};
  size_t n = 0;
  size_t p = 0;
  for (const auto& c : kCatalogueRows) {
    for (; p < std::size(kPlatformRows) && kPlatformRows[p].code <= c.code; ++p)
      if (kPlatformRows[p].code != c.code) rows[n++] = kPlatformRows[p];
    rows[n++] = c;
  }
  for (; p < std::size(kPlatformRows); ++p) rows[n++] = kPlatformRows[p];
  return rows;
}();

}  // namespace

const ZqStatusTextRow* ZqStatusTextRows(size_t* count) {
  *count = kRows.size();
  return kRows.data();
}

ZQ_API const char* ZqStatusText(HRESULT status) {
  const uint32_t key = static_cast<uint32_t>(status);
  const auto row = std::lower_bound(kRows.begin(), kRows.end(), key,
                                    [](const ZqStatusTextRow& r, uint32_t code) { return r.code < code; });
  return row != kRows.end() && row->code == key ? row->text : nullptr;
}
