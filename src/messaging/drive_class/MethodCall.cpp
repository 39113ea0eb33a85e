#include "messaging/drive_class/MethodCall.h"

#include <algorithm>

#include "devices/model/Drive.h"
#include "frame/Files.h"
#include "frame/Text.h"
#include "frame/status/Requests.h"
#include "messaging/ResultTable.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/MorvuSSD.h"

namespace Morvu {
namespace {

constexpr std::string_view kForce = "force";

// The parameters that the method declares, booleans in one form; of several with one name the
// last counts.
CallArguments TakeParameters(const CimMethod& method, const XmlMessaging::Object& request) {
  CallArguments arguments;
  for (const auto& property : request.properties) {
    const auto& name = property->GetAttribute("name");
    const auto parameter = std::ranges::find(method.parameters, name, &MethodParameter::name);
    if (parameter == method.parameters.end()) continue;
    const auto flag = parameter->type == "boolean" ? ParseBool(property->value) : std::nullopt;
    arguments.Set(name, flag ? BoolText(*flag) : property->value);
  }
  return arguments;
}

// The job as the method sees it. What the method does not let be stopped is not stopped.
class MethodReporter : public InnerReporter {
 public:
  MethodReporter(ProgressReporter& job, const CimMethod& method)
      : InnerReporter(job), cancelSupported_(method.cancelSupported) {}
  bool IsCancelRequested() override {
    return cancelSupported_ && InnerReporter::IsCancelRequested();
  }

 private:
  bool cancelSupported_;
};

}  // namespace

void MessageFace::Warn(std::string_view text) {
  if (reply_ == nullptr) return;
  auto property = std::make_unique<XmlMessaging::Property>("Warning", text);
  property->SetAttribute("type", "string");
  reply_->properties.push_back(std::move(property));
}

void MessageFace::Report(std::string_view name, std::uint64_t value) {
  if (reply_ == nullptr) return;
  auto property = std::make_unique<XmlMessaging::Property>(name, std::to_string(value));
  property->SetAttribute("type", "uint64");
  reply_->properties.push_back(std::move(property));
}

bool MessageFace::Save(const ResultTable& table, const std::string& path) {
  return table.SaveSeparated(path);
}

bool MessageFace::SaveBinary(ByteView bytes, const std::string& path) {
  return Morvu::SaveBinary(path, bytes, false);
}

StatusCode RunDriveMethod(JobContext& context, const XmlMessaging::Object& request,
                          const DeviceManagement::SelectedDevices& selected) {
  const auto* row = FindDriveMethod(request.GetAttribute("name"));
  if (row == nullptr) return Status::UnknownMethod;
  const auto devices = selected.GetDevices();
  if (row->feature->needsDrive && devices.size() != 1) return Status::NoDeviceSelected;
  // Another drive may stand where a nameless one stood.
  if (row->feature->destroys && !DeviceManagement::HasIdentity(*devices.front())) {
    return Status::NoDeviceSelected;
  }
  const auto arguments = TakeParameters(*row->method, request);
  MethodReporter reporter(*context.reporter, *row->method);
  JobContext methodContext = context;
  methodContext.reporter = &reporter;
  MessageFace face(reporter, arguments.GetFlag(kForce), context.reply);
  const FeatureCall call{face, devices, true, arguments, context.jobId, selected.partitions};
  return RunHeld(*row->feature, call, [&] { return row->method->run(call, methodContext); });
}

}  // namespace Morvu
