// zqvstserver: the companion process that runs the modules the host cannot
// or will not load itself.  The host starts it; it is no program to start
// by hand (see ZqVstServerMain for the switches).
#include <cstdlib>

#include "aplugins/zqvstwrap/host/zqvstfactory_effect.h"

int main(int argc, char** argv) {
  // Ends at once, without running the destructors of what plug-ins left.
  std::_Exit(ZqVstServerMain(argc, argv));
}
