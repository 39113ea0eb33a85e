// A method of the drive class: the way from a message into a family.
#pragma once

#include "devices/model/DeviceList.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/JobContext.h"

namespace Morvu {

namespace XmlMessaging {
class Message;
class Object;
}  // namespace XmlMessaging

// The host that sent a message: it hears the progress through its job, and the status with
// the reply. It has asked its user already.
class MessageFace : public Face {
 public:
  // `reporter` is the job's. Warnings go to the reply, which may be null.
  MessageFace(ProgressReporter& reporter, bool forced, XmlMessaging::Message* reply = nullptr)
      : reporter_(reporter), forced_(forced), reply_(reply) {}

  void Say(std::string_view) override {}
  void Warn(std::string_view text) override;
  void Show(const ResultTable&) override {}
  void Report(std::string_view name, std::uint64_t value) override;
  void Tell(StatusCode) override {}
  bool Save(const ResultTable& table, const std::string& path) override;
  bool SaveBinary(ByteView bytes, const std::string& path) override;
  Answer Ask(std::string_view, std::string_view) override { return Answer::Unasked; }
  bool IsForced() const override { return forced_; }
  void Begin(std::string_view) override {}
  ProgressReporter& GetReporter() override { return reporter_; }

 private:
  InnerReporter reporter_;
  bool forced_;
  XmlMessaging::Message* reply_;
};

// Runs the method with the parameters that the request's Object gives it. 270 for an
// unknown one; 245 when its family works on one drive and not exactly one is selected.
StatusCode RunDriveMethod(JobContext& context, const XmlMessaging::Object& request,
                          const DeviceManagement::SelectedDevices& selected);

}  // namespace Morvu
