// English texts of the system's status codes.
//
// One table sorted by the code as an unsigned 32-bit number, searched by
// halves.  The system's own codes (0x8004Exxx, 0x0004Exxx) and the generic
// codes it answers carry the texts of the kernel's message table, without
// the two line feeds that a message box puts in front of most of them; the
// name of the host application, which that table fills in, reads "the
// application" here.  Codes the message table does not list carry the
// platform's own system texts: media framework codes, storage and remote
// call codes, and the platform errors that reach the system as
// HRESULT_FROM_WIN32.
#include "base/statustext.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace {

// clang-format off
constexpr ZqStatusTextRow kRows[] = {
    {0x00000000, "The operation completed successfully."},  // S_OK
    {0x00030200, "The underlying file was converted to compound file format."},  // STG_S_CONVERTED
    {0x00040103, "The end of the list has been reached."},  // VFW_S_NO_MORE_ITEMS
    {0x0004022D, "An attempt to add a filter with a duplicate name succeeded with a modified name."},  // VFW_S_DUPLICATE_NAME
    {0x00040237, "The state transition has not completed."},  // VFW_S_STATE_INTERMEDIATE
    {0x00040270, "The stop time for the sample was not set."},  // VFW_S_NO_STOP_TIME
    {0x0004E000, "The file had a problem in it; however, some content may have been recovered."},  // ZQ_S_BASE
    {0x0004E003, "One or more media files could not be located."},  // ZQ_S_0004E003
    {0x0004E005, "This feature is not configured properly."},  // ZQ_S_IS_SHELL
    {0x0004E006, "No compatible video codec was found."},  // ZQ_S_0004E006
    {0x0004E007, "The proper stream could not be found in the media file."},  // ZQ_S_0004E007
    {0x0004E008, "Some streams in the media file could not be opened."},  // ZQ_S_0004E008
    {0x0004E009, "An error occurred when loading a plug-in or plug-ins.  The plug-in preset(s) could not be loaded."},  // ZQ_S_0004E009
    {0x0004E00B, "A file had to be renamed during the operation."},  // ZQ_S_0004E00B
    {0x0004E00C, "The format of the stream is not consistent throughout the file."},  // ZQ_S_0004E00C
    {0x0004E00E, "This project file was created by an older version of the application."},  // ZQ_S_0004E00E
    {0x0004E010, "This project file was created by a different version of the program."},  // ZQ_S_0004E010
    {0x0004E015, "The playback devices specified in the project do not map to the current system settings. The project has been remapped to different devices."},  // ZQ_S_0004E015
    {0x0004E018, "Certain features contained in the older project file could not be converted exactly into the new version. As a result the project may not look or sound the same."},  // ZQ_S_0004E018
    {0x0004E019, "This file appears to have been created in an older version of the application.  All tracks may not be displayed properly.  It is recommended to create a new project."},  // ZQ_S_0004E019
    {0x80004001, "A necessary function has not been implemented."},  // E_NOTIMPL
    {0x80004002, "A necessary COM interface was not available.  You may need to reboot your computer."},  // E_NOINTERFACE
    {0x80004003, "An invalid pointer was specified."},  // E_POINTER
    {0x80004004, "Operation aborted"},  // E_ABORT
    {0x80004005, "The reason for the error could not be determined."},  // E_FAIL
    {0x8000FFFF, "An unexpected error has occurred."},  // E_UNEXPECTED
    {0x80010108, "The object invoked has disconnected from its clients."},  // RPC_E_DISCONNECTED
    {0x80030001, "Unable to perform requested operation."},  // STG_E_INVALIDFUNCTION
    {0x80030005, "There are not sufficient permissions for reading/writing a stream object."},  // STG_E_ACCESSDENIED
    {0x80030009, "An invalid pointer was specified."},  // STG_E_INVALIDPOINTER
    {0x8003001D, "An error occurred writing the file. Make sure you have write access to the file/folder and that there is enough free space."},  // STG_E_WRITEFAULT
    {0x8003001E, "A disk error occurred during a read operation."},  // STG_E_READFAULT
    {0x80030070, "The system is low on memory. You may be able to reduce memory usage by closing other applications."},  // STG_E_MEDIUMFULL
    {0x80030103, "Data cannot be written for reasons other than no access or no space."},  // STG_E_CANTSAVE
    {0x80040037, "A device does not exist."},
    {0x80040110, "Class does not support aggregation (or class object is remote)"},  // CLASS_E_NOAGGREGATION
    {0x80040111, "ClassFactory cannot supply requested class"},  // CLASS_E_CLASSNOTAVAILABLE
    {0x80040154, "The COM object failed to initialize."},  // REGDB_E_CLASSNOTREG
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
    {0x800404B0, "An invalid device was specified."},
    {0x800404E0, "No more devices."},
    {0x80040964, "The device specified is in use."},
    {0x8004E000, "An unsupported media type was requested."},  // ZQ_E_UNSUPPORTED_MEDIA_TYPE
    {0x8004E001, "The request is not enabled for this device."},  // ZQ_E_NOT_ENABLED
    {0x8004E002, "The disk is full. Please free some space and try again."},  // ZQ_E_DISK_FULL
    {0x8004E003, "Application resources are low. You may regain resources by closing some applications."},  // ZQ_E_RESOURCES
    {0x8004E004, "Trying to open allocated resource."},  // ZQ_E_ALLOCATED
    {0x8004E005, "The system is busy."},  // ZQ_E_BUSY
    {0x8004E006, "The file could not be created."},  // ZQ_E_CREATE_FILE
    {0x8004E007, "The file could not be opened. Make sure the file exists and that you have access to the file/folder."},  // ZQ_E_OPEN_FILE
    {0x8004E008, "An error occurred reading the file. Make sure you have read access to the file/folder and that it is not corrupted."},  // ZQ_E_READ_FILE
    {0x8004E009, "An error occurred writing the file. Make sure you have write access to the file/folder and that there is enough free space."},  // ZQ_E_WRITE_FILE
    {0x8004E00A, "The item was not found."},  // ZQ_E_NOT_FOUND
    {0x8004E00B, "The file is most likely corrupted or of an unknown format."},  // ZQ_E_BAD_FILE
    {0x8004E00C, "The operation was cancelled by the user."},  // ZQ_E_CANCELLED
    {0x8004E00D, "The file name is not valid."},  // ZQ_E_BAD_FILE_NAME
    {0x8004E00E, "A necessary resource is missing. You should re-install the application as the application file appears to be corrupted."},  // ZQ_E_MISSING_RESOURCE
    {0x8004E00F, "An error occurred while creating a window."},  // ZQ_E_CREATE_WINDOW
    {0x8004E010, "An error occurred while opening a device driver."},  // ZQ_E_OPEN_DRIVER
    {0x8004E011, "An error occurred while opening a codec."},  // ZQ_E_OPEN_CODEC
    {0x8004E012, "An error occurred while converting with a codec."},  // ZQ_E_CODEC_CONVERT
    {0x8004E015, "A device is not available."},  // ZQ_E_NO_DEVICE
    {0x8004E016, "The file is an unsupported format."},  // ZQ_E_UNSUPPORTED_FORMAT
    {0x8004E017, "An Exception has occurred."},  // ZQ_E_EXCEPTION
    {0x8004E019, "The existing file could not be deleted. Make sure this file is not read only or in use by another application."},  // ZQ_E_DELETE_FILE
    {0x8004E01A, "The file has no audio."},  // ZQ_E_NO_AUDIO
    {0x8004E01B, "A component failed to initialize."},  // ZQ_E_COMPONENT
    {0x8004E01C, "The file was created with an unsupported version of the program."},  // ZQ_E_VERSION
    {0x8004E01D, "The file has no video."},  // ZQ_E_NO_VIDEO
    {0x8004E01E, "An error occurred while opening a codec."},  // ZQ_E_OPEN_CODEC2
    {0x8004E01F, "No compatible video codec was found."},  // ZQ_E_NO_VIDEO_CODEC
    {0x8004E020, "The file could not be renamed. Make sure this file is not read only or in use by another application."},  // ZQ_E_RENAME_FILE
    {0x8004E023, "There is not enough audio data available for this operation."},  // ZQ_E_NOT_ENOUGH_AUDIO
    {0x8004E024, "Cannot read script."},  // ZQ_E_SCRIPT
    {0x8004E025, "The file may be corrupt."},  // ZQ_E_CORRUPT
    {0x8004E026, "Too many files are open."},  // ZQ_E_TOO_MANY_FILES
    {0x8004E028, "The sampling rate is not supported by the codec."},  // ZQ_E_SAMPLE_RATE
    {0x8004E02A, "The bit depth is not supported."},  // ZQ_E_BIT_DEPTH
    {0x8004E02B, "The number of channels is not supported."},  // ZQ_E_CHANNELS
    {0x8004E02E, "There was no room to add the plug-in(s)."},  // ZQ_E_NO_ROOM
    {0x8004E02F, "The plug-ins could not be used on a track."},  // ZQ_E_NOT_ON_TRACK
    {0x8004E030, "The plug-ins do not support the track's media type."},  // ZQ_E_TRACK_MEDIA_TYPE
    {0x8004E031, "One or more effects in the package failed to load.\n\nDo you want to try to load the loadable effects from the chain?"},  // ZQ_E_CHAIN_LOAD
    {0x8004E032, "The file could not be created. Another file with that name exists."},  // ZQ_E_FILE_EXISTS
    {0x8004E033, "The application does not support this file type."},  // ZQ_E_FILE_TYPE
    {0x8004E035, "A stream could not be opened because it was unrecognized or corrupt."},  // ZQ_E_STREAM_UNRECOGNIZED
    {0x8004E036, "A stream could not be opened."},  // ZQ_E_STREAM_OPEN
    {0x8004E037, "A stream could not be created."},  // ZQ_E_STREAM_CREATE
    {0x8004E038, "A stream could not be read."},  // ZQ_E_STREAM_READ
    {0x8004E039, "A stream could not be written."},  // ZQ_E_STREAM_WRITE
    {0x8004E03A, "The file being rendered has exceeded the maximum size allowed for the selected format."},  // ZQ_E_RENDER_SIZE
    {0x8004E03B, "The selected codec does not support the current render settings."},  // ZQ_E_RENDER_SETTINGS
    {0x8004E03C, "Buffer to small."},  // ZQ_E_BUFFER_TOO_SMALL
    {0x8004E03D, "An incorrect number of audio input channels were specified\n\n(for example, must be 2 if stereo music is selected)."},  // ZQ_E_INPUT_CHANNELS
    {0x8004E03E, "The video frame size is not supported."},  // ZQ_E_FRAME_SIZE
    {0x8004E045, "The requested command is not available at this time."},
    {0x8004E047, "The file format plugin for the specified format was not properly initialized."},
    {0x8004E050, "There is not enough data available for this operation."},
    {0x8004E051, "The file exists in the project and cannot be overwritten."},
    {0x8004E054, "The application can't read data fast enough to keep up with the operation."},
    {0x8004E055, "The CD Track is invalid."},
    {0x8004E05A, "The file could not be opened because some other application already has it open."},
    {0x8004E05B, "The file could not be opened because you do not have a high enough access permission to open it."},
    {0x8004E05D, "The source project information in the media file is either not found or is not valid."},
    {0x8004E05E, "The source project file referenced by the media does not exist."},
    {0x8004E05F, "Media Manager initialization failed."},
    {0x8004E061, "The sample rate is not supported."},
    {0x8004E080, "The file is most likely corrupted or of an unknown format. A necessary RIFF header is missing."},
    {0x8004E081, "The file is most likely corrupted or of an unknown format. A necessary LIST header is missing."},
    {0x8004E082, "The file is most likely corrupted or of an unknown format. A chunk has a length of 0."},
    {0x8004E083, "This file cannot be opened by the installed version of the application, or the file may be corrupt. Please download and install the latest update of the application."},
    {0x8004E084, "An error occurred when loading a plug-in or plug-ins.  The plug-in(s) specified are not installed on this system."},
    {0x8004E089, "This file appears to have been created in a newer version of the application, and is not supported by this version of the application.\nPlease download and install the latest update of the application."},
    {0x8004E0A0, "No devices exist."},
    {0x8004E0A1, "Time out occurred when preparing the audio device for playback."},
    {0x8004E0A2, "Unable to mix audio.  The operation timed out."},
    {0x8004E0A3, "Unable to build peaks.  Cannot get access to the wave file."},
    {0x8004E0A5, "No template was specified."},
    {0x8004E0A8, "Insufficient bandwidth to store target data rate."},
    {0x8004E0A9, "Duplicate item."},
    {0x8004E0AA, "Recording in progress."},
    {0x8004E0AB, "The template's audio bitrate is too large for the target bitrate."},
    {0x8004E0AC, "An operation is in progress."},
    {0x8004E0AE, "There are no Publishing Providers."},
    {0x8004E0AF, "The template is invalid."},
    {0x8004E0B4, "The template's peak bitrate is less than the average bitrate."},
    {0x8004E0C2, "The device has not been configured."},
    {0x8004E0C5, "An IOCTL call has failed."},
    {0x8004E0C9, "There is no DISC in the drive."},
    {0x8004E0D4, "ASPI is not installed."},
    {0x8004E0EC, "Cannot connect to the internet."},
    {0x8004E0ED, "Could not open URL"},
    {0x8004E0EE, "No data was read from the internet."},
    {0x8004E0EF, "Failed to read from the internet resource."},
    {0x8004E109, "This project contains CD track markers that are not properly quantized.\n\nthe application has quantized these markers to the nearest CD frame boundary. You should verify the placement and resave the project"},
    {0x8004E142, "You need to be logged on with adminstrator privileges to complete this operation."},
    {0x8004E15F, "Cannot find initialization file."},
    {0x8004E161, "Zip extraction failed."},
    {0x8004E163, "No renderer found for source reader."},
    {0x8004E165, "The file is in use by another operation."},
    {0x8004E166, "Clipboard is already open."},
    {0x8004E16D, "The file could not be modified because it is marked as readonly."},
    {0x8004E16E, "One or more files could not be moved because they are in use by another application."},
    {0x8004E16F, "One or more files could not be deleted because they are in use by another application."},
    {0x8004E170, "The file already exists."},
    {0x8004E171, "The file is already opened to a different stream, cannot open requested stream."},
    {0x8004E172, "The requested stream number is not a valid stream in the file."},
    {0x8004E173, "Current project is unnamed, cannot perform the operation."},
    {0x8004E186, "The destination folder cannot reside under the source folder."},
    {0x8004E189, "The instrument has compressed samples which are currently not supportted by this software."},
    {0x80070002, "The system cannot find the file specified."},  // HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)
    {0x80070003, "The system cannot find the path specified."},  // HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND)
    {0x80070004, "The system cannot open the file."},  // HRESULT_FROM_WIN32(ERROR_TOO_MANY_OPEN_FILES)
    {0x80070005, "Access is denied.  Make sure this file is not read only or in use by another application."},  // E_ACCESSDENIED
    {0x80070006, "An invalid handle was specified."},  // E_HANDLE
    {0x80070008, "Not enough memory resources are available to process this command."},  // HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY)
    {0x8007000E, "The system is low on memory. You may be able to reduce memory usage by closing other applications."},  // E_OUTOFMEMORY
    {0x80070015, "The device is not ready."},  // HRESULT_FROM_WIN32(ERROR_NOT_READY)
    {0x80070026, "Reached the end of the file."},  // HRESULT_FROM_WIN32(ERROR_HANDLE_EOF)
    {0x80070027, "The disk is full."},  // HRESULT_FROM_WIN32(ERROR_HANDLE_DISK_FULL)
    {0x80070050, "The file exists."},  // HRESULT_FROM_WIN32(ERROR_FILE_EXISTS)
    {0x80070057, "An invalid argument was specified."},  // E_INVALIDARG
    {0x80070070, "There is not enough space on the disk."},  // HRESULT_FROM_WIN32(ERROR_DISK_FULL)
    {0x8007007A, "The data area passed to a system call is too small."},  // HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER)
    {0x8007007B, "The filename, directory name, or volume label syntax is incorrect."},  // HRESULT_FROM_WIN32(ERROR_INVALID_NAME)
    {0x8007007E, "The specified module could not be found."},  // HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)
    {0x8007007F, "The specified procedure could not be found."},  // HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)
    {0x800700B7, "Cannot create a file when that file already exists."},  // HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS)
    {0x800700C1, "The file is not a valid application for this machine."},  // HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT)
    {0x800700EA, "More data is available."},  // HRESULT_FROM_WIN32(ERROR_MORE_DATA)
    {0x80070103, "No more data is available."},  // HRESULT_FROM_WIN32(ERROR_NO_MORE_ITEMS)
    {0x800705B4, "This operation returned because the timeout period expired."},  // HRESULT_FROM_WIN32(ERROR_TIMEOUT)
    {0x800706BA, "The RPC server is unavailable."},  // ZQ_E_RPC_CALL_FAILED
    {0x80080005, "Server execution failed"},  // CO_E_SERVER_EXEC_FAILURE
    {0x800A0026, "End of File is not an error."},
};
// clang-format on

constexpr bool StrictlyRising() {
  for (size_t i = 1; i < sizeof kRows / sizeof kRows[0]; ++i)
    if (kRows[i - 1].code >= kRows[i].code) return false;
  return true;
}
static_assert(StrictlyRising(), "the status texts must stay sorted by code, each code once");

}  // namespace

const ZqStatusTextRow* ZqStatusTextRows(size_t* count) {
  *count = sizeof kRows / sizeof kRows[0];
  return kRows;
}

ZQ_API const char* ZqStatusText(HRESULT status) {
  const uint32_t key = static_cast<uint32_t>(status);
  const auto row = std::lower_bound(std::begin(kRows), std::end(kRows), key,
                                    [](const ZqStatusTextRow& r, uint32_t code) { return r.code < code; });
  return row != std::end(kRows) && row->code == key ? row->text : nullptr;
}
