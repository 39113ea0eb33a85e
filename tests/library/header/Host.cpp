/* The C header in a C++ program with all warnings: every function by its declared type. */
#include <morvu/ssd_features.h>

int UseOfEveryFunction(EventCallback callback);

int UseOfEveryFunction(EventCallback callback) {
  uint64_t job = 0;
  uint32_t size = 0;
  if (Load() != MORVU_STATUS_COMPLETED || GetVer() == 0) return 1;
  EnableLSIAdapter();
  DisableLSIAdapter();
  RegisterEvent(callback);
  if (EnableLogger("log", 3, 1, true) != MORVU_STATUS_COMPLETED) return 2;
  if (SendXMLMessage("<Message/>", 10, &job, true) != MORVU_STATUS_UNKNOWN_SUBJECT) return 3;
  if (ReceiveXMLMessage(job, nullptr, &size) != MORVU_STATUS_NO_MESSAGE) return 4;
  UnregisterEvent(callback);
  DisableLogger();
  Unload();
  return 0;
}
