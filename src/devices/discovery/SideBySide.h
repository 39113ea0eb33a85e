#pragma once

#include <cstddef>
#include <functional>

namespace Morvu::DeviceManagement {

// Calls `ask(0)` to `ask(count - 1)` on threads of their own, so that one that waits for its
// drive holds up no other, and returns when all are done. Their signals are blocked. Where
// there are no threads to be had, the caller's does the work. What `ask` throws first is
// thrown at the end.
void AskSideBySide(std::size_t count, const std::function<void(std::size_t)>& ask);

}  // namespace Morvu::DeviceManagement
