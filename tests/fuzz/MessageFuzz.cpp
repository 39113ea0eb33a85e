// Requests of any bytes: what parses is written, read again and cloned to the same text.
#include <cstddef>
#include <cstdint>

#include "frame/border/ReplyQueues.h"
#include "messaging/XmlMessaging.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using Morvu::XmlMessaging::Message;
  auto message = Message::Parse({reinterpret_cast<const char*>(data), size});
  if (!message) return 0;
  // The first writing may replace what XML cannot hold; from then on nothing changes.
  const auto text = message->ToText();
  const auto again = Message::Parse(text);
  if (!again) __builtin_trap();
  const auto clone = again->Clone();
  if (!clone) __builtin_trap();
  if (again->ToText() != dynamic_cast<Message&>(*clone).ToText()) __builtin_trap();
  (void)Morvu::XmlMessaging::RoutingName(*again);

  Morvu::ReplyQueues queues;
  queues.Append(std::move(message), 1, false);
  std::uint32_t length = 0;
  if (queues.Receive(1, nullptr, &length) != Morvu::Status::BufferTooSmall) __builtin_trap();
  std::string buffer(length, '*');
  if (queues.Receive(1, buffer.data(), &length) != 0 || buffer.back() != '\0') __builtin_trap();
  return 0;
}
