// The class "MorvuJob": the list of jobs, and the request to cancel one.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "messaging/features/JobContext.h"

namespace Morvu {

// With type="cancel" asks the job "identifier" to end, without a reply; otherwise
// replies with the job list.
std::unique_ptr<XmlMessaging::Message> HandleMorvuJob(JobContext& context);
void DeclareMorvuJob(XmlMessaging::Message& reply, std::vector<std::string>& subjectNames);

}  // namespace Morvu
