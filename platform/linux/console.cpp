// Terminals: isatty and the window size of the terminal driver.
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/console.h"

namespace {

int DescriptorOf(DWORD stdHandle) {
  switch (stdHandle) {
    case STD_INPUT_HANDLE:
      return STDIN_FILENO;
    case STD_OUTPUT_HANDLE:
      return STDOUT_FILENO;
    case STD_ERROR_HANDLE:
      return STDERR_FILENO;
    default:
      return -1;
  }
}

}  // namespace

BOOL ZqIsConsole(DWORD stdHandle) {
  const int fd = DescriptorOf(stdHandle);
  return fd >= 0 && isatty(fd) == 1 ? TRUE : FALSE;
}

int ZqGetConsoleWidth(DWORD stdHandle) {
  const int fd = DescriptorOf(stdHandle);
  if (fd < 0 || isatty(fd) != 1) return 0;
  struct winsize size {};
  if (ioctl(fd, TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}
