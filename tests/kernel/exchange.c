/* A host that hands one request to the library and prints every message of the job.
 *
 *   exchange LIBRARY REQUEST [interrupted]
 *
 * With the third word the process gets a signal every half second.
 */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "interrupts.h"
#include "morvu/ssd_features.h"

static void* find(void* library, const char* name) {
  void* symbol = dlsym(library, name);
  if (symbol == NULL) {
    fprintf(stderr, "exchange: no %s in the library\n", name);
    exit(2);
  }
  return symbol;
}

/* A function's pointer comes as an object's from dlsym: POSIX lets it be read as one. */
#define BIND(library, name)      \
  __typeof__(&name) call_##name; \
  *(void**)(&call_##name) = find(library, #name)

int main(int argc, char** argv) {
  void* library;
  uint64_t job = 0;
  uint32_t size = 0;
  int32_t status;

  if (argc < 3) return 2;
  if (argc > 3 && interrupt_process(1) != 0) return 2;
  library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == NULL) {
    fprintf(stderr, "exchange: %s\n", dlerror());
    return 2;
  }
  BIND(library, Load);
  BIND(library, Unload);
  BIND(library, SendXMLMessage);
  BIND(library, ReceiveXMLMessage);

  if (call_Load() != 0) return 1;
  status = call_SendXMLMessage(argv[2], (uint32_t)strlen(argv[2]), &job, true);
  if (status != 0) {
    fprintf(stderr, "exchange: the request is refused with %d\n", status);
    return 1;
  }
  /* The first call tells the size, the second takes the message. */
  while (call_ReceiveXMLMessage(job, NULL, &size) == 141) {
    char* text = malloc(size);
    if (text == NULL || call_ReceiveXMLMessage(job, text, &size) != 0) return 1;
    puts(text);
    free(text);
    size = 0;
  }
  call_Unload();
  return 0;
}
