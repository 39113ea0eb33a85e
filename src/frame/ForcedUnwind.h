// Forced unwinding: how a thread that is canceled or calls pthread_exit leaves its functions.
#pragma once

#include <cxxabi.h>

// For a function with a handler of abi::__forced_unwind, which must throw it on. The handler's
// reference is bound to nothing there, which a sanitizer takes for a fault, in a function of
// which it became a part too.
#define MORVU_PASSES_FORCED_UNWIND __attribute__((no_sanitize("null"), noinline))
