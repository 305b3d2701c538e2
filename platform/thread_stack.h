// Running a piece of work on a thread with a stack of a chosen size.
//
// Scripts run as nested calls of the run loop, one C++ frame chain per script
// call, so the depth a script may reach is bounded by the stack of the thread
// that runs it. The host therefore runs its whole entry on one thread whose
// stack it sizes itself, far beyond the process's default, and waits for it.
// The stack is reserved address space: only the pages a deep recursion really
// touches take memory.
#pragma once

#include <cstddef>
#include <functional>

namespace vrk::platform {

// Runs `work` on a new thread with a stack of `stackBytes` bytes and waits
// until it returns. Returns false, without running `work`, when no such
// thread could be started. Every thread of the process allocates from one
// heap afterwards, as the main thread does.
bool run_with_stack(std::size_t stackBytes, const std::function<void()>& work);

// True in a build with the address sanitizer, whose frames are several times
// larger than those of a plain build.
bool sanitized_build();

}  // namespace vrk::platform
