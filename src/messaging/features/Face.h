// Face: whoever asked for an operation, as the operation sees it: a person at a prompt, or
// a host by a message. Families speak to a Face and know neither.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "frame/Bytes.h"
#include "frame/StatusCode.h"
#include "messaging/ProgressReporter.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
}
class ResultTable;

enum class Answer {
  Yes,
  No,
  Unasked,  // there is nobody to ask: a host asks its user before it sends the message
};

class Face {
 public:
  virtual ~Face() = default;

  // Tells a person; a host hears the result alone.
  virtual void Say(std::string_view line = {}) = 0;
  // Tells a person and a host what the code alone would hide, such as data that are still
  // there. A tool that warned does not end with 0.
  virtual void Warn(std::string_view text) = 0;
  virtual void Show(const ResultTable& table) = 0;
  // No person reads what is shown, but a program.
  virtual bool IsForPrograms() const { return false; }
  // What a run that ended well has found, as bits (HealthFinding): a tool ends with them.
  virtual void NoteFindings(std::uint32_t) {}
  // A figure of the run, for a host: a property of its reply. A person reads it in a line.
  virtual void Report(std::string_view, std::uint64_t) {}
  // From here to the outcome all is told of this drive, one of several.
  virtual void Turn(const DeviceManagement::Device&) {}
  // The outcome of one drive of several, when it is there. Who tells outcomes has told the
  // end of the run as well.
  virtual void Tell(StatusCode outcome) = 0;
  // Saves the table as CSV, and tells a person whether it could be saved.
  [[nodiscard]] virtual bool Save(const ResultTable& table, const std::string& path) = 0;
  // The same of bytes as they are.
  [[nodiscard]] virtual bool SaveBinary(ByteView bytes, const std::string& path) = 0;

  // Makes the text the whole of a file that programs read at any time; of a failure a person is
  // told.
  [[nodiscard]] virtual bool Publish(std::string_view, const std::string&) { return false; }

  virtual Answer Ask(std::string_view warning, std::string_view question) = 0;
  // Every question was answered with yes beforehand.
  virtual bool IsForced() const = 0;
  // Tells what begins: a change of the drive that must not be cut off. From here to the
  // end of the run a signal that would end the tool is a request to stop.
  virtual void Begin(std::string_view line) = 0;

  virtual ProgressReporter& GetReporter() = 0;
};

}  // namespace Morvu
