// A drive's path that answers its commands with given bytes, one after the other.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string_view>

#include "devices/commands/CommandPath.h"
#include "frame/Bytes.h"

namespace Morvu::Fuzz {

using namespace DeviceManagement;

// Which of the first commands fail stands in the bits of `failures`, the first one's lowest.
class AnsweringPath : public CommandPath {
 public:
  AnsweringPath(std::string_view protocol, std::uint8_t failures, ByteView answers)
      : CommandPath("", protocol, "Fuzz", std::chrono::seconds(5)),
        failures_(failures),
        answers_(answers) {}

 protected:
  bool TestDevice() override { return true; }
  std::unique_ptr<CommandPath> Clone() const override { return nullptr; }
  Outcome SendOpcodeCore(const Command& command) override {
    const bool fails = (failures_ & 1) != 0;
    failures_ = static_cast<std::uint8_t>(failures_ >> 1);
    const auto given = answers_.first(std::min(command.data.size(), answers_.size()));
    std::ranges::copy(given, command.data.begin());
    answers_ = answers_.subspan(given.size());
    Outcome outcome;
    outcome.reached = fails ? Reached::Device : Reached::Done;
    return outcome;
  }

 private:
  std::uint8_t failures_;
  ByteView answers_;
};

inline void Require(bool holds) {
  if (!holds) __builtin_trap();
}

}  // namespace Morvu::Fuzz
