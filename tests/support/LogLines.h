// What is logged while this stands. Any thread may log; the test looks when none does.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "frame/Logger.h"

namespace Morvu::Testing {

class LogLines : public Logger {
 public:
  LogLines() : Logger("") {
    SetLogLevel(kLogAll);
    SetCurrentLogger(this);
  }
  ~LogLines() override { SetCurrentLogger(nullptr); }

  void Write(const LogRecord& record) override {
    const std::lock_guard lock(mutex_);
    records.push_back(record);
    text_ += record.message + "\n";
    const auto level = record.levelName.substr(0, record.levelName.find(' '));
    levels_ += level + ' ' + record.message + '\n';
  }
  // Whether a line of this level, such as "ERROR", begins so.
  bool Has(std::string_view level, std::string_view beginning) const {
    return levels_.find(std::string(level).append(" ").append(beginning)) != levels_.npos;
  }
  const std::string& GetText() const { return text_; }

  std::vector<LogRecord> records;

 private:
  std::mutex mutex_;
  std::string text_;
  std::string levels_;  // the same, each line behind its level
};

}  // namespace Morvu::Testing
