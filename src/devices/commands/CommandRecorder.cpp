#include "devices/commands/CommandRecorder.h"

#include <algorithm>

#include "devices/properties/PropertyList.h"
#include "frame/Files.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

// "11-25-2026_19-53-01-00", always as long; local time. No file system minds its characters.
std::string DateAndTime() { return FormatLocalTime("%m-%d-%Y_%H-%M-%S-00"); }

std::string Header(std::string_view begin, std::string_view end) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Message name=\"Recording\" Begin=\"" +
         std::string(begin) + "\" End=\"" + std::string(end) + "\"><List name=\"Commands\">\n";
}

// Commands whose data hold a password or a key (ACS-3, 7.39 to 7.44 and 7.58; SPC-4, 6.38).
bool HoldsSecrets(const Command& command) {
  constexpr std::uint8_t kAta[] = {0x5E, 0x5F, 0xF1, 0xF2, 0xF4, 0xF6};
  constexpr std::uint8_t kSecurityProtocolOut = 0xB5;
  if ((command.flags & kWrite) == 0 || command.record.empty()) return false;
  if (command.record.size() == sizeof(TaskFile)) {
    return std::ranges::count(kAta, command.record[TaskFileByte::Command]) > 0;
  }
  return command.record[0] == kSecurityProtocolOut;
}

}  // namespace

std::unique_ptr<CommandRecorder> CommandRecorder::Create(const std::string& path, RecordedData data,
                                                         std::uint64_t mostBytes) {
  constexpr int kMostNumbers = 10'000;
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
  const auto wished = path.empty() ? "recording_" + DateAndTime() + ".xml" : path;
  for (int number = 0; number < kMostNumbers; ++number) {
    const auto name = number == 0 ? wished : wished + "." + std::to_string(number);
    auto file = OpenFile(name, kFlags, 0600);
    if (file.IsOpen()) {
      return std::unique_ptr<CommandRecorder>(
          new CommandRecorder(std::move(file), name, data, mostBytes));
    }
    if (errno != EEXIST) break;
  }
  return nullptr;
}

// The header is as long at the end, when it gets its second date.
CommandRecorder::CommandRecorder(FileHandle file, std::string path, RecordedData data,
                                 std::uint64_t mostBytes)
    : file_(std::move(file)),
      path_(std::move(path)),
      data_(data),
      mostBytes_(mostBytes),
      begin_(DateAndTime()) {
  Write(Header(begin_, std::string(begin_.size(), '-')));
}

void CommandRecorder::Write(std::string_view text) {
  if (isFailed_) return;
  isFailed_ = !WriteWhole(file_, {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()},
                          written_);
  if (isFailed_) {
    MORVU_LOG(kLogError, "Write", "The recording " + path_ + " could not be written.");
  } else {
    written_ += text.size();
  }
}

void CommandRecorder::Append(const XmlMessaging::Object& object) {
  const auto text = object.ToText();
  const auto begin = text.find("<Object");
  if (begin != text.npos) Write(std::string_view(text).substr(begin));
  Write("\n");
}

void CommandRecorder::Record(std::string_view commandSet, const Command& command, ByteView reply,
                             bool isGood) {
  if (isFull_) return;
  XmlMessaging::Object object;
  if (written_ >= mostBytes_) {
    isFull_ = true;
    object.SetAttribute("name", "Note");
    object.AddProperty("text", "The recording is full: commands from here on are not in it.");
    return Append(object);
  }
  constexpr std::size_t kBlock = 512;
  const bool isRead = (command.flags & kRead) != 0;
  const bool isMasked = data_ == RecordedData::WithoutSecrets && HoldsSecrets(command);
  const bool hasData = !isMasked && (!isRead || isGood) && (command.flags & kNoData) == 0;
  object.SetAttribute("name", "Command");
  object.SetAttribute("CommandSet", commandSet);
  object.AddProperty("tf", ToHex(command.record));
  object.AddProperty("tf_len", std::to_string(command.record.size()));
  object.AddProperty("ptf", ToHex(reply));
  object.AddProperty("ptf_len", std::to_string(reply.size()));
  object.AddProperty("direction", std::to_string(command.flags));
  auto& data = object.AddProperty("data", hasData ? ToHex(command.data) : std::string());
  if (isMasked) data.SetAttribute("masked", BoolText(true));
  object.AddProperty("block_count", std::to_string(command.data.size() / kBlock));
  Append(object);
}

bool CommandRecorder::Finish(const PropertyList& properties,
                             const std::vector<std::string>& commandSets) {
  Write("</List>\n");
  XmlMessaging::Object device;
  device.SetAttribute("name", "Device");
  for (const auto& property : properties) {
    device.AddProperty(property.GetName(), property.ToText());
  }
  for (const auto& name : commandSets) device.AddProperty("CommandSet", name);
  Append(device);
  Write("</Message>\n");
  written_ = 0;
  Write(Header(begin_, DateAndTime()));
  return !isFailed_;
}

}  // namespace Morvu::DeviceManagement
