// The messages that wait for the host, job by job.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "frame/StatusCode.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {

// Holds the texts of the messages in it. Any thread may call any operation.
class ReplyQueues {
 public:
  // Without `keepAll` a single waiting message gives way to the new one. `whenThere` is called
  // under the lock, so that no Receive sees the message without what it does.
  void Append(
      std::unique_ptr<XmlMessaging::Message> message, std::uint64_t jobId, bool keepAll,
      const std::function<void()>& whenThere = [] {});
  // Whether messages of the job wait.
  bool Has(std::uint64_t jobId) const;
  // Copies the front message's text, without colour mark-up and with a NUL behind it,
  // to `buffer` and takes it off the queue: the contract of ReceiveXMLMessage.
  StatusCode Receive(std::uint64_t jobId, char* buffer, std::uint32_t* bufferLength);
  void Clear();

 private:
  mutable std::mutex replyMutex_;  // guards the queues; a queue there is never empty
  std::map<std::uint64_t, std::list<std::string>> queues_;
};

}  // namespace Morvu
