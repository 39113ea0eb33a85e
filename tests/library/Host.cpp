#include "Host.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>

#include <atomic>
#include <boost/property_tree/xml_parser.hpp>
#include <chrono>
#include <sstream>
#include <thread>

#define MORVU_VISIBLE __attribute__((visibility("default")))

namespace MorvuHost {
namespace {

std::atomic<std::int64_t> advancedSeconds = 0;
std::atomic<bool> threadsRefused = false;

constexpr auto kPatience = std::chrono::seconds(60);

}  // namespace

const Functions& Library() {
  static const Functions functions = [] {
    void* handle = dlopen(MORVU_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      ADD_FAILURE() << dlerror();
      std::abort();
    }
    const auto symbol = [&]<typename Function>(Function& function, const char* name) {
      function = reinterpret_cast<Function>(dlsym(handle, name));
      EXPECT_NE(nullptr, function) << name;
    };
    Functions f;
    symbol(f.Load, "Load");
    symbol(f.Unload, "Unload");
    symbol(f.GetVer, "GetVer");
    symbol(f.EnableLSIAdapter, "EnableLSIAdapter");
    symbol(f.DisableLSIAdapter, "DisableLSIAdapter");
    symbol(f.EnableLogger, "EnableLogger");
    symbol(f.DisableLogger, "DisableLogger");
    symbol(f.SendXMLMessage, "SendXMLMessage");
    symbol(f.ReceiveXMLMessage, "ReceiveXMLMessage");
    symbol(f.RegisterEvent, "RegisterEvent");
    symbol(f.UnregisterEvent, "UnregisterEvent");
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
  return Reply(text);
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

// A request is one job or another's thread may be first: whichever becomes the service,
// the passes of those that follow are told under its identifier.
std::pair<std::uint64_t, Reply> Host::StartNotifications(const std::string& drives) {
  const auto request = "<Message subject='Notification'>" + drives +
                       "<Property name='Enabled'>True</Property>"
                       "<Property name='scan'>True</Property></Message>";
  std::vector<std::uint64_t> jobs;
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < end) {
    jobs.push_back(Send(request));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    for (const auto job : jobs) {
      if (auto reply = Receive(job); !reply.IsEmpty()) return {job, reply};
    }
  }
  ADD_FAILURE() << "nothing is told";
  return {};
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

void AdvanceTime(std::int64_t seconds) { advancedSeconds += seconds; }

void RefuseThreads(bool refuse) { threadsRefused = refuse; }

}  // namespace MorvuHost

// The library finds these before libc's own.
extern "C" {

MORVU_VISIBLE int clock_gettime(clockid_t clock, timespec* time) {
  static const auto real =
      reinterpret_cast<decltype(&clock_gettime)>(dlsym(RTLD_NEXT, "clock_gettime"));
  const int result = real(clock, time);
  if (result == 0 && clock == CLOCK_REALTIME) {
    time->tv_sec += static_cast<time_t>(MorvuHost::advancedSeconds.load());
  }
  return result;
}

MORVU_VISIBLE int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                 void* (*body)(void*), void* argument) {
  if (MorvuHost::threadsRefused) return EAGAIN;
  static const auto real =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  return real(thread, attributes, body, argument);
}

}  // extern "C"
