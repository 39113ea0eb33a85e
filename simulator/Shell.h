// Shell commands in the fleet: the real shell, with the paths of a line led
// into the fleet, the fleet's tools first in PATH, and the folder's name taken
// out of what is printed.
#pragma once

#include <cstdio>

#include "Fleet.h"

namespace Simulator {

FILE* OpenShell(const Fleet& fleet, const char* command, const char* mode);
// False when the stream was not opened by OpenShell.
bool CloseShell(FILE* stream, int& status);
int RunShell(const Fleet& fleet, const char* command);

}  // namespace Simulator
