#include "parsers/sct/SctDataTableParser.h"

#include "frame/Logger.h"
#include "frame/status/Commands.h"
#include "operations/settings/SCT.h"

namespace Morvu {

SctDataTableParser::SctDataTableParser(DeviceManagement::Device* device, std::uint16_t tableId,
                                       ProgressReporter& reporter)
    : Parser(device, reporter), tableId_(tableId) {
  SctDataTableParser::Initialize();
}

void SctDataTableParser::Initialize() {
  table_.AppendRow({"Field Name", "Description"}, true);
  EndInitialize(SCT_Data_Tables(device_, tableId_, NoReporter()).GetErrorCode());
}

std::int32_t SctDataTableParser::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  rawTable_.clear();
  SCT_Data_Tables action(device_, tableId_, NoReporter());
  if (action.GetErrorCode() == Status::ReadyToRun && action.Execute() != 0) {
    rawTable_.assign(action.GetData().begin(), action.GetData().end());
  }
  TakeResult(action);
  if (GetErrorCode() == Status::Completed && rawTable_.empty()) {
    Note("The drive gave nothing of the table.");
    End(Status::SmartReadLogFailed);
  }
  return GetErrorCode() == Status::Completed;
}

}  // namespace Morvu
