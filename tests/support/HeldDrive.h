// A drive that answers nothing until it is let go, however long that takes.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

#include "TestFleet.h"

namespace Morvu::Testing {

// Another process has the lock that each command of the drive takes.
class HeldDrive {
 public:
  // `name` is the drive's own: "sg0", "nvme0".
  HeldDrive(const Simulator::TestFleet& fleet, const std::string& name) {
    const auto state = fleet.Folder() + "/drives/" + name + ".state";
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0 || pipe2(release_, O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
    holder_ = fork();
    if (holder_ == 0) Hold(state.c_str(), ready[1]);
    close(ready[1]);
    close(release_[0]);
    char held = 0;
    const bool isHeld = read(ready[0], &held, 1) == 1;
    close(ready[0]);
    if (!isHeld) throw std::runtime_error("cannot hold " + name);
  }
  ~HeldDrive() { LetGo(); }
  HeldDrive(const HeldDrive&) = delete;
  HeldDrive& operator=(const HeldDrive&) = delete;

  void LetGo() {
    if (holder_ <= 0) return;
    close(release_[1]);
    waitpid(holder_, nullptr, 0);
    holder_ = -1;
  }

 private:
  [[noreturn]] void Hold(const char* state, int ready) {
    close(release_[1]);
    const int file = open(state, O_RDWR);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    if (file < 0 || fcntl(file, F_SETLKW, &whole) != 0) _exit(1);
    char byte = 1;
    if (write(ready, &byte, 1) != 1) _exit(1);
    while (read(release_[0], &byte, 1) > 0) {
    }
    _exit(0);
  }

  int release_[2] = {-1, -1};
  pid_t holder_ = -1;
};

// Waits until the condition holds; false when it does not for very long.
template <typename Condition>
bool WaitUntil(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace Morvu::Testing
