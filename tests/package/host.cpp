// The C++ face of the installed library, on no drive.
#include <cstdlib>
#include <iostream>
#include <morvu/ssd_features.hpp>

namespace {

void Check(bool holds, const char* what) {
  if (holds) return;
  std::cerr << "not so: " << what << "\n";
  std::exit(EXIT_FAILURE);
}
#define CHECK(condition) Check(condition, #condition)

std::int32_t CodeOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const morvu::Error& error) {
    return error.Code();
  }
  return 0;
}

bool IsRefused(const char* text) {
  return CodeOf([&] { (void)morvu::Message(text); }) == MORVU_STATUS_UNKNOWN_SUBJECT;
}

void ReadsWhatIsWhole() {
  const morvu::Message message(
      "<?xml version=\"1.0\"?>\n<Message subject=\"S\"><Property "
      "name=\"Warning\">&#32;&lt;1&gt;</Property>"
      "<Object name=\"Morvu Job\"><Property name=\"ErrorCode\">2</Property>"
      "<Property name=\"NVMeStatus\">NVMe status 0x002</Property></Object>"
      "<List name=\"S\"><Object a=\"&quot;&amp;&apos;\"><Property name=\"P\" "
      "status=\"180\"/><Property name=\"Told\" status=\"0\">7</Property><Property name=\"Empty\"/>"
      "<Property name=\"Number\" type=\"uint64\">18446744073709551615</Property></Object>"
      "</List></Message>");
  CHECK(message.Warnings() == std::vector<std::string>{" <1>"});
  CHECK(message.Code() == 2 && message.ResultText() == "NVMe status 0x002" && !message.IsGood());
  CHECK(message.Drives().at(0)->Attribute("a") == "\"&'");
  CHECK(!message.Drives().at(0)->Property("P"));  // there, and not told
  const auto* drive = message.Drives().at(0);
  CHECK(drive->Property("Told").value_or("") == "7");  // good, and told
  CHECK(!drive->Property("Number") && drive->Property("Empty").value_or("x").empty());
  CHECK(CodeOf([&] { (void)message.IsLast(); }) != 0);
  for (const char* text : {"", "<", "text", "<a>", "<a></b>", "<a b=>", "<a b=\"1", "<a/>x", "<a b",
                           "<a>&</a>", "<a>&;</a>", "<a>&nbsp;</a>", "<a>&#0;</a>", "<a>&#;</a>"}) {
    Check(IsRefused(text), text);
  }
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<a>";
  CHECK(IsRefused(deep.c_str()));
}

void SharesOneLibrary() {
  const morvu::Library first;
  { const morvu::Library second; }
  CHECK(first.Version() == 10200400);
  CHECK(first.Call("<Message subject='MorvuJob'/>").Root().Find("List", "Job list") != nullptr);
}

void TellsFailures() {
  const morvu::Library library;
  CHECK(CodeOf([&] { (void)library.Start("<Message/>"); }) == MORVU_STATUS_UNKNOWN_SUBJECT);
  // The drive's name reaches the library as it was given, and comes back so.
  try {
    library.Call(
        morvu::Request("MorvuSSD").Drive("<&\"'>").Method("SecureErase", {{"<&\"'>", "1"}}));
    CHECK(!"an erase of nothing ended well");
  } catch (const morvu::JobError& error) {
    CHECK(error.Code() == MORVU_STATUS_INVALID_ARGUMENTS && error.Reply().IsLast());
    CHECK(error.Reply().Root().Attribute("reason").find("<&\"'>") != std::string::npos);
  }
  CHECK(morvu::StatusText(2) == "Canceled.");
  CHECK(morvu::StatusText(MORVU_STATUS_NO_DEVICE_SELECTED).find("no drive was selected") == 0);
  CHECK(morvu::StatusText(-5) == "OS Error: -5" && morvu::StatusText(999) == "Unknown error: 999");
}

void GivesUpWaiting() {
  const morvu::Library library;
  const auto service = library.Start("<Message subject='Notification'/>");
  CHECK(!service.WaitFor(std::chrono::milliseconds(20)));
  CHECK(!service.Next(std::chrono::milliseconds(0)));
  library
      .Start("<Message subject='Notification'><Property name='Enabled'>False</Property></Message>")
      .Cancel();
}

// The number of a job that has ended may be another's: it is neither canceled nor waited for.
void EndsOnce() {
  const auto job = [] {
    const morvu::Library library;
    auto started = library.Start("<Message subject='MorvuJob'/>");
    CHECK(started.WaitFor(std::chrono::milliseconds::max()).has_value());
    [[maybe_unused]] const auto moved = std::move(started);
    return started;  // NOLINT(bugprone-use-after-move): a job stays one
  }();
  CHECK(CodeOf([&] { job.Cancel(); }) == 0);
  CHECK(!job.Next(std::chrono::hours(1)));
  CHECK(CodeOf([&] { (void)job.Wait(); }) == MORVU_STATUS_NO_MESSAGE);
}

}  // namespace

int main() {
  ReadsWhatIsWhole();
  SharesOneLibrary();
  TellsFailures();
  GivesUpWaiting();
  EndsOnce();
  // A library that was unloaded loads again.
  const auto reply = morvu::Library().Call("<Message subject='supported functionality'/>");
  std::cout << reply.Text() << "\n";
}
