// Tables of what a drive answers: identify data of each kind, and each NVMe log page. The first
// byte says which, the second which of the commands fail; the rest is what they give.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "AnsweringPath.h"
#include "devices/commands/CommandSet.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "messaging/XmlMessaging.h"
#include "parsers/identify/IdentifyParser.h"
#include "parsers/nvme/NVMeLogParser.h"
#include "parsers/smart/SMARTAttributesParser.h"

namespace {

using namespace Morvu;
using namespace Morvu::DeviceManagement;
using Morvu::Fuzz::AnsweringPath;
using Morvu::Fuzz::Require;

using Maker = std::unique_ptr<Parser> (*)(Drive& drive);
template <typename Log>
std::unique_ptr<Parser> MakeLog(Drive& drive) {
  return std::make_unique<Log>(&drive);
}
template <IdentifyTarget Target>
std::unique_ptr<Parser> MakeIdentify(Drive& drive) {
  return std::make_unique<IdentifyParser>(&drive, NoReporter(), Target);
}

struct Table {
  std::string_view transport;
  Maker make;
};
constexpr Table kTables[] = {
    {Transport::Ata, &MakeIdentify<IdentifyTarget::Drive>},
    {Transport::Nvme, &MakeIdentify<IdentifyTarget::Drive>},
    {Transport::Nvme, &MakeIdentify<IdentifyTarget::Controller>},
    {Transport::Nvme, &MakeLog<ErrorInfoParser>},
    {Transport::Nvme, &MakeLog<SMARTHealthLogParser>},
    {Transport::Nvme, &MakeLog<FirmwareSlotInfoParser>},
    {Transport::Nvme, &MakeLog<EMStatisticsParser>},
    {Transport::Nvme, &MakeLog<TempStatisticsParser>},
    {Transport::Nvme, &MakeLog<SMARTAttributesParser>},
};

// A row is a line of printable characters, and each line of the file has all columns.
void Check(const Parser& parser) {
  const auto& table = parser.GetTable();
  for (const auto& row : table.GetRows()) {
    Require(!row.cells.empty() && row.cells.size() <= table.GetColumnCount());
    for (const auto& cell : row.cells) {
      for (const char c : cell.text) Require(c >= ' ' && c <= '~');
      Require(cell.text.find("<c:") == cell.text.npos);
    }
  }
  table.Render();
  // Whatever is printable goes through a document and back: the target of messages shows it, and a
  // large page would cost twenty times as much here.
  Require(parser.ToXml(false)->objects.size() <= table.GetRows().size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ByteView input(data, size);
  if (input.size() < 2) return 0;
  const auto& table = kTables[input[0] % std::size(kTables)];
  Drive drive;
  drive.AddProperty(Properties::Product, "Caldrome");
  drive.AddProperty(Properties::Morvu, true);
  drive.SetPath(std::make_unique<AnsweringPath>(table.transport, input[1], input.subspan(2)));
  drive.AddCommandSet(CreateCommandSet(drive.GetProperties(), drive.GetPath()));
  const auto parser = table.make(drive);
  if (parser->GetErrorCode() == Status::ReadyToRun) parser->Execute();
  Require(parser->GetErrorCode() != Status::ReadyToRun);
  if (parser->GetErrorCode() == Status::Completed) Check(*parser);
  return 0;
}
