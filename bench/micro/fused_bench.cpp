// Gain of each fused number path of the run loop: the same hand-built loop
// run with the fused steps off (argument 0) and on (argument 1).
//   compare:     while (i < n) { i++; }                 LOAD; ARG; LOAD; CMP fused
//   arithmetic:  while (i < n) { t += i; i++; }         plus X_TMP; LOAD; X fused
//   float:       the same with t and the step FLOAT     the FLOAT side of both
#include <benchmark/benchmark.h>

#include <cstdint>

#include "base/context.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/instruction.h"
#include "vm/run.h"

namespace vrk {
namespace {

constexpr int64_t kIterations = 10000;

uint32_t add_int(vrkblock* b, int64_t value, bool constant) {
    vrkvar* cell = cell_new(Tag::INT);
    set_int(cell, value);
    cell->constant = constant ? 1 : 0;
    b->vars.push_back(cell);
    return static_cast<uint32_t>(b->vars.size() - 1);
}

uint32_t add_float(vrkblock* b, double value) {
    vrkvar* cell = cell_new(Tag::FLOAT);
    set_float(cell, value);
    b->vars.push_back(cell);
    return static_cast<uint32_t>(b->vars.size() - 1);
}

void put(vrkblock* b, Op op, int64_t arg, uint64_t ref) {
    b->code.push_back(vrkinstr{static_cast<uint8_t>(op), ref, arg});
}

enum class Shape { compare, arithmetic, floating };

// The loop of `shape`; `counter` is the variable reset before each pass.
vrkblock* build(Shape shape, uint32_t& counter, uint32_t& total, int64_t& per_pass) {
    vrkblock* b = block_new(nullptr);
    const auto self = reinterpret_cast<uint64_t>(b);
    counter = add_int(b, 0, false);
    total = shape == Shape::floating ? add_float(b, 0.0) : add_int(b, 0, false);
    const uint32_t limit = add_int(b, kIterations, true);
    const uint32_t step = shape == Shape::floating ? add_float(b, 0.5) : counter;
    const uint32_t top = static_cast<uint32_t>(b->code.size());
    put(b, Op::LOAD, counter, self);
    put(b, Op::ARG, 0, 1);
    put(b, Op::LOAD, limit, self);
    put(b, Op::CMP, cmp_code::LESS, self);
    const std::size_t exit_jump = b->code.size();
    put(b, Op::JMP_FALSE_LOOP, 0, self);
    if (shape != Shape::compare) {
        put(b, Op::LOAD, total, self);
        put(b, Op::ADD_TMP, 0, 0);
        put(b, Op::LOAD, step, self);
        put(b, Op::ADD, 0, 0);
    }
    put(b, Op::LOAD, counter, self);
    put(b, Op::INC, 0, self);
    const auto back = static_cast<int64_t>(top) - static_cast<int64_t>(b->code.size()) - 1;
    put(b, Op::JMP, back, self);
    // The exit test jumps to index + arg + 2: just past the loop.
    b->code[exit_jump].arg = static_cast<int64_t>(b->code.size() - exit_jump - 2);
    put(b, Op::NOP, 0, 0);
    per_pass = static_cast<int64_t>(b->code.size()) - 1;
    return b;
}

void run_shape(benchmark::State& state, Shape shape) {
    context().main_thread = current_thread_id();
    value_context().fused_paths = state.range(0) != 0;
    uint32_t counter = 0;
    uint32_t total = 0;
    int64_t per_pass = 0;
    vrkblock* b = build(shape, counter, total, per_pass);
    for (auto _ : state) {
        set_int(b->vars[counter], 0);
        vrkvar* r = run(b, nullptr, 0, kSelfUnchanged);
        benchmark::DoNotOptimize(r);
    }
    if (to_int(b->vars[counter]) != kIterations)
        state.SkipWithError("the loop did not count to its limit");
    const auto instructions = static_cast<double>(state.iterations() * kIterations * per_pass);
    state.counters["time_per_instruction"] = benchmark::Counter(
        instructions, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    value_context().fused_paths = true;
    block_delete(b);
}

void BM_FusedCompare(benchmark::State& state) { run_shape(state, Shape::compare); }
void BM_FusedArithmetic(benchmark::State& state) { run_shape(state, Shape::arithmetic); }
void BM_FusedFloat(benchmark::State& state) { run_shape(state, Shape::floating); }
BENCHMARK(BM_FusedCompare)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FusedArithmetic)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FusedFloat)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace vrk
