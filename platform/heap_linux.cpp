// The heap stretch backed by huge pages, through the C library's tuning of its
// heap and the system's advice on memory use.
#include <cstdint>
#include <cstdlib>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/heap.h"

namespace vrk::platform {

namespace {

constexpr uintptr_t kHugePageBytes = uintptr_t{2} << 20;
// The largest block the heap serves itself.
constexpr std::size_t kHeapServesBytes = std::size_t{4} << 20;

}  // namespace

void prepare_heap() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // The sanitizers bring their own allocator.
    return;
#else
    // The stretch is never trimmed back: a heap shrunk and grown again would
    // lose the advice, which belongs to the memory mapped when it was given.
    mallopt(M_TRIM_THRESHOLD, static_cast<int>(2 * kHeapStretchBytes));
    // One request of the whole stretch, served from the heap rather than
    // mapped on its own, grows the heap by the stretch; given back, it is the
    // free top of the heap that the next requests are cut from.
    mallopt(M_MMAP_THRESHOLD, static_cast<int>(2 * kHeapStretchBytes));
    const auto before = reinterpret_cast<uintptr_t>(sbrk(0));
    void* probe = std::malloc(kHeapStretchBytes);
    // Written once, so that the request is not optimised away with its
    // release (the byte lies before the advised part).
    if (probe) *static_cast<volatile char*>(probe) = 0;
    const auto after = reinterpret_cast<uintptr_t>(sbrk(0));
    std::free(probe);
    // Blocks up to a few megabytes (the pointer array of a large container,
    // a long text) come from the heap as well; larger ones are mapped apart.
    mallopt(M_MMAP_THRESHOLD, static_cast<int>(kHeapServesBytes));
    if (before == static_cast<uintptr_t>(-1) || after <= before) return;
    const uintptr_t start = (before + kHugePageBytes - 1) & ~(kHugePageBytes - 1);
    const uintptr_t end = after & ~(kHugePageBytes - 1);
    if (end <= start) return;
    // Refused where huge pages are switched off: the heap stays as it is.
    madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
#endif
}

}  // namespace vrk::platform
