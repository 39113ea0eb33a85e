// A host of the Morvu SSD library in C++: lists the drives, runs a long operation with its
// progress, and cancels it.
//
//   host_cpp [SERIAL]
//
// The operation is an extended self-test, of the drive with this serial number or else of the
// first that offers one. It harms no data.
#include <cstdlib>
#include <iostream>
#include <morvu/ssd_features.hpp>

namespace {

constexpr auto kPatience = std::chrono::minutes(2);

void PrintDrives(const morvu::Library& library) {
  const auto reply = library.Call(
      morvu::Request("Device").Scan().Properties({"ModelNumber", "SerialNumber", "Firmware"}));
  for (const auto* drive : reply.Drives()) {
    for (const char* name : {"ModelNumber", "SerialNumber", "Firmware"}) {
      std::cout << drive->Property(name).value_or("unknown") << "  ";
    }
    std::cout << "\n";
  }
}

// The serial number of the first drive that offers a method; empty without one.
std::string FindDriveWith(const morvu::Library& library, std::string_view method) {
  const auto reply = library.Call(
      morvu::Request("MorvuSSD").Attribute("includeMethods", "True").Properties({"Index"}));
  for (const auto* drive : reply.Drives()) {
    if (drive->Find("Object", method) != nullptr) return drive->Attribute("uniqueId");
  }
  return {};
}

// True when the self-test ended as canceled.
bool CancelSelfTest(const morvu::Library& library, const std::string& serial) {
  const auto job = library.Start(
      morvu::Request("MorvuSSD").Drive(serial).Method("DriveSelfTest", {{"SelfTest", "extended"}}));
  try {
    const auto first = job.Next(kPatience);
    if (first && !first->IsLast()) std::cout << "self-test: " << first->Percent() << " %\n";
    job.Cancel();
    const auto reply = job.WaitFor(
        kPatience, [](int percent) { std::cout << "self-test: " << percent << " %\n"; });
    std::cout << (reply ? "the self-test came to its end\n" : "the self-test does not end\n");
    return false;
  } catch (const morvu::JobError& error) {
    std::cout << "the self-test ended in " << error.Code() << ": " << error.what() << "\n";
    return error.Code() == MORVU_STATUS_CANCELED;
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  try {
    const morvu::Library library;
    std::cout << "version " << library.Version() << "\n";
    PrintDrives(library);
    const auto serial = argc > 1 ? std::string(argv[1]) : FindDriveWith(library, "DriveSelfTest");
    if (serial.empty()) {
      std::cout << "no drive offers a self-test\n";
      return EXIT_SUCCESS;
    }
    return CancelSelfTest(library, serial) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const morvu::Error& error) {
    std::cerr << "host_cpp: " << error.what() << "\n";
    return EXIT_FAILURE;
  }
}
