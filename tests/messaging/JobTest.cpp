// Jobs and their manager, by a clock that the test sets.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <condition_variable>
#include <locale>
#include <set>
#include <thread>

#include "frame/status/NvmeStatus.h"
#include "frame/status/Requests.h"
#include "messaging/XmlMessaging.h"
#include "messaging/jobs/Job.h"
#include "messaging/jobs/JobManager.h"
#include "messaging/jobs/MorvuJob.h"

namespace Morvu {
namespace {

using namespace std::chrono_literals;
using XmlMessaging::Message;
using XmlMessaging::Object;

std::atomic<JobTime> theTime;

void Advance(JobDuration time) { theTime = theTime.load() + time; }

std::string TextOf(const Object& object, std::string_view name) {
  for (const auto& property : object.properties) {
    if (property->GetAttribute("name") == name) return property->value;
  }
  return "none";
}

// ---- Time forms ----

JobTime At(std::int64_t seconds, std::int64_t microseconds) {
  return JobTime(std::chrono::seconds(seconds) + JobDuration(microseconds));
}

TEST(JobTimes, HaveTheFormsOfTheWire) {
  EXPECT_EQ("20150102030405.123456+000", ToTimeText(At(1420167845, 123456)));
  EXPECT_EQ("19700101000000.000000+000", ToTimeText(At(0, 0)));
  EXPECT_EQ("20380119031408.000007+000", ToTimeText(At(2147483648, 7)));
  EXPECT_EQ("not-a-date-time", ToTimeText({}));
}

TEST(JobTimes, WriteDurationsWithAllTheirHours) {
  EXPECT_EQ("00000000000500.000000+000", ToDurationText(5min));
  EXPECT_EQ("00000000000000.250000+000", ToDurationText(250ms));
  EXPECT_EQ("00000000235959.999999+000", ToDurationText(24h - 1us));
  EXPECT_EQ("000000001000000.000000+000", ToDurationText(100h));
  EXPECT_EQ("00000000000000.000000+000", ToDurationText(-1s));
  EXPECT_EQ("not-a-date-time", ToDurationText({}));
}

struct CommaPoint : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(JobTimes, DoNotFollowTheHostsLocale) {
  const std::locale old = std::locale::global(std::locale(std::locale(), new CommaPoint));
  const auto text = ToDurationText(123456789us);
  std::locale::global(old);
  EXPECT_EQ("00000000000203.456789+000", text);
}

// ---- Jobs ----

// What the jobs of a test post, and a gate at which handlers can wait.
struct Post {
  std::unique_ptr<Message> message;
  JobId id;
  bool keepAll;
};
std::mutex postMutex;
std::vector<Post> posts;
std::set<JobId> waitingIds;
std::function<void()> beforePost;
std::atomic<bool> exitsInPost = false;  // as a callback of the host may

class Jobs : public ::testing::Test {
 protected:
  Jobs() {
    theTime = At(1'000'000, 0);
    posts.clear();
    beforePost = nullptr;
    waitingIds.clear();
  }

  static JobEnvironment Environment() {
    JobEnvironment environment;
    environment.post = [](std::unique_ptr<Message> message, JobId id, bool keepAll,
                          const std::function<void()>& whenThere) {
      {
        std::lock_guard lock(postMutex);
        if (beforePost) beforePost();
        posts.push_back({std::move(message), id, keepAll});
        whenThere();
      }
      if (exitsInPost) pthread_exit(nullptr);
    };
    environment.hasMessages = [](JobId id) { return waitingIds.contains(id); };
    environment.now = [] { return theTime.load(); };
    return environment;
  }

  static JobId Run(JobManager& manager, SubjectHandler handler,
                   std::string_view request = "<Message subject='S'/>", bool synchronous = true) {
    const auto created = manager.CreateJob(Message::Parse(request), handler, synchronous);
    EXPECT_EQ(Status::Completed, created.status);
    return created.id;
  }

  static std::vector<std::string> Listed(const JobManager& manager) {
    std::vector<std::string> names;
    const auto list = manager.BuildJobList();
    for (const auto& object : list->objects) {
      names.push_back(TextOf(*object, "Name"));
    }
    return names;
  }

  // The job's object in the last message.
  static const Object& LastObject() { return *posts.back().message->objects.back(); }
};

std::unique_ptr<Message> Succeed(JobContext& context) {
  auto reply = std::make_unique<Message>();
  reply->objects.push_back(std::make_unique<Object>());
  context.Report(100, FeatureState::Finished, Status::Completed);
  return reply;
}

TEST_F(Jobs, PostTheirReplyWithTheirObjectLast) {
  JobManager manager(Environment());
  const auto id = Run(manager, &Succeed, "<Message cimClass='S'/>");
  ASSERT_EQ(1u, posts.size());
  EXPECT_EQ(id, posts[0].id);
  EXPECT_FALSE(posts[0].keepAll);
  EXPECT_EQ(std::to_string(id), posts[0].message->GetAttribute("identifier"));
  ASSERT_EQ(2u, posts[0].message->objects.size());
  const std::pair<const char*, std::string> kTold[] = {
      {"InstanceID", std::to_string(id)},
      {"Name", "S"},
      {"PercentComplete", "100"},
      {"JobState", "7"},
      {"ErrorCode", "0"},
      {"StartTime", "19700112134640.000000+000"},
      {"ElapsedTime", "00000000000000.000000+000"},
      {"TimeBeforeRemoval", "00000000000500.000000+000"},
  };
  EXPECT_EQ(std::size(kTold), LastObject().properties.size());
  for (const auto& [name, text] : kTold) EXPECT_EQ(text, TextOf(LastObject(), name)) << name;
}

std::unique_ptr<Message> SayNothing(JobContext&) { return nullptr; }

TEST_F(Jobs, PostNothingWithoutAReply) {
  JobManager manager(Environment());
  Run(manager, &SayNothing);
  EXPECT_TRUE(posts.empty());
  EXPECT_EQ("74", TextOf(*manager.BuildJobList()->objects.at(0), "ErrorCode"));
  EXPECT_EQ("4", TextOf(*manager.BuildJobList()->objects.at(0), "JobState"));
}

std::unique_ptr<Message> RunOutOfMemory(JobContext&) { throw std::bad_alloc(); }

TEST_F(Jobs, EndInAnErrorWhenTheirHandlerThrows) {
  JobManager manager(Environment());
  Run(manager, &RunOutOfMemory);
  ASSERT_EQ(1u, posts.size());
  EXPECT_EQ("-12", TextOf(LastObject(), "ErrorCode"));
  EXPECT_EQ("7", TextOf(LastObject(), "JobState"));
}

std::unique_ptr<Message> Progress(JobContext& context) {
  context.reporter->SetPercent(10);
  context.services->SetNotifyProgress(true);
  context.services->SetKeepAll(true);
  context.reporter->SetPercent(20);
  Advance(3s);
  context.reporter->SetDetail("5 MB/s");
  context.reporter->SetPercent(50);
  context.Report(100, FeatureState::Failed, Status::Canceled);
  return std::make_unique<Message>();
}

TEST_F(Jobs, TellTheirProgressWhenAskedTo) {
  JobManager manager(Environment());
  Run(manager, &Progress);
  std::vector<std::string> told;
  for (const auto& post : posts) {
    const auto& object = *post.message->objects.back();
    EXPECT_TRUE(post.keepAll);
    told.push_back(TextOf(object, "PercentComplete") + " " + TextOf(object, "JobState") + " " +
                   TextOf(object, "ErrorCode") + " " + TextOf(object, "ElapsedTime"));
  }
  // The end is told by the reply alone: a host that reads state 7 has the result.
  EXPECT_EQ((std::vector<std::string>{"20 4 74 00000000000000.000000+000",
                                      "50 4 74 00000000000003.000000+000",
                                      "100 7 2 00000000000003.000000+000"}),
            told);
  EXPECT_EQ("MorvuJob", posts[0].message->GetAttribute("cimClass"));
  EXPECT_EQ("", posts[2].message->GetAttribute("cimClass"));
  EXPECT_EQ("", posts[0].message->GetAttribute("detail"));
  EXPECT_EQ("5 MB/s", posts[1].message->GetAttribute("detail"));
  EXPECT_EQ("", posts[2].message->GetAttribute("detail"));
}

// What the list shows of its only job: state, code, percent.
std::vector<std::string> shown;
void Look(const JobManager& manager) {
  const auto list = manager.BuildJobList();
  const auto& job = *list->objects.at(0);
  shown.push_back(TextOf(job, "JobState") + " " + TextOf(job, "ErrorCode") + " " +
                  TextOf(job, "PercentComplete"));
}

// Told as by a family that ends each of its drives, and as by one that fails.
std::unique_ptr<Message> ReportTwice(JobContext& context) {
  context.services->SetNotifyProgress(true);
  Look(*context.manager);
  context.Report(50, FeatureState::Finished, Status::Completed);
  Look(*context.manager);
  context.Report(100, FeatureState::Failed, Status::Canceled);
  Look(*context.manager);
  return context.request->GetAttribute("silent").empty() ? std::make_unique<Message>() : nullptr;
}

TEST_F(Jobs, ShowTheirResultWithTheirReplyAndNotBefore) {
  for (const auto* silent : {"", "True"}) {
    JobManager manager(Environment());
    shown.clear();
    beforePost = [&] { Look(manager); };
    Run(manager, &ReportTwice, "<Message subject='S' silent='" + std::string(silent) + "'/>");
    Look(manager);
    EXPECT_EQ((std::vector<std::string>{"4 74 0", "4 74 50", "4 74 100", "4 74 100", "7 2 100"}),
              shown);
    EXPECT_EQ("7", TextOf(LastObject(), "JobState"));
    EXPECT_EQ("2", TextOf(LastObject(), "ErrorCode"));
    // Without a reply the progress tells the end.
    EXPECT_EQ(*silent == '\0' ? "" : "MorvuJob", posts.back().message->GetAttribute("cimClass"));
  }
}

std::unique_ptr<Message> Leave(JobContext& context) {
  context.services->SetTimeBeforeRemoval(JobDuration::zero());
  return nullptr;
}

std::unique_ptr<Message> Hide(JobContext& context) {
  context.services->SetHidden(true);
  return nullptr;
}

TEST_F(Jobs, StayForTheirTimeAfterTheirEnd) {
  JobManager manager(Environment());
  Run(manager, &Succeed, "<Message subject='five minutes'/>");
  Advance(5min - 1us);
  Run(manager, &Hide);
  manager.Sweep();
  EXPECT_EQ(std::vector<std::string>{"five minutes"}, Listed(manager));
  Advance(1us);
  manager.Sweep();
  EXPECT_TRUE(Listed(manager).empty());
  Run(manager, &Leave, "<Message subject='no time'/>");
  manager.Sweep();
  EXPECT_TRUE(Listed(manager).empty());
}

// ---- Jobs that run while the test looks ----

class Gate {
 public:
  void Open() {
    std::lock_guard lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
  }
  void Wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isOpen_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isOpen_ = false;
};

std::unique_ptr<Gate> entered, go;

constexpr auto kPatience = 60s;

std::unique_ptr<Message> WaitForCancel(JobContext& context) {
  context.services->SetTimeBeforeRemoval(JobDuration::zero());
  entered->Open();
  // A cancel that is lost must fail the test and not hold it for ever.
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!context.reporter->IsCancelRequested() && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
  const bool isCanceled = context.reporter->IsCancelRequested();
  context.Report(50, FeatureState::Failed, isCanceled ? Status::Canceled : Status::NotRun);
  return std::make_unique<Message>();
}

TEST_F(Jobs, StayWhileTheyRunAndEndWhenCanceled) {
  JobManager manager(Environment());
  entered = std::make_unique<Gate>();
  const auto id = Run(manager, &WaitForCancel, "<Message subject='W'/>", false);
  entered->Wait();
  Advance(24h);
  manager.Sweep();
  manager.CancelJob(id + 1);
  const auto list = manager.BuildJobList();
  ASSERT_EQ(1u, list->objects.size());
  EXPECT_EQ("4", TextOf(*list->objects[0], "JobState"));
  EXPECT_EQ("00000000240000.000000+000", TextOf(*list->objects[0], "ElapsedTime"));
  Run(manager, &HandleMorvuJob,
      "<Message subject='MorvuJob' type='cancel' identifier='" + std::to_string(id) + "'/>");
  manager.Stop();
  ASSERT_EQ(1u, posts.size());
  EXPECT_EQ("2", TextOf(LastObject(), "ErrorCode"));
}

TEST_F(Jobs, AreCanceledAndAwaitedWhenTheManagerGoes) {
  entered = std::make_unique<Gate>();
  {
    JobManager manager(Environment());
    for (int i = 0; i < 3; ++i) Run(manager, &WaitForCancel, "<Message subject='W'/>", false);
    entered->Wait();
  }
  ASSERT_EQ(3u, posts.size());
  for (const auto& post : posts) EXPECT_EQ("2", TextOf(*post.message->objects.back(), "ErrorCode"));
}

template <const StatusCode& Code>
std::unique_ptr<Message> EndWith(JobContext& context) {
  context.Report(100, FeatureState::Failed, Code);
  return std::make_unique<Message>();
}
const StatusCode kInvalidField = FromNvmeStatus(0x002);

// What the number alone would tell falsely is told in words beside it.
TEST_F(Jobs, TellAnNvmeStatusInWords) {
  JobManager manager(Environment());
  Run(manager, &EndWith<kInvalidField>);
  EXPECT_EQ("2", TextOf(LastObject(), "ErrorCode"));
  EXPECT_EQ("NVMe status 0x002 (Invalid Field in Command)", TextOf(LastObject(), "NVMeStatus"));
  Run(manager, &EndWith<Status::Canceled>);
  EXPECT_EQ("2", TextOf(LastObject(), "ErrorCode"));
  EXPECT_EQ("none", TextOf(LastObject(), "NVMeStatus"));
}

std::atomic<bool> takesSignals = true;

std::unique_ptr<Message> LookAtSignals(JobContext&) {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  takesSignals = sigismember(&mask, SIGINT) == 0 || sigismember(&mask, SIGALRM) == 0;
  return std::make_unique<Message>();
}

// A host's signals are for the host's threads, which keep theirs.
TEST_F(Jobs, TakeNoSignalsOnTheirThreads) {
  JobManager manager(Environment());
  Run(manager, &LookAtSignals, "<Message subject='S'/>", false);
  manager.Stop();
  EXPECT_FALSE(takesSignals);
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_EQ(0, sigismember(&mask, SIGINT));
}

TEST_F(Jobs, EndInAnErrorWhenACallbackEndsTheirThread) {
  JobManager manager(Environment());
  exitsInPost = true;
  Run(manager, &Progress, "<Message subject='P'/>", false);
  const auto eventually = [](const auto& condition) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!condition() && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    return condition();
  };
  EXPECT_TRUE(eventually(
      [&] { return TextOf(*manager.BuildJobList()->objects.at(0), "JobState") == "7"; }));
  exitsInPost = false;
  EXPECT_EQ("-125", TextOf(*manager.BuildJobList()->objects.at(0), "ErrorCode"));
  EXPECT_EQ(1u, posts.size());
  Advance(5min);
  EXPECT_TRUE(eventually([&] {
    manager.Sweep();
    return Listed(manager).empty();
  }));
}

TEST_F(Jobs, AreNotTakenOnAfterStop) {
  JobManager manager(Environment());
  manager.Stop();
  const auto created = manager.CreateJob(Message::Parse("<Message subject='S'/>"), &Succeed, true);
  EXPECT_EQ(Status::NotInitialized, created.status);
  EXPECT_EQ(0u, created.id);
  EXPECT_TRUE(posts.empty());
}

TEST_F(Jobs, TakeNoIdentifierWhoseMessagesStillWait) {
  JobManager manager(Environment());
  for (int i = 0; i < 200; ++i) {
    const auto id = Run(manager, &Leave);
    EXPECT_TRUE(waitingIds.insert(id).second) << "twice: " << id;
    manager.Sweep();  // frees the job's memory, which a next one may get
  }
}

TEST_F(Jobs, HaveNoStartTimeWhileTheyScan) {
  entered = std::make_unique<Gate>();
  go = std::make_unique<Gate>();
  struct : NoJobServices {
    void Rescan(const Message&) override {
      entered->Open();
      go->Wait();
    }
  } services;
  JobContext context;
  context.services = &services;
  const auto environment = Environment();
  Job job(context, &Succeed, environment);
  job.Accept(Message::Parse("<Message subject='S' scan='True'/>"));
  ASSERT_TRUE(job.StartThread());
  entered->Wait();
  const auto object = job.ToXmlObject();
  EXPECT_EQ("not-a-date-time", TextOf(*object, "StartTime"));
  EXPECT_EQ("not-a-date-time", TextOf(*object, "ElapsedTime"));
  EXPECT_EQ("74", TextOf(*object, "ErrorCode"));
  go->Open();
  job.Join();
  EXPECT_EQ("19700112134640.000000+000", TextOf(LastObject(), "StartTime"));
}

}  // namespace
}  // namespace Morvu
