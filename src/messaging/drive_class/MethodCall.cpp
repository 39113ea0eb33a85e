#include "messaging/drive_class/MethodCall.h"

#include <algorithm>

#include "devices/model/Drive.h"
#include "frame/status/Requests.h"
#include "messaging/ResultTable.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/MorvuSSD.h"

namespace Morvu {
namespace {

constexpr std::string_view kForce = "force";

// The parameters that the method declares; of several with one name the last counts.
CallArguments TakeParameters(const CimMethod& method, const XmlMessaging::Object& request) {
  CallArguments arguments;
  for (const auto& property : request.properties) {
    const auto& name = property->GetAttribute("name");
    if (std::ranges::find(method.parameters, name, &MethodParameter::name) !=
        method.parameters.end()) {
      arguments.Set(name, property->value);
    }
  }
  return arguments;
}

}  // namespace

bool MessageFace::Save(const ResultTable& table, const std::string& path) {
  return table.SaveSeparated(path);
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
  MessageFace face(*context.reporter, arguments.GetFlag(kForce));
  const FeatureCall call{face, devices, true, arguments, context.jobId};
  return RunHeld(*row->feature, call, [&] { return row->method->run(call, context); });
}

}  // namespace Morvu
