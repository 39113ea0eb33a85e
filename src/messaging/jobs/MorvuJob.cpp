#include "messaging/jobs/MorvuJob.h"

#include "frame/Text.h"
#include "messaging/XmlMessaging.h"
#include "messaging/jobs/JobManager.h"

namespace Morvu {

using XmlMessaging::Message;

std::unique_ptr<Message> HandleMorvuJob(JobContext& context) {
  context.services->SetTimeBeforeRemoval(JobDuration::zero());
  context.services->SetHidden(true);
  if (context.request->GetAttribute("type") == "cancel") {
    const auto& identifier = context.request->GetAttribute("identifier");
    if (!identifier.empty()) context.manager->CancelJob(ParseDecimal(identifier));
    return nullptr;
  }
  auto reply = std::make_unique<Message>();
  reply->SetAttribute("cimClass", "MorvuJob");
  reply->lists.push_back(context.manager->BuildJobList());
  context.Report(100, FeatureState::Finished, Status::Completed);
  return reply;
}

void DeclareMorvuJob(Message& reply, std::vector<std::string>& subjectNames) {
  subjectNames.emplace_back("MorvuJob");
  auto subject = std::make_unique<XmlMessaging::Subject>();
  subject->SetAttribute("name", "Morvu Job");
  subject->SetAttribute("description", "Returns a list of running or completed jobs");
  subject->SetAttribute("cimClass", "MorvuJob");
  subject->lists.push_back(JobManager::DescribeJobList());
  reply.subjects.push_back(std::move(subject));
}

}  // namespace Morvu
