#include "frame/Logger.h"

#include <atomic>
#include <boost/filesystem.hpp>
#include <ctime>
#include <memory>

#include "frame/Files.h"
#include "frame/Text.h"
#include "frame/status/Files.h"

namespace Morvu {
namespace {

namespace fs = boost::filesystem;

constexpr std::string_view kLevelNames[] = {"", "ERROR  ", "WARNING", "INFO   ", "DEBUG  "};

std::atomic<Logger*> currentLogger = nullptr;
std::atomic<std::uint32_t> logLevel = 0;
std::unique_ptr<Logger> theLogger;

std::string LocalTime() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[16];
  return std::string(text, std::strftime(text, sizeof text, "%H:%M:%S:00", &local));
}

bool IsUsablePath(const fs::path& path) {
  const auto name = path.filename().string();
  if (name.empty() || name == "." || name == "..") return false;
  boost::system::error_code error;
  if (fs::is_directory(path, error)) return false;
  const auto parent = path.parent_path();
  return parent.empty() || fs::is_directory(parent, error);
}

}  // namespace

Logger::Logger(std::string path, bool restart) : path_(std::move(path)) {
  if (restart) (void)SaveBinary(path_, {}, false);
}

Logger::~Logger() = default;

void Logger::Write(const LogRecord& record) {
  std::string line = "[" + record.time + "] " + record.levelName + ": ";
  if (!record.bare) {
    line += record.file + "(" + std::to_string(record.line) + "): " + record.function + ": ";
  }
  (void)SaveFile(path_, line + record.message, true);
}

void SetCurrentLogger(Logger* logger) { currentLogger = logger; }

void SetLogLevel(std::uint32_t level) { logLevel = level; }

bool IsLogged(std::uint32_t level) {
  return currentLogger.load(std::memory_order_relaxed) != nullptr &&
         level <= logLevel.load(std::memory_order_relaxed);
}

void Log(std::string_view file, std::string_view function, std::int32_t line, std::uint32_t level,
         std::string_view message) {
  Logger* logger = currentLogger;
  if (logger == nullptr || level > logLevel) return;
  LogRecord record;
  record.time = LocalTime();
  record.file = file;
  record.function = function;
  record.line = line;
  if (level < std::size(kLevelNames)) record.levelName = kLevelNames[level];
  record.message = message;
  logger->Write(record);
}

void LogTest(Logger& logger, std::string_view message) {
  LogRecord record;
  record.time = LocalTime();
  record.levelName = "TEST";
  record.bare = true;
  record.message = message;
  logger.Write(record);
}

StatusCode EnableLog(std::string_view path, std::uint32_t level, bool restart) {
  if (!IsUsablePath(fs::path(path.begin(), path.end()))) return Status::FileNotOpened;
  DisableLog();
  theLogger = std::make_unique<Logger>(std::string(path), restart);
  SetLogLevel(std::min<std::uint32_t>(level, kLogAll));
  SetCurrentLogger(theLogger.get());
  return Status::Completed;
}

void DisableLog() {
  SetCurrentLogger(nullptr);
  theLogger.reset();
}

}  // namespace Morvu
