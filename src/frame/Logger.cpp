#include "frame/Logger.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <utility>

#include "frame/FileHandle.h"
#include "frame/Files.h"
#include "frame/Platform.h"
#include "frame/status/Files.h"

namespace Morvu {
namespace {

constexpr std::string_view kLevelNames[] = {"", "ERROR  ", "WARNING", "INFO   ", "DEBUG  "};

// Of the process. Never destroyed: jobs that outlive main still log.
struct CurrentLog {
  std::mutex mutex;  // guards the pointer; whoever writes a line shares the logger
  std::shared_ptr<Logger> logger;
};
CurrentLog& TheLog() {
  static auto& log = *new CurrentLog;
  return log;
}
std::atomic<bool> hasLogger = false;
std::atomic<std::uint32_t> logLevel = 0;

// The open file of a log.
class LogFile {
 public:
  explicit LogFile(const std::string& path) {
    if (!TakesText(path)) return;
    // Not blocking: a pipe without a reader is refused, a full one loses lines.
    auto file = OpenFile(path, O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY, 0666);
    struct stat64 status {};
    if (!file.IsOpen() || fstat64(file.Get(), &status) != 0) return;
    isPipe_ = S_ISFIFO(status.st_mode);
    isRegular_ = S_ISREG(status.st_mode);
    file_ = std::move(file);
  }

  bool IsOpen() const { return file_.IsOpen(); }

  bool Empty() const { return !isRegular_ || ftruncate(file_.Get(), 0) == 0; }

  // In one call, so that the lines of several threads and processes stay apart.
  void Append(std::string_view line) const {
    sigset_t brokenPipe, old;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    if (isPipe_) pthread_sigmask(SIG_BLOCK, &brokenPipe, &old);
    ssize_t written = 0;
    do {
      written = write(file_.Get(), line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    if (!isPipe_) return;
    // A reader that went away meanwhile must not end the host.
    constexpr timespec kAtOnce{};
    if (written < 0 && errno == EPIPE) sigtimedwait(&brokenPipe, nullptr, &kAtOnce);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
  }

 private:
  FileHandle file_;
  bool isPipe_ = false;
  bool isRegular_ = false;
};

void Replace(std::shared_ptr<Logger> logger) {
  auto& log = TheLog();
  std::lock_guard lock(log.mutex);
  hasLogger = logger != nullptr;
  log.logger.swap(logger);
}

std::shared_ptr<Logger> GetLogger() {
  auto& log = TheLog();
  std::lock_guard lock(log.mutex);
  return log.logger;
}

}  // namespace

std::unique_ptr<Logger> Logger::Open(const std::string& path, bool restart) {
  const LogFile file(path);
  if (!file.IsOpen() || (restart && !file.Empty())) return nullptr;
  return std::make_unique<Logger>(path);
}

void Logger::Write(const LogRecord& record) {
  const LogFile file(path_);
  if (!file.IsOpen()) return;
  file.Append("[" + record.time + "] " + record.levelName + ": " + record.file + "(" +
              std::to_string(record.line) + "): " + record.function + ": " + record.message + "\n");
}

void SetCurrentLogger(Logger* logger) {
  Replace(logger == nullptr ? nullptr : std::shared_ptr<Logger>(logger, [](Logger*) {}));
}

void SetLogLevel(std::uint32_t level) { logLevel = level; }

bool IsLogged(std::uint32_t level) {
  return hasLogger.load(std::memory_order_relaxed) &&
         level <= logLevel.load(std::memory_order_relaxed);
}

void Log(std::string_view file, std::string_view function, std::int32_t line, std::uint32_t level,
         std::string_view message) {
  if (!IsLogged(level)) return;
  const auto logger = GetLogger();
  if (!logger) return;
  LogRecord record;
  record.time = FormatLocalTime("%H:%M:%S:00");
  record.file = file;
  record.function = function;
  record.line = line;
  if (level < std::size(kLevelNames)) record.levelName = kLevelNames[level];
  record.message = message;
  logger->Write(record);
}

StatusCode EnableLog(std::string_view path, std::uint32_t level, bool restart) {
  auto logger = Logger::Open(std::string(path), restart);
  if (!logger) return Status::FileNotOpened;
  SetLogLevel(std::min<std::uint32_t>(level, kLogAll));
  Replace(std::move(logger));
  return Status::Completed;
}

void DisableLog() { Replace(nullptr); }

}  // namespace Morvu
