// What runs when libzqvstwrap.so is loaded into a process and unloaded from
// it: the kernel comes up before anything can touch it, and at unload the
// record list goes and the kernel stops last.
#include "aplugins/zqvstwrap/discovery/zqvstfactory.h"
#include "kernel/kernel_init.h"

namespace {

void LibraryLoaded() __attribute__((constructor));
void LibraryUnloaded() __attribute__((destructor));

void LibraryLoaded() {
  // A kernel that could not start fully does not stop the load: the host
  // learns of failures from the calls it makes.
  ZqKernel_EarlyInitialize(ZqGetModuleOfAddress(reinterpret_cast<const void*>(&LibraryLoaded)), 0);
}

void LibraryUnloaded() {
  ZqVstRecords_Destroy();
  ZqKernel_LateTerminate();
}

}  // namespace
