// The Morvu SSD library for hosts in C++17 and newer: ssd_features.h with owners for what
// must be given back, requests and replies as objects, and jobs. Nothing but the standard
// library is needed, and all of it stands here.
//
//   morvu::Library library;
//   const auto reply = library.Call(morvu::Request("MorvuSSD").Scan());
//   for (const auto* drive : reply.Drives()) std::cout << drive->Attribute("uniqueId") << "\n";
//
//  1. What fails throws morvu::Error, or JobError for a job that did not end in 0: an erase
//     whose result nobody looks at must not be taken for one that was done.
//  2. Objects of one process share one loaded library. All functions may be called from any
//     thread; one Job is followed by one thread at a time, and canceled by any.
//  3. A Job does not own the work: one that goes out of scope leaves its operation running,
//     since a drive is not to be left half done. Its reply then stays in the library until that is
//     unloaded.
//  4. The Library that is destroyed last asks the jobs that still run to end, and waits for them.
#ifndef MORVU_SSD_FEATURES_HPP
#define MORVU_SSD_FEATURES_HPP

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "morvu/ssd_features.h"
#include "morvu/status_texts.h"

namespace morvu {

// The text of a status code, as morvussd prints it; the meaning of one that it prints as a number.
inline std::string StatusText(std::int32_t code) {
  if (const char* text = MorvuStatusText(code)) return text;
  return (code < 0 ? "OS Error: " : "Unknown error: ") + std::to_string(code);
}

// A call that failed, or a message that could not be read.
class Error : public std::runtime_error {
 public:
  explicit Error(std::int32_t code, const std::string& text)
      : std::runtime_error(text), code_(code) {}
  explicit Error(std::int32_t code) : Error(code, StatusText(code)) {}

  // A number of morvu/status_codes.h.
  std::int32_t Code() const noexcept { return code_; }

 private:
  std::int32_t code_;
};

// The text in the form that XML gives it in an attribute or between tags.
inline std::string Escape(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '&':
        escaped += "&amp;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&apos;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

// A request, part by part, in the order that docs/messages.md shows.
class Request {
 public:
  using Parameters = std::vector<std::pair<std::string, std::string>>;

  explicit Request(std::string_view subject)
      : head_("<Message subject=\"" + Escape(subject) + "\"") {}

  // An attribute of the message: "includeMethods", "record", ...
  Request& Attribute(std::string_view name, std::string_view value) {
    head_ += " " + std::string(name) + "=\"" + Escape(value) + "\"";
    return *this;
  }
  // Looks for drives first.
  Request& Scan() { return Attribute("scan", "True"); }
  // Names a drive; several times names several.
  Request& Drive(std::string_view serialNumber) {
    body_ += "<Object cimClass=\"Device\">" +
             Element("SerialNumber", " key=\"True\"", serialNumber) + "</Object>";
    return *this;
  }
  // Asks for these properties and no others.
  Request& Properties(const std::vector<std::string>& names) {
    body_ += "<Object name=\"cimProperties\">";
    for (const auto& name : names) body_ += Element(name, "", "");
    body_ += "</Object>";
    return *this;
  }
  Request& Method(std::string_view name, const Parameters& parameters = {}) {
    body_ += "<Object type=\"method\" name=\"" + Escape(name) + "\">";
    for (const auto& [parameter, value] : parameters) body_ += Element(parameter, "", value);
    body_ += "</Object>";
    return *this;
  }
  // Writes a property of the one drive that is named.
  Request& Write(std::string_view name, std::string_view value) {
    body_ += Element(name, " direction=\"io\"", value);
    return *this;
  }

  std::string Text() const { return head_ + ">" + body_ + "</Message>"; }

 private:
  static std::string Element(std::string_view name, const char* attributes, std::string_view text) {
    return "<Property name=\"" + Escape(name) + "\"" + attributes + ">" + Escape(text) +
           "</Property>";
  }

  std::string head_, body_;
};

// An element of a message: "Message", "Subject", "Object", "List" or "Property".
struct Element {
  std::string tag;
  std::map<std::string, std::string, std::less<>> attributes;
  std::string text;
  std::vector<Element> children;

  // Empty without it: the library means the same by both.
  std::string Attribute(std::string_view name) const {
    const auto found = attributes.find(name);
    return found == attributes.end() ? std::string() : found->second;
  }
  std::vector<const Element*> All(std::string_view childTag) const {
    std::vector<const Element*> found;
    for (const auto& child : children) {
      if (child.tag == childTag) found.push_back(&child);
    }
    return found;
  }
  // The first child of this tag and name; null without one.
  const Element* Find(std::string_view childTag, std::string_view name) const {
    for (const auto& child : children) {
      if (child.tag == childTag && child.Attribute("name") == name) return &child;
    }
    return nullptr;
  }
  // The text of a Property. Nothing when it is not there, and when the drive does not tell it: its
  // attribute "status" then says why.
  std::optional<std::string> Property(std::string_view name) const {
    const auto* property = Find("Property", name);
    if (property == nullptr || !property->IsTold()) return {};
    return property->text;
  }
  // Of a Property: whether it holds what the drive tells. A status stands beside values too, and an
  // unknown number is the largest one.
  bool IsTold() const {
    if (text.empty()) return Attribute("status").empty();
    const auto type = Attribute("type").substr(0, 4);
    return text != "18446744073709551615" || (type != "uint" && type != "sint");
  }
};

namespace detail {

// Reads what the library writes: elements, attributes in double quotes, texts, entities and a
// declaration. Throws Error for anything else.
class Reader {
 public:
  explicit Reader(std::string_view text) : rest_(text) {}

  Element ReadDocument() {
    if (rest_.substr(0, 5) == "<?xml") Take("?>");
    Trim();
    Expect('<');
    auto root = ReadElement(kMostDepth);
    Trim();
    Require(rest_.empty());
    return root;
  }

 private:
  static constexpr int kMostDepth = 64;

  static void Require(bool holds) {
    if (!holds) throw Error(MORVU_STATUS_UNKNOWN_SUBJECT, "A message cannot be read.");
  }
  static bool IsBlank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

  void Trim() {
    while (!rest_.empty() && IsBlank(rest_[0])) rest_.remove_prefix(1);
  }
  bool Skip(std::string_view word) {
    if (rest_.substr(0, word.size()) != word) return false;
    rest_.remove_prefix(word.size());
    return true;
  }
  void Expect(char c) { Require(Skip({&c, 1})); }
  // What stands before `end`, which is taken too.
  std::string_view Take(std::string_view end) {
    const auto at = rest_.find(end);
    Require(at != rest_.npos);
    const auto taken = rest_.substr(0, at);
    rest_.remove_prefix(at + end.size());
    return taken;
  }
  std::string_view TakeName() {
    const auto length = rest_.find_first_of(" \n\r\t=/><");
    Require(length != 0 && length != rest_.npos);
    const auto name = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return name;
  }

  // Behind the "<".
  Element ReadElement(int depth) {
    Require(depth > 0);
    Element element;
    element.tag = TakeName();
    for (Trim(); !Skip("/>"); Trim()) {
      if (Skip(">")) {
        ReadContent(element, depth);
        break;
      }
      std::string name(TakeName());
      Expect('=');
      Expect('"');
      element.attributes[std::move(name)] = Unescape(Take("\""));
    }
    return element;
  }

  void ReadContent(Element& element, int depth) {
    for (;;) {
      element.text += Unescape(Take("<"));
      if (Skip("/")) break;
      element.children.push_back(ReadElement(depth - 1));
    }
    Require(Skip(element.tag));
    Expect('>');
  }

  static std::string Unescape(std::string_view text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] != '&') {
        plain += text[i];
        continue;
      }
      const auto end = text.find(';', i);
      Require(end != text.npos);
      plain += Character(text.substr(i + 1, end - i - 1));
      i = end;
    }
    return plain;
  }

  static char Character(std::string_view entity) {
    constexpr std::pair<std::string_view, char> kEntities[] = {
        {"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto& [name, c] : kEntities) {
      if (entity == name) return c;
    }
    // A leading or trailing blank is written by its number.
    Require(entity.size() > 1 && entity[0] == '#');
    const auto code = std::strtol(std::string(entity.substr(1)).c_str(), nullptr, 10);
    Require(code > 0 && code < 128);
    return static_cast<char>(code);
  }

  std::string_view rest_;
};

// What the callback, which the library calls on its own threads, tells those who wait.
struct Arrivals {
  std::mutex loadMutex;  // guards the two below, and is held while the library loads or unloads
  int libraries = 0;
  std::mutex countMutex;  // guards the count; nothing of the library is called under it
  std::uint64_t count = 0;
  std::condition_variable changed;

  std::uint64_t Count() {
    const std::lock_guard<std::mutex> lock(countMutex);
    return count;
  }
};

// Never destroyed: jobs may run when the process ends.
inline Arrivals& TheArrivals() {
  static auto& arrivals = *new Arrivals;
  return arrivals;
}

inline void OnMessage(std::uint64_t) {
  auto& arrivals = TheArrivals();
  {
    const std::lock_guard<std::mutex> lock(arrivals.countMutex);
    ++arrivals.count;
  }
  arrivals.changed.notify_all();
}

}  // namespace detail

// A message of a job: its progress, its reply, or a notification.
class Message {
 public:
  explicit Message(std::string text)
      : text_(std::move(text)), root_(detail::Reader(text_).ReadDocument()) {}

  const std::string& Text() const { return text_; }
  const Element& Root() const { return root_; }

  // Whether it bears a job's state; of one that does not, what follows throws Error.
  bool IsOfAJob() const { return root_.Find("Object", "Morvu Job") != nullptr; }
  // 0 to 100.
  int Percent() const { return Number("PercentComplete"); }
  // True for the job's last message, which holds its result: the reply.
  bool IsLast() const { return Number("JobState") == kCompleted; }
  // The result: a status code, 74 while the job runs. With an NVMe status it is that number.
  std::int32_t Code() const { return Number("ErrorCode"); }
  // "NVMe status 0x002 (Invalid Field in Command)"; empty when the result is a status code.
  std::string NvmeStatus() const { return JobObject().Property("NVMeStatus").value_or(""); }
  std::string ResultText() const {
    const auto status = NvmeStatus();
    return status.empty() ? StatusText(Code()) : status;
  }
  bool IsGood() const { return Code() == MORVU_STATUS_COMPLETED && NvmeStatus().empty(); }
  // What a host shows to its user beside the result.
  std::vector<std::string> Warnings() const {
    std::vector<std::string> warnings;
    for (const auto* property : root_.All("Property")) {
      if (property->Attribute("name") == "Warning") warnings.push_back(property->text);
    }
    return warnings;
  }
  // The drives that a reply lists.
  std::vector<const Element*> Drives() const {
    std::vector<const Element*> drives;
    for (const auto* list : root_.All("List")) {
      if (list->Attribute("name") != root_.Attribute("subject")) continue;
      for (const auto* drive : list->All("Object")) drives.push_back(drive);
    }
    return drives;
  }

 private:
  static constexpr int kCompleted = 7;  // CIM_ConcreteJob.JobState

  const Element& JobObject() const {
    static const Element none;
    const auto* job = root_.Find("Object", "Morvu Job");
    return job == nullptr ? none : *job;
  }
  int Number(std::string_view property) const {
    const auto text = JobObject().Property(property);
    if (!text || text->empty()) {
      throw Error(MORVU_STATUS_UNKNOWN_SUBJECT, "A message tells nothing of its job.");
    }
    return static_cast<int>(std::strtol(text->c_str(), nullptr, 10));
  }

  std::string text_;
  Element root_;
};

// A job that ended in another code than 0; its reply may hold more.
class JobError : public Error {
 public:
  explicit JobError(Message reply)
      : Error(reply.Code(), reply.ResultText()), reply_(std::move(reply)) {}

  const Message& Reply() const noexcept { return reply_; }

 private:
  Message reply_;
};

// An operation that runs. Made by Library::Start, which must outlive it. Copies are the same job,
// and so is one that was moved from.
class Job {
 public:
  explicit Job(std::uint64_t id) : id_(id) {}
  Job(const Job&) = default;
  Job& operator=(const Job&) = default;

  std::uint64_t Id() const { return id_; }

  // Asks the operation to stop. It does at its next safe point and ends in 2, or runs to its end
  // if it has none; either way it has a reply. Does nothing once the reply was received.
  void Cancel() const {
    Request request("MorvuJob");
    request.Attribute("type", "cancel").Attribute("identifier", std::to_string(id_));
    const auto text = request.Text();
    std::uint64_t canceling = 0;
    const std::lock_guard<std::mutex> lock(end_->mutex);
    if (end_->isReceived) return;
    const auto status =
        ::SendXMLMessage(text.data(), static_cast<std::uint32_t>(text.size()), &canceling, true);
    if (status != MORVU_STATUS_COMPLETED) throw Error(status);
  }

  // The job's next message; nothing when none comes in time, and behind the reply. A percentage
  // that was not fetched gives way to the next.
  std::optional<Message> Next(std::chrono::milliseconds patience) const {
    return NextUntil(After(patience));
  }

  // Waits for the end; nothing when it does not come in time: the job then runs on. Calls
  // `onProgress` for each percentage, on this thread. Throws JobError when the result is not 0, and
  // Error 243 when the reply was received before.
  std::optional<Message> WaitFor(std::chrono::milliseconds patience,
                                 const std::function<void(int percent)>& onProgress = {}) const {
    const auto end = After(patience);
    while (auto message = NextUntil(end)) {
      if (auto reply = Judge(std::move(*message), onProgress)) return reply;
    }
    if (HasEnded()) throw Error(MORVU_STATUS_NO_MESSAGE);
    return {};
  }
  // The same, for as long as it takes.
  Message Wait(const std::function<void(int percent)>& onProgress = {}) const {
    for (;;) {
      if (auto reply = WaitFor(std::chrono::hours(1), onProgress)) return std::move(*reply);
    }
  }

 private:
  // The job's number may be another job's as soon as the reply was received.
  struct End {
    std::mutex mutex;
    bool isReceived = false;
  };

  // No clock counts the longest patience.
  static std::chrono::steady_clock::time_point After(std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24 * 365);
    return std::chrono::steady_clock::now() + (patience < kLongest ? patience : kLongest);
  }

  bool HasEnded() const {
    const std::lock_guard<std::mutex> lock(end_->mutex);
    return end_->isReceived;
  }

  static std::optional<Message> Judge(Message message,
                                      const std::function<void(int percent)>& onProgress) {
    if (message.IsLast()) {
      if (!message.IsGood()) throw JobError(std::move(message));
      return message;
    }
    if (onProgress) onProgress(message.Percent());
    return {};
  }

  std::optional<Message> NextUntil(std::chrono::steady_clock::time_point end) const {
    auto& arrivals = detail::TheArrivals();
    for (;;) {
      // Counted before the look: what arrives between look and wait is not slept through.
      const auto seen = arrivals.Count();
      if (auto message = Receive()) return message;
      if (HasEnded()) return {};
      std::unique_lock<std::mutex> lock(arrivals.countMutex);
      if (!arrivals.changed.wait_until(lock, end, [&] { return arrivals.count != seen; }))
        return {};
    }
  }

  std::optional<Message> Receive() const {
    const std::lock_guard<std::mutex> lock(end_->mutex);
    if (end_->isReceived) return {};
    auto text = ReceiveText();
    if (!text) return {};
    Message message(std::move(*text));
    end_->isReceived = message.IsOfAJob() && message.IsLast();
    return message;
  }

  std::optional<std::string> ReceiveText() const {
    std::string text;
    for (;;) {
      auto size = static_cast<std::uint32_t>(text.size());
      const auto status = ::ReceiveXMLMessage(id_, text.data(), &size);
      if (status == MORVU_STATUS_NO_MESSAGE) return {};
      // It may be larger by the second call: a newer message takes the place of an older one.
      text.resize(size);
      if (status == MORVU_STATUS_BUFFER_TOO_SMALL) continue;
      if (status != MORVU_STATUS_COMPLETED) throw Error(status);
      text.pop_back();  // the NUL
      return text;
    }
  }

  std::uint64_t id_;
  std::shared_ptr<End> end_ = std::make_shared<End>();
};

// The loaded library.
class Library {
 public:
  Library() {
    auto& arrivals = detail::TheArrivals();
    const std::lock_guard<std::mutex> lock(arrivals.loadMutex);
    if (arrivals.libraries == 0) {
      const auto status = ::Load();
      if (status != MORVU_STATUS_COMPLETED) throw Error(status);
      ::RegisterEvent(&detail::OnMessage);
    }
    ++arrivals.libraries;
  }
  ~Library() {
    auto& arrivals = detail::TheArrivals();
    const std::lock_guard<std::mutex> lock(arrivals.loadMutex);
    if (--arrivals.libraries > 0) return;
    ::Unload();
    ::UnregisterEvent(&detail::OnMessage);
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // 10200400 for 1.2.0.
  static std::uint64_t Version() { return ::GetVer(); }

  // Starts an operation beside the caller.
  [[nodiscard]] Job Start(const std::string& request) const {
    std::uint64_t id = 0;
    const auto status =
        ::SendXMLMessage(request.data(), static_cast<std::uint32_t>(request.size()), &id, false);
    if (status != MORVU_STATUS_COMPLETED) throw Error(status);
    return Job(id);
  }
  [[nodiscard]] Job Start(const Request& request) const { return Start(request.Text()); }

  // Runs an operation to its end. Throws JobError when its result is not 0.
  Message Call(const std::string& request) const { return Start(request).Wait(); }
  Message Call(const Request& request) const { return Call(request.Text()); }
};

}  // namespace morvu

#endif  // MORVU_SSD_FEATURES_HPP
