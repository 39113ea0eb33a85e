/* A host program: updates the firmware of one drive through the library, and shows
 * every message that passes.
 *
 *   firmware_update LIBRARY SERIAL [-file IMAGE] [MODULE_DIRECTORY]...
 *
 * Without an image the firmware comes from modules: of the folder FirmwareModules
 * beside this program, and of the directories that are named. */
#include <dlfcn.h>
#include <inttypes.h>
#include <morvu/ssd_features.h>
#include <semaphore.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The functions of the library that this host uses. */
static struct {
  int32_t (*Load)(void);
  void (*Unload)(void);
  int32_t (*SendXMLMessage)(const char*, uint32_t, uint64_t*, bool);
  int32_t (*ReceiveXMLMessage)(uint64_t, char*, uint32_t*);
  void (*RegisterEvent)(EventCallback);
  void (*UnregisterEvent)(EventCallback);
} library;

static void Fail(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vfprintf(stderr, format, arguments);
  va_end(arguments);
  fputc('\n', stderr);
  exit(1);
}

static void* FindFunction(void* handle, const char* name) {
  void* function = dlsym(handle, name);
  if (function == NULL) Fail("the library has no %s", name);
  return function;
}

static void* OpenLibrary(const char* path) {
  void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (handle == NULL) Fail("%s", dlerror());
  *(void**)&library.Load = FindFunction(handle, "Load");
  *(void**)&library.Unload = FindFunction(handle, "Unload");
  *(void**)&library.SendXMLMessage = FindFunction(handle, "SendXMLMessage");
  *(void**)&library.ReceiveXMLMessage = FindFunction(handle, "ReceiveXMLMessage");
  *(void**)&library.RegisterEvent = FindFunction(handle, "RegisterEvent");
  *(void**)&library.UnregisterEvent = FindFunction(handle, "UnregisterEvent");
  return handle;
}

/* The library calls this on a job's thread: it only counts. */
static sem_t waiting;

static void OnMessage(uint64_t job) {
  (void)job;
  sem_post(&waiting);
}

/* The job's next message, which the caller frees; NULL when none waits. */
static char* Receive(uint64_t job) {
  uint32_t size = 4096;
  char* text = malloc(size);
  int32_t result = library.ReceiveXMLMessage(job, text, &size);
  while (result == MORVU_STATUS_BUFFER_TOO_SMALL) { /* size tells what it takes */
    text = realloc(text, size);
    result = library.ReceiveXMLMessage(job, text, &size);
  }
  if (result == MORVU_STATUS_COMPLETED) return text;
  free(text);
  return NULL;
}

/* The text of the first property `name` of a message that has one: what stands between
 * its tags. A description of the property has none. */
static void FindText(const char* message, const char* name, char* text, size_t size) {
  char mark[64];
  snprintf(mark, sizeof mark, "name=\"%s\"", name);
  *text = '\0';
  for (const char* at = message; (at = strstr(at, mark)) != NULL; at += strlen(mark)) {
    const char* begin = strchr(at, '>');
    const char* end = begin == NULL ? NULL : strchr(begin, '<');
    if (end == NULL || begin[-1] == '/') continue;
    snprintf(text, size, "%.*s", (int)(end - begin - 1), begin + 1);
    return;
  }
}

static bool HasEnded(const char* message) {
  char state[16];
  FindText(message, "JobState", state, sizeof state);
  return strcmp(state, "7") == 0;
}

static int GetErrorCode(const char* message) {
  char code[16];
  FindText(message, "ErrorCode", code, sizeof code);
  return atoi(code);
}

/* Long messages are cut: a host that wants all of one reads it with an XML parser. */
static void Show(const char* direction, const char* text) {
  const size_t length = strlen(text), shown = 1000;
  printf("%s %.*s", direction, (int)shown, text);
  if (length > shown) printf(" ... (%zu bytes)", length);
  putchar('\n');
}

/* Sends a request, shows what comes back, and gives the last message of its job. */
static char* Ask(const char* request) {
  uint64_t job = 0;
  Show("->", request);
  const int32_t result = library.SendXMLMessage(request, (uint32_t)strlen(request), &job, false);
  if (result != MORVU_STATUS_COMPLETED) Fail("the request was refused: %" PRId32, result);
  for (;;) {
    sem_wait(&waiting);
    for (char* message; (message = Receive(job)) != NULL;) {
      char percent[16];
      FindText(message, "PercentComplete", percent, sizeof percent);
      if (HasEnded(message)) {
        Show("<-", message);
        return message;
      }
      printf("<- %s %%\n", percent);
      free(message);
    }
  }
}

/* Adds a text to a request, with the characters that XML does not take replaced. */
static void Add(char** request, const char* text, bool escape) {
  size_t at = *request == NULL ? 0 : strlen(*request);
  *request = realloc(*request, at + 6 * strlen(text) + 1);
  for (; *text != '\0'; ++text) {
    const char* entity = !escape        ? NULL
                         : *text == '&' ? "&amp;"
                         : *text == '<' ? "&lt;"
                         : *text == '>' ? "&gt;"
                                        : NULL;
    if (entity == NULL) {
      (*request)[at++] = *text;
    } else {
      at += (size_t)sprintf(*request + at, "%s", entity);
    }
  }
  (*request)[at] = '\0';
}

static char* MakeUpdateRequest(const char* serial, const char* image, char** directories) {
  char* request = NULL;
  Add(&request, "<Message subject=\"MorvuSSD\"><Object cimClass=\"MorvuSSD\">", false);
  Add(&request, "<Property name=\"SerialNumber\" key=\"True\">", false);
  Add(&request, serial, true);
  Add(&request, "</Property></Object><Object type=\"method\" name=\"FirmwareUpdate\">", false);
  if (image != NULL) {
    Add(&request, "<Property name=\"file\">", false);
    Add(&request, image, true);
    Add(&request, "</Property>", false);
  }
  Add(&request, "</Object><Object name=\"FirmwareModulesDirectories\">", false);
  for (; *directories != NULL; ++directories) {
    Add(&request, "<Property>", false);
    Add(&request, *directories, true);
    Add(&request, "</Property>", false);
  }
  Add(&request, "</Object></Message>", false);
  return request;
}

static const char kList[] =
    "<Message subject=\"MorvuSSD\" scan=\"True\"><Object name=\"cimProperties\">"
    "<Property name=\"SerialNumber\"/><Property name=\"ModelNumber\"/>"
    "<Property name=\"Firmware\"/></Object></Message>";

int main(int argc, char** argv) {
  if (argc < 3) Fail("Usage: firmware_update LIBRARY SERIAL [-file IMAGE] [MODULE_DIRECTORY]...");
  const bool hasFile = argc >= 5 && strcmp(argv[3], "-file") == 0;
  sem_init(&waiting, 0, 0);
  setvbuf(stdout, NULL, _IOLBF, 0);

  puts("1. Load");
  void* handle = OpenLibrary(argv[1]);
  library.Load();
  puts("2. Register for events");
  library.RegisterEvent(OnMessage);
  puts("3. Ask what there is");
  free(Ask("<Message subject=\"supported functionality\"/>"));
  puts("4. List the drives");
  free(Ask(kList));
  puts("5. Update, 6. watch its progress, 7. take the reply");
  char* request = MakeUpdateRequest(argv[2], hasFile ? argv[4] : NULL, argv + (hasFile ? 5 : 3));
  char* reply = Ask(request);
  const int code = GetErrorCode(reply);
  printf("The update ended with code %d\n", code);
  free(reply);
  free(request);
  puts("8. Unregister");
  library.UnregisterEvent(OnMessage);
  puts("9. Unload");
  library.Unload();
  dlclose(handle);
  sem_destroy(&waiting);
  return code == MORVU_STATUS_COMPLETED ? 0 : 1;
}
