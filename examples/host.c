/* A host of the Morvu SSD library in C: loads it while running, and shows each message
 * that goes in and comes out.
 *
 *   host [--all] [LIBRARY]
 *
 * LIBRARY is the library's file; without it the system's own search finds it. Long
 * messages are cut after some lines, unless --all is given. Exit status 0 when the
 * library answered everything as this program expects.
 *
 * The program changes nothing on a drive: the one write it asks for is refused, and
 * the one operation it starts, a self-test, reads and is canceled.
 */
#define _POSIX_C_SOURCE 200809L

#include <dlfcn.h>
#include <errno.h>
#include <inttypes.h>
#include <morvu/ssd_features.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#define LIBRARY_FILE "libMorvu.SSDFeatures.so.1.2.0"

enum { SHORTENED_LINES = 30, PATIENCE_SECONDS = 120 };

/* ---- The library's functions ---- */

static struct {
  int32_t (*load)(void);
  void (*unload)(void);
  uint64_t (*getVer)(void);
  int32_t (*send)(const char* xml, uint32_t xmlLength, uint64_t* jobId, bool synchronous);
  int32_t (*receive)(uint64_t jobId, char* buffer, uint32_t* bufferLength);
  void (*registerEvent)(EventCallback callback);
  void (*unregisterEvent)(EventCallback callback);
} library;

/* ISO C has no way from an object's pointer to a function's; POSIX has this one. */
static bool FindSymbol(void* handle, const char* name, void* function) {
  void* symbol = dlsym(handle, name);
  if (symbol == NULL) fprintf(stderr, "no function %s in the library\n", name);
  memcpy(function, &symbol, sizeof symbol);
  return symbol != NULL;
}

static bool OpenLibrary(const char* file) {
  void* handle = dlopen(file, RTLD_NOW);
  if (handle == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return false;
  }
  return FindSymbol(handle, "Load", &library.load) &&
         FindSymbol(handle, "Unload", &library.unload) &&
         FindSymbol(handle, "GetVer", &library.getVer) &&
         FindSymbol(handle, "SendXMLMessage", &library.send) &&
         FindSymbol(handle, "ReceiveXMLMessage", &library.receive) &&
         FindSymbol(handle, "RegisterEvent", &library.registerEvent) &&
         FindSymbol(handle, "UnregisterEvent", &library.unregisterEvent);
}

/* ---- Showing messages ---- */

static bool showAll = false;

/* One line of a message; those behind the limit are only counted. */
static int shownLines;
static void ShowLine(int depth, const char* text, size_t length) {
  if (showAll || ++shownLines <= SHORTENED_LINES) {
    printf("    %*s%.*s\n", 2 * depth, "", (int)length, text);
  }
}

/* An element on a line of its own, its children one step to the right. A text stays
 * on the line of its element. Brackets inside values are entities: each "<" begins a
 * tag and each ">" ends one. */
static void Show(const char* title, const char* xml) {
  int depth = 0;
  printf("%s\n", title);
  shownLines = 0;
  while ((xml = strchr(xml, '<')) != NULL) {
    const char* end = strchr(xml, '>');
    if (end == NULL) break;
    const bool closes = xml[1] == '/';
    const bool isWhole = end[-1] == '/' || xml[1] == '?';
    const char* next = end + 1;
    if (!closes && !isWhole && *next != '<' && *next != '\0' && *next != '\n') {
      next = strchr(next, '>'); /* of the closing tag behind the text */
      next = next == NULL ? end + strlen(end) : next + 1;
      ShowLine(depth, xml, (size_t)(next - xml));
    } else {
      if (closes && depth > 0) --depth;
      ShowLine(depth, xml, (size_t)(next - xml));
      if (!closes && !isWhole) ++depth;
    }
    xml = next;
  }
  if (!showAll && shownLines > SHORTENED_LINES) {
    printf("    ... %d more lines\n", shownLines - SHORTENED_LINES);
  }
}

/* ---- Messages ---- */

/* Posted for each message that waits. The callback runs on the library's thread and
 * must not block; the work is the main thread's. */
static sem_t messageWaits;
static void OnMessage(uint64_t jobId) {
  (void)jobId;
  sem_post(&messageWaits);
}

/* The job's next message, to be freed; NULL when none waits. */
static char* Receive(uint64_t jobId) {
  char* buffer = NULL;
  uint32_t size = 0;
  int32_t status;
  /* Asked with no room, the library tells the size. It may grow before the second
   * call: a newer message takes the place of an older one. */
  while ((status = library.receive(jobId, buffer, &size)) == MORVU_STATUS_BUFFER_TOO_SMALL) {
    char* larger = realloc(buffer, size);
    if (larger == NULL) break;
    buffer = larger;
  }
  if (status == MORVU_STATUS_COMPLETED) return buffer;
  free(buffer);
  return NULL;
}

/* Copies what stands between `begin` and the next `end`. */
static bool Extract(const char* xml, const char* begin, char end, char* text, size_t size) {
  const char* from = strstr(xml, begin);
  if (from == NULL) return false;
  from += strlen(begin);
  const char* to = strchr(from, end);
  if (to == NULL || (size_t)(to - from) >= size) return false;
  memcpy(text, from, (size_t)(to - from));
  text[to - from] = '\0';
  return true;
}

/* A number of the job's object in a message; -1 without one. A description of the job
 * class may stand before it: its properties have no text. */
static long JobNumber(const char* xml, const char* property) {
  char pattern[64];
  snprintf(pattern, sizeof pattern, "name=\"%s\"", property);
  while ((xml = strstr(xml, pattern)) != NULL) {
    xml = strchr(xml, '>');
    if (xml == NULL) break;
    if (xml[-1] != '/') return strtol(xml + 1, NULL, 10);
  }
  return -1;
}

static bool Send(const char* request, uint64_t* jobId) {
  Show("--> request", request);
  const int32_t status = library.send(request, (uint32_t)strlen(request), jobId, false);
  if (status != MORVU_STATUS_COMPLETED) {
    fprintf(stderr, "the request was not taken: status %" PRId32 "\n", status);
  }
  return status == MORVU_STATUS_COMPLETED;
}

/* Waits for the end of a job: "JobState" 7. What comes before tells its progress.
 * Returns the reply, to be freed; NULL when none came. */
static char* AwaitReply(uint64_t jobId) {
  struct timespec until;
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_sec += PATIENCE_SECONDS;
  for (;;) {
    char* message;
    while ((message = Receive(jobId)) != NULL) {
      if (JobNumber(message, "JobState") == 7) {
        Show("<-- reply", message);
        return message;
      }
      printf("<-- progress %ld%%\n", JobNumber(message, "PercentComplete"));
      free(message);
    }
    if (sem_timedwait(&messageWaits, &until) != 0 && errno != EINTR) {
      fprintf(stderr, "job %" PRIu64 " does not end\n", jobId);
      return NULL;
    }
  }
}

static char* Call(const char* request) {
  uint64_t jobId = 0;
  return Send(request, &jobId) ? AwaitReply(jobId) : NULL;
}

/* ---- What is shown ---- */

static void Title(const char* text) { printf("\n== %s\n\n", text); }

/* Runs a request, and tells whether it ended in `code`. */
static bool Expect(const char* request, long code) {
  char* reply = Call(request);
  const long got = reply == NULL ? -1 : JobNumber(reply, "ErrorCode");
  free(reply);
  if (got != code) fprintf(stderr, "ended in %ld, not in %ld\n", got, code);
  return got == code;
}

static bool ShowClasses(void) {
  Title("What the library can do");
  return Expect("<Message subject=\"supported functionality\"/>", MORVU_STATUS_COMPLETED);
}

/* Lists the drives; `serial` is that of the first. */
static bool ListDrives(char* serial, size_t size) {
  Title("Look for drives, and list them");
  char* reply = Call("<Message cimClass=\"MorvuSSD\" scan=\"True\"/>");
  if (reply == NULL) return false;
  const bool found = Extract(reply, "uniqueId=\"", '"', serial, size);
  if (!found) fprintf(stderr, "there is no drive\n");
  const bool good = JobNumber(reply, "ErrorCode") == MORVU_STATUS_COMPLETED && found;
  free(reply);
  return good;
}

static bool ShowChosenProperties(void) {
  Title("Chosen properties of all drives, of whatever make");
  return Expect(
      "<Message cimClass=\"Device\"><Object name=\"cimProperties\">"
      "<Property name=\"Index\"/><Property name=\"ModelNumber\"/>"
      "<Property name=\"SerialNumber\"/><Property name=\"Firmware\"/>"
      "<Property name=\"DeviceStatus\"/></Object></Message>",
      MORVU_STATUS_COMPLETED);
}

static bool ShowJobs(void) {
  Title("The jobs of the last five minutes");
  return Expect("<Message subject=\"MorvuJob\"/>", MORVU_STATUS_COMPLETED);
}

static bool ShowRefusedWrite(const char* serial) {
  Title("A write that is refused: the firmware's name is not the host's to set");
  char request[512];
  snprintf(request, sizeof request,
           "<Message cimClass=\"MorvuSSD\"><Object cimClass=\"MorvuSSD\">"
           "<Property name=\"SerialNumber\" key=\"True\">%s</Property></Object>"
           "<Property name=\"Firmware\" direction=\"o\">NEWER</Property></Message>",
           serial);
  return Expect(request, MORVU_STATUS_INVALID_ARGUMENTS);
}

/* The serial number of the first drive that offers a method. */
static bool FindDriveWith(const char* method, char* serial, size_t size) {
  char* reply = Call(
      "<Message cimClass=\"MorvuSSD\" includeMethods=\"True\"><Object name=\"cimProperties\">"
      "<Property name=\"ModelNumber\"/></Object></Message>");
  if (reply == NULL) return false;
  char pattern[64];
  snprintf(pattern, sizeof pattern, "name=\"%s\"", method);
  const char* offered = strstr(reply, pattern);
  const char* drive = NULL; /* the last one before the method */
  for (const char* at = reply; offered != NULL && (at = strstr(at, "uniqueId=\"")) != NULL; ++at) {
    if (at < offered) drive = at;
  }
  const bool found = drive != NULL && Extract(drive, "uniqueId=\"", '"', serial, size);
  free(reply);
  return found;
}

static bool ShowCancel(void) {
  Title("A long operation, and its cancel: a self-test of a drive that offers one");
  char serial[64], request[512];
  if (!FindDriveWith("DriveSelfTest", serial, sizeof serial)) {
    printf("no drive offers a self-test\n");
    return true;
  }
  snprintf(request, sizeof request,
           "<Message cimClass=\"MorvuSSD\"><Object cimClass=\"MorvuSSD\">"
           "<Property name=\"SerialNumber\" key=\"True\">%s</Property></Object>"
           "<Object type=\"method\" name=\"DriveSelfTest\">"
           "<Property name=\"SelfTest\">extended</Property></Object></Message>",
           serial);
  uint64_t test = 0, cancel = 0;
  if (!Send(request, &test)) return false;
  snprintf(request, sizeof request,
           "<Message subject=\"MorvuJob\" type=\"cancel\" identifier=\"%" PRIu64 "\"/>", test);
  if (!Send(request, &cancel)) return false; /* it has no reply of its own */
  char* reply = AwaitReply(test);
  const long code = reply == NULL ? -1 : JobNumber(reply, "ErrorCode");
  free(reply);
  printf("the operation ended in %ld\n", code);
  return code == MORVU_STATUS_CANCELED;
}

int main(int argc, char* argv[]) {
  const char* file = LIBRARY_FILE;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--all") == 0) {
      showAll = true;
    } else {
      file = argv[i];
    }
  }
  if (sem_init(&messageWaits, 0, 0) != 0 || !OpenLibrary(file)) return EXIT_FAILURE;

  printf("version %" PRIu64 "\n", library.getVer());
  if (library.load() != MORVU_STATUS_COMPLETED) return EXIT_FAILURE;
  library.registerEvent(&OnMessage);
  char serial[64];
  const bool good = ShowClasses() && ListDrives(serial, sizeof serial) && ShowChosenProperties() &&
                    ShowRefusedWrite(serial) && ShowCancel() && ShowJobs();
  library.unregisterEvent(&OnMessage);
  library.unload();
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
