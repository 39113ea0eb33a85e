// What is logged while this stands.
#pragma once

#include <string>

#include "frame/Logger.h"

namespace Morvu::Testing {

class LogLines : public Logger {
 public:
  LogLines() : Logger("", false) {
    SetLogLevel(kLogAll);
    SetCurrentLogger(this);
  }
  ~LogLines() override { SetCurrentLogger(nullptr); }

  void Write(const LogRecord& record) override { text_ += record.message + "\n"; }
  const std::string& GetText() const { return text_; }

 private:
  std::string text_;
};

}  // namespace Morvu::Testing
