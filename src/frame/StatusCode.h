// Status codes with the names that every room uses, Status::Canceled and so on. The names
// of one subject stand in a header of their own in frame/status/: a new code there rebuilds
// only what uses it.
#pragma once

#include "frame/status/General.h"
#include "frame/status/StatusCode.h"
