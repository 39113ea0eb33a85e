// A host program of the built library: loads it by dlopen, as hosts do, and knows
// nothing of it but its C header.
#pragma once

#include <boost/property_tree/ptree.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace MorvuHost {

// Asks for the list of jobs, and for a scan and the list of the drives.
inline constexpr std::string_view kListJobs = "<Message subject='MorvuJob'/>";
inline constexpr std::string_view kScan = "<Message cimClass='MorvuSSD' scan='True'/>";

using Callback = void (*)(std::uint64_t job);

// The eleven functions of the library file, which stays loaded from the first use on. Their
// types are those of the C header; without it a new status code rebuilds no test.
struct Functions {
  std::int32_t (*Load)();
  void (*Unload)();
  std::uint64_t (*GetVer)();
  void (*EnableLSIAdapter)();
  void (*DisableLSIAdapter)();
  std::int32_t (*EnableLogger)(const char*, std::uint32_t, std::uint32_t, bool);
  void (*DisableLogger)();
  std::int32_t (*SendXMLMessage)(const char*, std::uint32_t, std::uint64_t*, bool);
  std::int32_t (*ReceiveXMLMessage)(std::uint64_t, char*, std::uint32_t*);
  void (*RegisterEvent)(Callback);
  void (*UnregisterEvent)(Callback);
};
const Functions& Library();

// One message from the library, read by a reader of its own.
class Reply {
 public:
  Reply() = default;
  explicit Reply(const std::string& text);

  bool IsEmpty() const { return text_.empty(); }
  const std::string& Text() const { return text_; }
  std::string Attribute(std::string_view name) const;  // of the Message

  using Tree = boost::property_tree::ptree;
  // The Objects that stand directly in the Message's Lists.
  std::vector<const Tree*> Listed() const;
  // A property of the job's object: "ErrorCode", "JobState", ...
  std::string Job(std::string_view property) const;
  int ErrorCode() const { return std::stoi(Job("ErrorCode")); }
  // What a notification tells: "name=value".
  std::string Notified() const;

 private:
  std::string text_;
  Tree tree_;
};

// The text of an element's Property of this name; empty without one.
std::string PropertyText(const Reply::Tree& element, std::string_view name);
std::string AttributeText(const Reply::Tree& element, std::string_view name);

// The parts of a request: the Object that names a drive by a key, a method and a parameter of it.
std::string KeyObject(std::string_view name, std::string_view value);
inline std::string Drive(std::string_view serial) { return KeyObject("SerialNumber", serial); }
std::string Method(std::string_view name, std::string_view content = {});
std::string Parameter(std::string_view name, std::string_view text);

// A loaded library, unloaded at the end.
class Host {
 public:
  Host() { Library().Load(); }
  ~Host() { Library().Unload(); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Starts a job; the request must be accepted.
  std::uint64_t Send(std::string_view request, bool synchronous = false);
  // The job's next message; an empty reply when none waits.
  Reply Receive(std::uint64_t job);
  // Waits for the job's next message.
  Reply Await(std::uint64_t job);
  // Waits for the message that tells the job's end.
  Reply AwaitEnd(std::uint64_t job);
  // Runs a request to its end, and gives its reply.
  Reply Call(std::string_view request) { return Receive(Send(request, true)); }
  // The same, of a request of this content to the class of the drives.
  Reply Ask(std::string_view content, std::string_view attributes = {}) {
    return Call(Request(content, attributes));
  }
  static std::string Request(std::string_view content, std::string_view attributes = {});
  void Cancel(std::uint64_t job);
  // Starts the notification service and runs its pass over the drives that the Objects
  // in `drives` name, which must have something to tell. The job under which it is, and its first
  // message.
  std::pair<std::uint64_t, Reply> StartNotifications(const std::string& drives = {});
  void StopNotifications();
  // The identifiers in the job list.
  std::vector<std::uint64_t> ListedJobs();
};

// Adds to what the process's clocks of day say, for this process alone.
void AdvanceTime(std::int64_t seconds);
// Lets no thread start, until set back.
void RefuseThreads(bool refuse);
// Lets no more threads be started and not yet joined than there are now, and `more`; any
// number again with the next call without one.
void LimitThreads(std::optional<int> more = {});
// The threads of this process that run.
std::size_t CountThreads();

}  // namespace MorvuHost
