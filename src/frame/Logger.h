// The debug log: one text file, off until a host turns it on.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "frame/StatusCode.h"

namespace Morvu {

enum LogLevel : std::uint32_t {
  kLogError = 1,
  kLogWarning = 2,
  kLogInfo = 3,
  kLogDebug = 4,
  kLogAll = 5,
};

// One line to write.
struct LogRecord {
  std::string time;
  std::string file;
  std::string function;
  std::int32_t line = 0;
  std::string levelName;
  std::string message;
};

// Writes lines to one file, which is open only while a line is written, so that a
// crash loses nothing. A line that cannot be written is lost without report. Any number
// of threads may write.
class Logger {
 public:
  // Null for what lines cannot be appended to: a folder, a disk, a pipe that nobody
  // reads; errno tells why. `restart` empties the file at once.
  static std::unique_ptr<Logger> Open(const std::string& path, bool restart);

  explicit Logger(std::string path) : path_(std::move(path)) {}
  virtual ~Logger() = default;

  virtual void Write(const LogRecord& record);

 private:
  std::string path_;
};

// The process-wide logger (not owned; null for none) and the highest level written.
void SetCurrentLogger(Logger* logger);
void SetLogLevel(std::uint32_t level);

// Whether a line of this level would be written. Costs two loads: test it before
// a costly text is built.
bool IsLogged(std::uint32_t level);

// Writes one line. `file` is the source file's base name, `function` a short
// operation name. Without a logger nothing happens.
void Log(std::string_view file, std::string_view function, std::int32_t line, std::uint32_t level,
         std::string_view message);

// The host's log: replaces the one logger, whatever threads log meanwhile. 9, with the
// old one going on, when the path cannot be written; errno tells why.
StatusCode EnableLog(std::string_view path, std::uint32_t level, bool restart);
void DisableLog();

// "src/devices/Adapter_LSI.linux.cpp" -> "Adapter_LSI".
constexpr std::string_view SourceBaseName(std::string_view path) {
  if (const auto slash = path.rfind('/'); slash != path.npos) path.remove_prefix(slash + 1);
  return path.substr(0, path.find('.'));
}

}  // namespace Morvu

// Logs under this source file's name. The message is evaluated only when it is written.
#define MORVU_LOG(level, function, message)                                                  \
  do {                                                                                       \
    if (::Morvu::IsLogged(level)) {                                                          \
      ::Morvu::Log(::Morvu::SourceBaseName(__FILE__), function, __LINE__, level, (message)); \
    }                                                                                        \
  } while (false)
