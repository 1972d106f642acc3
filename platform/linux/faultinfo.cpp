// Addresses, stacks and the tracer, for exception reports.
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/faultinfo.h"

BOOL ZqDescribeAddress(const void* address, ULONG_PTR* base, char* path, size_t size) {
  if (base) *base = 0;
  if (path && size) path[0] = 0;
  Dl_info info;
  link_map* map = nullptr;
  if (!address || dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0) return FALSE;
  if (base) *base = reinterpret_cast<ULONG_PTR>(info.dli_fbase);
  const char* name = info.dli_fname ? info.dli_fname : "";
  if (map && map->l_name && map->l_name[0]) name = map->l_name;
  if (path && size) {
    std::strncpy(path, name, size - 1);
    path[size - 1] = 0;
  }
  return TRUE;
}

BOOL ZqGetThreadStack(ULONG_PTR* low, ULONG_PTR* high) {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return FALSE;
  void* start = nullptr;
  size_t size = 0;
  const bool ok = pthread_attr_getstack(&attributes, &start, &size) == 0;
  pthread_attr_destroy(&attributes);
  if (!ok) return FALSE;
  if (low) *low = reinterpret_cast<ULONG_PTR>(start);
  if (high) *high = reinterpret_cast<ULONG_PTR>(start) + size;
  return TRUE;
}

ZQ_EXTERN_C BOOL IsDebuggerPresent() {
  // "TracerPid:\t<pid>" in the process's status; read without stdio so that
  // a filter may ask.
  const int fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return FALSE;
  char text[4096];
  const ssize_t got = read(fd, text, sizeof text - 1);
  close(fd);
  if (got <= 0) return FALSE;
  text[got] = 0;
  const char* field = std::strstr(text, "TracerPid:");
  return field && std::strtol(field + 10, nullptr, 10) != 0;
}
