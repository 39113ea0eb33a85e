// The exported functions: the library's state, and the border that nothing but a
// status crosses.
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <system_error>

#include "frame/ForcedUnwind.h"
#include "frame/Logger.h"
#include "frame/border/EventCallbacks.h"
#include "frame/border/ReplyQueues.h"
#include "frame/border/SubjectMap.h"
#include "frame/status/Files.h"
#include "frame/status/Requests.h"
#include "messaging/XmlMessaging.h"
#include "messaging/jobs/JobManager.h"
#include "morvu/ssd_features.h"

namespace Morvu {
namespace {

// 1.2.0
constexpr std::uint64_t kVersion = 10200400;

// What Load makes.
struct Instance {
  SubjectMap subjects;
  JobManager jobs;

  explicit Instance(JobEnvironment environment) : jobs(std::move(environment)) {
    (void)BuildSupportedFunctionality(subjects);
  }
};

// Never destroyed: at the end of a process that did not unload, jobs still use it.
struct Process {
  std::mutex loadedMutex;            // guards the pointer
  std::shared_ptr<Instance> loaded;  // null before Load; a call in progress shares it
  ReplyQueues replies;
  EventCallbacks callbacks;
};

Process& TheProcess() {
  static auto& process = *new Process;
  return process;
}

std::shared_ptr<Instance> GetLibrary() {
  auto& process = TheProcess();
  std::lock_guard lock(process.loadedMutex);
  return process.loaded;
}

void PostReply(std::unique_ptr<XmlMessaging::Message> message, JobId jobId, bool keepAll,
               const std::function<void()>& whenThere) {
  auto& process = TheProcess();
  process.replies.Append(std::move(message), jobId, keepAll, whenThere);
  process.callbacks.Announce(jobId);
}

JobEnvironment MakeEnvironment() {
  JobEnvironment environment;
  environment.post = &PostReply;
  environment.hasMessages = [](JobId jobId) { return TheProcess().replies.Has(jobId); };
  return environment;
}

// A thread that is in the library is not cancelled: it would leave locks and jobs behind.
// The host's request holds until the call has returned.
class UncancelledCall {
 public:
  UncancelledCall() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state_); }
  ~UncancelledCall() { pthread_setcancelstate(state_, nullptr); }
  UncancelledCall(const UncancelledCall&) = delete;
  UncancelledCall& operator=(const UncancelledCall&) = delete;

 private:
  int state_ = PTHREAD_CANCEL_ENABLE;
};

// A host may be written in a language whose true is another byte than 1, which a compiler
// may take for true and for false. The byte is read once.
bool IsTrue(const bool& byteOfHost) {
  return *reinterpret_cast<const volatile unsigned char*>(&byteOfHost) != 0;
}

// No exception crosses the border: it comes back as a status.
template <typename Call>
MORVU_PASSES_FORCED_UNWIND std::int32_t Guarded(Call&& call) {
  const UncancelledCall uncancelled;
  try {
    return StatusCode(call()).Value();
  } catch (const abi::__forced_unwind&) {
    throw;  // a callback ended the host's thread
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  } catch (const std::system_error& error) {
    return StatusCode::FromSystemError(error.code().value()).Value();
  } catch (...) {
    return -EIO;
  }
}

// The text of a host's buffer, which a NUL may end early.
std::string_view TextOf(const char* text, std::uint32_t length) {
  return {text, strnlen(text, length)};
}

StatusCode LoadLibraryOnce() {
  auto& process = TheProcess();
  std::lock_guard lock(process.loadedMutex);
  if (process.loaded) return Status::Completed;
  try {
    process.loaded = std::make_shared<Instance>(MakeEnvironment());
    return Status::Completed;
  } catch (const std::system_error&) {
    return Status::ThreadNotStarted;
  }
}

StatusCode UnloadLibrary() {
  // A callback's own job would wait for itself.
  if (EventCallbacks::IsInCallback()) return Status::Completed;
  auto& process = TheProcess();
  std::shared_ptr<Instance> library;
  {
    std::lock_guard lock(process.loadedMutex);
    library.swap(process.loaded);
  }
  if (!library) return Status::Completed;
  library->jobs.Stop();
  process.replies.Clear();
  DisableLog();
  return Status::Completed;
}

StatusCode Send(std::string_view text, std::uint64_t& jobId, bool synchronous, Instance& library) {
  auto message = XmlMessaging::Message::Parse(text);
  if (!message) return Status::UnknownSubject;
  const auto handler = library.subjects.Find(XmlMessaging::RoutingName(*message));
  if (handler == nullptr) return Status::UnknownSubject;
  const auto created = library.jobs.CreateJob(std::move(message), handler, synchronous);
  if (created.status == Status::Completed) jobId = created.id;
  return created.status;
}

StatusCode SetScanLsi(bool scan) {
  if (const auto library = GetLibrary()) library->jobs.SetScanLsi(scan);
  return Status::Completed;
}

}  // namespace
}  // namespace Morvu

using namespace Morvu;

#define MORVU_EXPORT extern "C" __attribute__((visibility("default")))

MORVU_EXPORT int32_t Load(void) { return Guarded(&LoadLibraryOnce); }

MORVU_EXPORT void Unload(void) { Guarded(&UnloadLibrary); }

MORVU_EXPORT uint64_t GetVer(void) { return kVersion; }

MORVU_EXPORT void EnableLSIAdapter(void) {
  Guarded([] { return SetScanLsi(true); });
}

MORVU_EXPORT void DisableLSIAdapter(void) {
  Guarded([] { return SetScanLsi(false); });
}

MORVU_EXPORT int32_t EnableLogger(const char* path, uint32_t pathLength, uint32_t level,
                                  bool restart) {
  if (path == nullptr) return Status::FileNotOpened.Value();
  return Guarded([&] { return EnableLog(TextOf(path, pathLength), level, IsTrue(restart)); });
}

MORVU_EXPORT void DisableLogger(void) {
  Guarded([] {
    DisableLog();
    return Status::Completed;
  });
}

MORVU_EXPORT int32_t SendXMLMessage(const char* xml, uint32_t xmlLength, uint64_t* jobId,
                                    bool synchronous) {
  return Guarded([&] {
    const auto library = GetLibrary();
    if (!library) return Status::NotInitialized;
    if (jobId == nullptr || xml == nullptr) return Status::InvalidArguments;
    return Send(TextOf(xml, xmlLength), *jobId, IsTrue(synchronous), *library);
  });
}

MORVU_EXPORT int32_t ReceiveXMLMessage(uint64_t jobId, char* buffer, uint32_t* bufferLength) {
  return Guarded([&] { return TheProcess().replies.Receive(jobId, buffer, bufferLength); });
}

MORVU_EXPORT void RegisterEvent(EventCallback callback) {
  Guarded([&] {
    TheProcess().callbacks.Add(callback);
    return Status::Completed;
  });
}

MORVU_EXPORT void UnregisterEvent(EventCallback callback) {
  Guarded([&] {
    TheProcess().callbacks.RemoveFirst(callback);
    return Status::Completed;
  });
}
