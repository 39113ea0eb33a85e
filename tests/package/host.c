/* A host as small as can be: what it prints comes from the installed library. */
#include <morvu/ssd_features.h>
#include <morvu/status_texts.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  static const char request[] = "<Message subject=\"supported functionality\"/>";
  char reply[65536];
  uint32_t size = sizeof reply;
  uint64_t job = 0;

  if (GetVer() != 10200400 || Load() != 0) return 1;
  if (SendXMLMessage(request, (uint32_t)strlen(request), &job, true) != 0) return 2;
  if (ReceiveXMLMessage(job, reply, &size) != 0) return 3;
  Unload();
  if (strcmp(MorvuStatusText(MORVU_STATUS_CANCELED), "Canceled.") != 0) return 4;
  if (MorvuStatusText(MORVU_STATUS_NO_MESSAGE) == NULL || MorvuStatusText(-1) != NULL) return 5;
  return puts(reply) < 0;
}
