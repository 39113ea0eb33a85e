#pragma once

#include <cstddef>

// How often this thread has allocated.
std::size_t CountAllocations();
