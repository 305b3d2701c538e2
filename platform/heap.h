// Tuning of the process heap for the values scripts make.
//
// A script that builds large containers touches a new page of the heap every
// few dozen values. Each first touch of a page is a fault that the system
// handles on its own, and on virtual machines such a fault is expensive: a
// JSON array of 300,000 numbers spent a fifth of its time in them. Backed by
// huge pages, the same heap takes one fault per huge page instead of one per
// small page. The host asks for that once at start, for the stretch of heap
// that grows first, which is where almost every script's values live.
#pragma once

#include <cstddef>

namespace vrk::platform {

// The stretch of heap, grown at start, that is backed by huge pages.
inline constexpr std::size_t kHeapStretchBytes = std::size_t{64} << 20;

// Grows the heap by kHeapStretchBytes and asks the system to back that stretch
// with huge pages where it can; blocks of up to a few megabytes are served
// from the heap from then on, and its free top is not given back below twice
// the stretch. Does nothing where the heap is not the C library's (under a
// sanitizer's allocator) or huge pages are out of reach (Windows, where they
// need a privilege ordinary users do not hold). Call once, before any other
// thread starts.
void prepare_heap();

}  // namespace vrk::platform
