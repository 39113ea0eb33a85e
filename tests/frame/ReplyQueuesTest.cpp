#include <gtest/gtest.h>
#include <malloc.h>

#include <chrono>
#include <future>

#include "frame/border/ReplyQueues.h"

namespace Morvu {
namespace {

using XmlMessaging::Message;

std::string Take(ReplyQueues& queues, std::uint64_t job) {
  std::uint32_t size = 0;
  if (queues.Receive(job, nullptr, &size) != Status::BufferTooSmall) return "none";
  std::string text(size, '\0');
  EXPECT_EQ(Status::Completed, queues.Receive(job, text.data(), &size));
  text.resize(size - 1);
  return text.substr(text.find('\n') + 1);
}

void Put(ReplyQueues& queues, std::uint64_t job, std::string_view text, bool keepAll = false) {
  queues.Append(Message::Parse(text), job, keepAll);
}

TEST(ReplyQueues, KeepTheNewestOrAll) {
  ReplyQueues queues;
  Put(queues, 1, "<Message a='1'/>");
  Put(queues, 1, "<Message a='2'/>");
  Put(queues, 2, "<Message a='3'/>", true);
  Put(queues, 2, "<Message a='4'/>", true);
  EXPECT_EQ("<Message a=\"2\"/>", Take(queues, 1));
  EXPECT_EQ("none", Take(queues, 1));
  EXPECT_EQ("<Message a=\"3\"/>", Take(queues, 2));
  EXPECT_EQ("<Message a=\"4\"/>", Take(queues, 2));
}

TEST(ReplyQueues, DropNoMoreThanASingleMessage) {
  ReplyQueues queues;
  Put(queues, 1, "<Message a='1'/>", true);
  Put(queues, 1, "<Message a='2'/>", true);
  Put(queues, 1, "<Message a='3'/>");
  EXPECT_EQ("<Message a=\"1\"/>", Take(queues, 1));
  EXPECT_TRUE(queues.Has(1));
  queues.Clear();
  EXPECT_FALSE(queues.Has(1));
}

TEST(ReplyQueues, DeliverTextsWithoutColours) {
  ReplyQueues queues;
  Put(queues, 1,
      "<Message a='&lt;c:RED&gt;x&lt;/c&gt;'><Object><Property b='1 &lt; 2'>"
      "a&lt;c:RED&gt;b&lt;/c&gt;c</Property></Object></Message>");
  EXPECT_EQ("<Message a=\"x\"><Object><Property b=\"1 &lt; 2\">abc</Property></Object></Message>",
            Take(queues, 1));
}

// A host may leave thousands unfetched: a text waits, and not the tree that it came from.
TEST(ReplyQueues, HoldNoMoreThanTheText) {
  constexpr std::size_t kJobs = 20;
  auto message = std::make_unique<Message>();
  for (int i = 0; i < 200; ++i) {
    auto property = std::make_unique<XmlMessaging::Property>("name", "value");
    property->SetAttribute("type", "string");
    message->properties.push_back(std::move(property));
  }
  const auto size = message->ToText().size();
  ReplyQueues queues;
  const auto before = mallinfo2().uordblks;
  for (std::size_t job = 0; job < kJobs; ++job) {
    auto clone = message->Clone();
    queues.Append(std::unique_ptr<Message>(static_cast<Message*>(clone.release())), job, false);
  }
  EXPECT_LT(mallinfo2().uordblks - before, kJobs * (size + size / 10));
}

// Who learns of the reply by what `whenThere` does finds it.
TEST(ReplyQueues, AreOpenOnlyWhenAllOfAMessageIsDone) {
  ReplyQueues queues;
  std::future<StatusCode> received;
  int calls = 0;
  queues.Append(Message::Parse("<Message/>"), 1, false, [&] {
    ++calls;
    received = std::async(std::launch::async, [&] {
      char buffer[200];
      std::uint32_t length = sizeof buffer;
      return queues.Receive(1, buffer, &length);
    });
    EXPECT_EQ(std::future_status::timeout, received.wait_for(std::chrono::milliseconds(100)));
  });
  EXPECT_EQ(1, calls);
  EXPECT_EQ(Status::Completed, received.get());
}

}  // namespace
}  // namespace Morvu
