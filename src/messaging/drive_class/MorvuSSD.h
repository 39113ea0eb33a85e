// The drive class: how a host lists drives, reads and writes their properties, and
// runs their methods. The subjects "MorvuSSD" and "Device" share it; the second
// shows drives of other makes as well.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "messaging/features/FeatureRecord.h"
#include "messaging/features/JobContext.h"

namespace Morvu {

inline constexpr std::string_view kMorvuClass = "MorvuSSD";
inline constexpr std::string_view kDeviceClass = "Device";
// The name of a partition's Object.
inline constexpr std::string_view kPartitionName = "Partition";

// "MorvuSSD" or "Device".
constexpr bool IsDriveClass(std::string_view cimClass) {
  return cimClass == kMorvuClass || cimClass == kDeviceClass;
}

// A method, and the family that it comes from.
struct DriveMethod {
  const FeatureRecord* feature;
  const CimMethod* method;
};

// The properties, in the order in which a host sees them, and the methods of all families,
// in ascending byte order of their names. Null for a name that is not there.
std::span<const CimProperty> GetDriveProperties();
std::span<const DriveMethod> GetDriveMethods();
const CimProperty* FindDriveProperty(std::string_view name);
const DriveMethod* FindDriveMethod(std::string_view name);

// The handler of both subjects. It always replies.
std::unique_ptr<XmlMessaging::Message> HandleMorvuSSD(JobContext& context);

// Adds the descriptions of both classes to the reply, and their names to the list.
void DeclareDriveClasses(XmlMessaging::Message& reply, std::vector<std::string>& subjectNames);

}  // namespace Morvu
