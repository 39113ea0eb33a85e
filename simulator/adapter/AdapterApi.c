/* The vendor's library of a simulated machine: its one symbol. The work is done by the simulator
 * that is in this process already, so that a drive has one lock in it; without one, every call
 * is refused. */
#define _GNU_SOURCE
#include <dlfcn.h>

__attribute__((visibility("default"))) int ProcessLibCommand(void* request) {
  int (*call)(void*) = (int (*)(void*))dlsym(RTLD_DEFAULT, "morvu_simulator_adapter_call");
  return call != 0 ? call(request) : 1;
}
