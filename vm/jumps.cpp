// JMP, JMP_FALSE and JMP_FALSE_LOOP: relative jumps and their bounds rules.
//
// Distances are relative to the jump's own index: JMP goes to index + arg + 1,
// the conditional jumps to index + arg + 2 (they sit in front of the body they
// skip). A conditional jump with distance 0 never jumps. The jump errors are
// the only instruction faults that end a run, and they end it without the
// clean-up of a normal end.
#include "vm/errors.h"
#include "vm/ops.h"

namespace vrk {

namespace {

// index + arg + extra without overflow: distances beyond any real code size
// are clamped, which keeps them out of bounds in the same direction.
int64_t relative_target(uint32_t ip, int64_t arg, int64_t extra) {
    constexpr int64_t kFar = int64_t{1} << 40;
    if (arg > kFar) arg = kFar;
    if (arg < -kFar) arg = -kFar;
    return static_cast<int64_t>(ip) + arg + extra;
}

}  // namespace

Flow jump(run_state& rs, const vrkinstr& ins) {
    int64_t target = relative_target(rs.ip, ins.arg, 1);
    if (target < 0) target = 0;
    // A jump to exactly the end is the normal end of the block: a plain `if`
    // that closes a block ends in such a jump over nothing.
    if (static_cast<uint64_t>(target) > rs.b->code.size()) {
        runtime_error("JMP_OUT_OF_BOUNDS", rs.b);
        return Flow::end;
    }
    rs.next = static_cast<uint32_t>(target);
    return Flow::next;
}

Flow jump_if_false(run_state& rs, const vrkinstr& ins, bool loop) {
    vrkblock* b = rs.b;
    if (b->stack.empty() || is_marker(b->stack.back(), kMarkerLimit)) {
        report_error(b, "internal", "jump error");
        return Flow::end;
    }
    vrkvar* v = b->stack.back();
    bool taken = false;
    if (loop) {
        // A break or continue that came up from the body leaves the loop too;
        // the object exception of the plain test does not apply here.
        taken = to_int(v) == 0 || b->loop_signal != 0;
        b->loop_signal = 0;
    } else {
        // An object in the condition never jumps, whatever it says its integer is.
        taken = v->type != Tag::PTR && to_int(v) == 0;
    }
    if (!taken || ins.arg == 0) return Flow::next;
    if (relative_target(rs.ip, ins.arg, 0) > static_cast<int64_t>(b->code.size())) {
        runtime_error("JMP_OUT_OF_BOUNDS", b);
        return loop ? Flow::end : Flow::next;
    }
    int64_t target = relative_target(rs.ip, ins.arg, 2);
    if (target < 0) target = 0;
    rs.next = static_cast<uint32_t>(target);
    return Flow::next;
}

}  // namespace vrk
