// Which subjects a host can address, and who answers each.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "messaging/XmlMessaging.h"
#include "messaging/features/JobContext.h"

namespace Morvu {

class SubjectMap {
 public:
  // Null for a subject that the library does not have.
  SubjectHandler Find(std::string_view subject) const;
  void Set(std::string_view subject, SubjectHandler handler);
  std::size_t GetSize() const { return handlers_.size(); }

 private:
  std::map<std::string, SubjectHandler, std::less<>> handlers_;
};

// Fills the map with every subject, and describes the classes behind them.
std::unique_ptr<XmlMessaging::Message> BuildSupportedFunctionality(SubjectMap& subjects);

}  // namespace Morvu
