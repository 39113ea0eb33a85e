// The debug log: one text file, off until a host turns it on.
#pragma once

#include <cstdint>
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
  bool bare = false;  // without the source position
  std::string message;
};

// Writes lines to one file, which is open only while a line is written, so that a
// crash loses nothing. A line that cannot be written is lost without report.
class Logger {
 public:
  // `restart` empties the file at once.
  Logger(std::string path, bool restart);
  virtual ~Logger();

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

// A line with the level name "TEST" and no source position.
void LogTest(Logger& logger, std::string_view message);

// The host's log: replaces the one logger. 9, with the old one going on, when the
// path cannot be used: its directory must exist, and it must name a file.
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
