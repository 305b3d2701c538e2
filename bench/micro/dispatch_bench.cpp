// Cost of the dispatch loop: a hand-built loop of integer additions,
//   while (i < n) { i = i + 1; }
// run as the compiler would lay it out, reported as time per instruction.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "base/context.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/instruction.h"
#include "vm/run.h"

namespace vrk {
namespace {

constexpr int64_t kIterations = 10000;
// Instructions executed per pass of the loop below.
constexpr int64_t kPerPass = 12;

uint32_t add_var(vrkblock* b, int64_t value, bool constant) {
    vrkvar* cell = cell_new(Tag::INT);
    set_int(cell, value);
    cell->constant = constant ? 1 : 0;
    b->vars.push_back(cell);
    return static_cast<uint32_t>(b->vars.size() - 1);
}

void put(vrkblock* b, Op op, int64_t arg, uint64_t ref) {
    b->code.push_back(vrkinstr{static_cast<uint8_t>(op), ref, arg});
}

// i = i + 1 while i < n.
vrkblock* build_loop(uint32_t& counter) {
    vrkblock* b = block_new(nullptr);
    const auto self = reinterpret_cast<uint64_t>(b);
    counter = add_var(b, 0, false);
    const uint32_t hidden = add_var(b, 0, false);
    const uint32_t one = add_var(b, 1, true);
    const uint32_t limit = add_var(b, kIterations, true);
    put(b, Op::LOAD, counter, self);        // 0
    put(b, Op::SET, hidden, self);          // 1
    put(b, Op::ADD_TMP, 0, 0);              // 2
    put(b, Op::LOAD, one, self);            // 3
    put(b, Op::ADD, 0, 0);                  // 4
    put(b, Op::SET, counter, self);         // 5
    put(b, Op::LOAD, counter, self);        // 6
    put(b, Op::ARG, 0, 1);                  // 7
    put(b, Op::LOAD, limit, self);          // 8
    put(b, Op::CMP, cmp_code::LESS, self);  // 9  i < n
    put(b, Op::JMP_FALSE, 1, self);         // 10 -> 13, the end
    put(b, Op::JMP, -12, self);             // 11 -> 0
    put(b, Op::NOP, 0, 0);                  // 12
    return b;
}

void BM_DispatchIntegerLoop(benchmark::State& state) {
    context().main_thread = current_thread_id();
    uint32_t counter = 0;
    vrkblock* b = build_loop(counter);
    for (auto _ : state) {
        set_int(b->vars[counter], 0);
        vrkvar* r = run(b, nullptr, 0, kSelfUnchanged);
        benchmark::DoNotOptimize(r);
    }
    if (to_int(b->vars[counter]) != kIterations)
        state.SkipWithError("the loop did not count to its limit");
    const auto instructions = static_cast<double>(state.iterations() * kIterations * kPerPass);
    state.counters["instructions"] = benchmark::Counter(instructions, benchmark::Counter::kIsRate);
    state.counters["time_per_instruction"] = benchmark::Counter(
        instructions, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    block_delete(b);
}
BENCHMARK(BM_DispatchIntegerLoop)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace vrk
