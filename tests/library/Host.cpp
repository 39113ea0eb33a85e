#include "Host.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <morvu/ssd_features.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <boost/property_tree/xml_parser.hpp>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>
#include <type_traits>

#include "Clock.h"

#define MORVU_VISIBLE __attribute__((visibility("default")))

// A function of the library, under the type that the C header gives it.
#define MORVU_TAKE(name)                                              \
  static_assert(std::is_same_v<decltype(f.name), decltype(&::name)>); \
  f.name = reinterpret_cast<decltype(f.name)>(dlsym(handle, #name));  \
  EXPECT_NE(nullptr, f.name) << #name

namespace MorvuHost {
namespace {

std::atomic<bool> threadsRefused = false;
std::atomic<int> unjoinedThreads = 0;
std::atomic<int> mostThreads = std::numeric_limits<int>::max();

constexpr auto kPatience = std::chrono::seconds(60);

// Keeps messages for the schema to be held against, where the environment names a folder for them:
// a file for all that differ in nothing but figures.
class KeptMessages {
 public:
  // What is mistyped on purpose is none of them: by the name of its test, by a name that there is
  // not, or because the library says so.
  void KeepRequest(std::string_view request, std::uint64_t job) {
    const std::string suite =
        ::testing::UnitTest::GetInstance()->current_test_info()->test_suite_name();
    for (const char* word : {"Mistyped", "Border"}) {
      if (suite.find(word) != suite.npos) return;
    }
    if (folder_ == nullptr || request.find("NoSuch") != request.npos) return;
    std::lock_guard lock(mutex_);
    requests_[job] = Keep("request-", request);
  }
  void KeepReply(const Reply& reply, std::uint64_t job) {
    if (folder_ == nullptr) return;
    Keep("reply-", reply.Text());
    std::istringstream recordings(reply.Attribute("recorded"));
    for (std::string path; std::getline(recordings, path, '~');) {
      std::ostringstream text;
      text << std::ifstream(path).rdbuf();
      Keep("recording-", text.str());
    }
    std::lock_guard lock(mutex_);
    if (!reply.Attribute("reason").empty()) std::filesystem::remove(requests_[job]);
  }

 private:
  std::filesystem::path Keep(std::string_view kind, std::string_view message) {
    // Writing ends no thread that a test cancels: the library's calls do not either.
    int state = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    std::string form;
    std::ranges::copy_if(message, std::back_inserter(form),
                         [](char c) { return c < '0' || c > '9'; });
    const auto name = std::string(kind) + std::to_string(std::hash<std::string>{}(form)) + ".xml";
    const auto path = std::filesystem::path(folder_) / name;
    // Made whole under another name: other processes keep theirs in the same folder.
    const auto made = path.string() + "." + std::to_string(gettid());
    std::ofstream(made) << message;
    std::filesystem::rename(made, path);
    pthread_setcancelstate(state, nullptr);
    return path;
  }

  const char* folder_ = std::getenv("MORVU_MESSAGES_FOLDER");
  std::mutex mutex_;
  std::map<std::uint64_t, std::filesystem::path> requests_;  // by job
};

KeptMessages keptMessages;

}  // namespace

const Functions& Library() {
  static const Functions functions = [] {
    void* handle = dlopen(MORVU_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      ADD_FAILURE() << dlerror();
      std::abort();
    }
    Functions f;
    MORVU_TAKE(Load);
    MORVU_TAKE(Unload);
    MORVU_TAKE(GetVer);
    MORVU_TAKE(EnableLSIAdapter);
    MORVU_TAKE(DisableLSIAdapter);
    MORVU_TAKE(EnableLogger);
    MORVU_TAKE(DisableLogger);
    MORVU_TAKE(SendXMLMessage);
    MORVU_TAKE(ReceiveXMLMessage);
    MORVU_TAKE(RegisterEvent);
    MORVU_TAKE(UnregisterEvent);
    return f;
  }();
  return functions;
}

Reply::Reply(const std::string& text) : text_(text) {
  std::istringstream in(text);
  boost::property_tree::read_xml(in, tree_);
  EXPECT_EQ(1u, tree_.count("Message")) << text;
}

std::string Reply::Attribute(std::string_view name) const {
  return AttributeText(tree_.get_child("Message"), name);
}

std::vector<const Reply::Tree*> Reply::Listed() const {
  std::vector<const Tree*> objects;
  for (const auto& [tag, list] : tree_.get_child("Message")) {
    if (tag != "List") continue;
    for (const auto& [inner, object] : list) {
      if (inner == "Object") objects.push_back(&object);
    }
  }
  return objects;
}

std::string Reply::Job(std::string_view property) const {
  if (IsEmpty()) return "no message";
  for (const auto& [tag, object] : tree_.get_child("Message")) {
    if (tag == "Object" && AttributeText(object, "name") == "Morvu Job") {
      return PropertyText(object, property);
    }
  }
  return "no job";
}

std::string Reply::Notified() const {
  const auto& property = tree_.get_child("Message.Property");
  return AttributeText(property, "name") + "=" + AttributeText(property, "value");
}

std::string PropertyText(const Reply::Tree& element, std::string_view name) {
  for (const auto& [tag, property] : element) {
    if (tag == "Property" && AttributeText(property, "name") == name) return property.data();
  }
  return {};
}

std::string AttributeText(const Reply::Tree& element, std::string_view name) {
  return element.get("<xmlattr>." + std::string(name), std::string());
}

std::uint64_t Host::Send(std::string_view request, bool synchronous) {
  std::uint64_t job = 0;
  const auto length = static_cast<std::uint32_t>(request.size());
  EXPECT_EQ(MORVU_STATUS_COMPLETED,
            Library().SendXMLMessage(request.data(), length, &job, synchronous))
      << request;
  keptMessages.KeepRequest(request, job);
  return job;
}

Reply Host::Receive(std::uint64_t job) {
  std::uint32_t size = 0;
  if (Library().ReceiveXMLMessage(job, nullptr, &size) == MORVU_STATUS_NO_MESSAGE) return {};
  std::string text(size, '\0');
  // A newer message may have taken the place of the measured one.
  while (Library().ReceiveXMLMessage(job, text.data(), &size) == MORVU_STATUS_BUFFER_TOO_SMALL) {
    text.resize(size);
  }
  text.resize(size - 1);
  Reply reply(text);
  keptMessages.KeepReply(reply, job);
  return reply;
}

std::string KeyObject(std::string_view name, std::string_view value) {
  return "<Object cimClass='MorvuSSD'><Property name='" + std::string(name) + "' key='True'>" +
         std::string(value) + "</Property></Object>";
}

std::string Method(std::string_view name, std::string_view content) {
  return "<Object type='method' name='" + std::string(name) + "'>" + std::string(content) +
         "</Object>";
}

std::string Parameter(std::string_view name, std::string_view text) {
  return "<Property name='" + std::string(name) + "'>" + std::string(text) + "</Property>";
}

std::string Host::Request(std::string_view content, std::string_view attributes) {
  return "<Message cimClass='MorvuSSD' " + std::string(attributes) + ">" + std::string(content) +
         "</Message>";
}

void Host::Cancel(std::uint64_t job) {
  EXPECT_TRUE(
      Call("<Message subject='MorvuJob' type='cancel' identifier='" + std::to_string(job) + "'/>")
          .IsEmpty());
}

Reply Host::Await(std::uint64_t job) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < end) {
    if (auto reply = Receive(job); !reply.IsEmpty()) return reply;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ADD_FAILURE() << "no message of job " << job;
  return {};
}

Reply Host::AwaitEnd(std::uint64_t job) {
  auto reply = Await(job);
  while (!reply.IsEmpty() && reply.Job("JobState") != "7") reply = Await(job);
  return reply;
}

// The service, and behind it the pass, which is told under the service's identifier.
std::pair<std::uint64_t, Reply> Host::StartNotifications(const std::string& drives) {
  const auto service = Send("<Message subject='Notification'/>");
  Call("<Message subject='Notification'>" + drives +
       "<Property name='scan'>True</Property></Message>");
  return {service, Await(service)};
}

void Host::StopNotifications() {
  Call("<Message subject='Notification'><Property name='Enabled'>False</Property></Message>");
}

std::vector<std::uint64_t> Host::ListedJobs() {
  std::vector<std::uint64_t> jobs;
  const auto reply = Call("<Message subject='MorvuJob'/>");
  for (const auto* object : reply.Listed()) {
    jobs.push_back(std::stoull(PropertyText(*object, "InstanceID")));
  }
  return jobs;
}

void AdvanceTime(std::int64_t seconds) { Simulator::AdvanceTimeOfDay(seconds); }

void RefuseThreads(bool refuse) { threadsRefused = refuse; }

void LimitThreads(std::optional<int> more) {
  mostThreads = more ? unjoinedThreads + *more : std::numeric_limits<int>::max();
}

std::size_t CountThreads() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

}  // namespace MorvuHost

// The library finds these before libc's own.
extern "C" {

MORVU_VISIBLE int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                 void* (*body)(void*), void* argument) {
  if (MorvuHost::threadsRefused) return EAGAIN;
  if (MorvuHost::unjoinedThreads >= MorvuHost::mostThreads) return EAGAIN;
  static const auto real =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  const int error = real(thread, attributes, body, argument);
  if (error == 0) ++MorvuHost::unjoinedThreads;
  return error;
}

MORVU_VISIBLE int pthread_join(pthread_t thread, void** result) {
  static const auto real =
      reinterpret_cast<decltype(&pthread_join)>(dlsym(RTLD_NEXT, "pthread_join"));
  const int error = real(thread, result);
  if (error == 0) --MorvuHost::unjoinedThreads;
  return error;
}

}  // extern "C"
