#include "frame/border/ReplyQueues.h"

#include <cstring>
#include <limits>
#include <utility>

#include "frame/Text.h"
#include "frame/status/Requests.h"

namespace Morvu {

using XmlMessaging::Message;

namespace {

std::string WithoutColours(const std::string& text) {
  return text.find('<') == text.npos ? text : StripMarkup(text);
}

// Marks are removed before the text is made: in it their brackets are entities.
void StripColours(Message& message) {
  constexpr int kAllDepths = std::numeric_limits<int>::max();
  for (auto* element : message.Find("", "", "", kAllDepths)) {
    for (const auto& [key, value] : element->GetAttributes()) {
      element->SetAttribute(key, WithoutColours(value));
    }
    auto* property = dynamic_cast<XmlMessaging::Property*>(element);
    if (property != nullptr) property->value = WithoutColours(property->value);
  }
}

}  // namespace

void ReplyQueues::Append(std::unique_ptr<Message> message, std::uint64_t jobId, bool keepAll,
                         const std::function<void()>& whenThere) {
  // A text holds a tenth of what its tree does, and a host may be slow to fetch it.
  StripColours(*message);
  auto text = message->ToText();
  text.shrink_to_fit();
  message.reset();
  std::lock_guard lock(replyMutex_);
  auto& queue = queues_[jobId];
  if (!keepAll && queue.size() == 1) queue.clear();
  queue.push_back(std::move(text));
  whenThere();
}

bool ReplyQueues::Has(std::uint64_t jobId) const {
  std::lock_guard lock(replyMutex_);
  return queues_.contains(jobId);
}

StatusCode ReplyQueues::Receive(std::uint64_t jobId, char* buffer, std::uint32_t* bufferLength) {
  if (bufferLength == nullptr) return Status::InvalidArguments;
  std::lock_guard lock(replyMutex_);
  const auto found = queues_.find(jobId);
  if (found == queues_.end()) return Status::NoMessage;
  const auto& text = found->second.front();
  const auto needed = static_cast<std::uint32_t>(text.size() + 1);
  const auto available = std::exchange(*bufferLength, needed);
  if (available < needed) return Status::BufferTooSmall;
  if (buffer == nullptr) return Status::InvalidArguments;
  std::memcpy(buffer, text.c_str(), needed);
  found->second.pop_front();
  if (found->second.empty()) queues_.erase(found);
  return Status::Completed;
}

void ReplyQueues::Clear() {
  std::lock_guard lock(replyMutex_);
  queues_.clear();
}

}  // namespace Morvu
