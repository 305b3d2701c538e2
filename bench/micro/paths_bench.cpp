// Gain of the call, instance and data paths: the same small script compiled
// and run with one switch of value_context() off (argument 0) and on (1).
//   calls:      fib(15), 1,973 calls                         call_paths
//   library:    6,000 calls of find, split, count, replace,  call_paths
//               substr (the direct entry of native blocks)
//   instances:  2,000 instances, 20,000 method calls         instance_paths
//   data:       a 5,000-element array filled and summed,     data_paths
//               10,000 keyed reads, 5,000 string subscripts
// Compiling is left out of the time; each pass runs a freshly compiled script,
// so that class definitions and globals start as a first run finds them.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/compile_context.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "values/cell.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/run.h"

namespace vrk {
namespace {

using path_switch = bool vrkvalue_context::*;

const char* const kCalls =
    "fib(n) { if (n < 2) { return n; } return fib(n - 1) + fib(n - 2); }"
    "result(fib(15));";

const char* const kLibrary =
    "s = \"\"; for (i = 0; i < 300; i++) { s += \"abc\"; }"
    "rec = \"alpha=1,beta=22,gamma=333\"; total = 0;"
    "for (i = 0; i < 1000; i++) { total += find(s, \"b\", i);"
    " total += count(split(rec, \",\"));"
    " total += count(replace(substr(s, i, 6), \"a\", \"xy\")); }"
    "result(total);";

const char* const kInstances =
    "class Counter = { value = 0; constructor(start) { this.value = start; }"
    " add(step) { this.value = this.value + step; } };"
    "total = 0;"
    "for (i = 0; i < 2000; i++) { c = Counter(i); total += c.value; }"
    "k = Counter(0);"
    "for (i = 0; i < 20000; i++) { k.add(3); }"
    "result(total + k.value);";

const char* const kData =
    "a = []; total = 0;"
    "for (i = 0; i < 5000; i++) { a[i] = i * 2; }"
    "for (i = 0; i < 5000; i++) { total += a[i]; }"
    "r = [name=\"record\", hits=7, weight=3];"
    "for (i = 0; i < 10000; i++) { total += r.hits; }"
    "s = \"abcabcabc\"; b = 0; j = 0;"
    "for (i = 0; i < 5000; i++) { if (s[j] == \"b\") { b++; } j++; if (j == 9) { j = 0; } }"
    "result(total + b);";

// What the scripts passed to `result`, as text.
std::vector<std::string>& result_lines() {
    static std::vector<std::string> lines;
    return lines;
}

void run_paths(benchmark::State& state, path_switch which, const char* text,
               const std::string& expected) {
    context().main_thread = current_thread_id();
    compile_context().current_compiling_block = nullptr;
    log().quiet = true;  // no "compiling..." line for every pass
    auto engine = std::make_unique<vrkscript>();
    engine->registerFunction(
        "result",
        [](vrkblock*, std::vector<vrkvar*>& args, void*, vrkvar& result) -> vrkvar* {
            for (vrkvar* a : args) result_lines().push_back(to_string(a));
            return &result;
        },
        16, nullptr, "keeps its arguments as text", true, true);
    std::vector<std::string>& results = result_lines();
    value_context().*which = state.range(0) != 0;
    for (auto _ : state) {
        state.PauseTiming();
        results.clear();
        auto parser = std::make_unique<vrkparser>(engine.get(), text, false, true);
        state.ResumeTiming();
        vrkvar* r = parser->root_block ? run(parser->root_block, nullptr, 0, nullptr) : nullptr;
        benchmark::DoNotOptimize(r);
        state.PauseTiming();
        parser.reset();
        state.ResumeTiming();
    }
    value_context().*which = true;
    if (results.size() != 1 || results[0] != expected)
        state.SkipWithError("the script did not pass its expected result");
}

void BM_CallPaths(benchmark::State& state) {
    run_paths(state, &vrkvalue_context::call_paths, kCalls, "610");
}
void BM_LibraryCallPaths(benchmark::State& state) {
    run_paths(state, &vrkvalue_context::call_paths, kLibrary, "414626");
}
void BM_InstancePaths(benchmark::State& state) {
    run_paths(state, &vrkvalue_context::instance_paths, kInstances, "2059000");
}
void BM_DataPaths(benchmark::State& state) {
    run_paths(state, &vrkvalue_context::data_paths, kData, "25066667");
}
BENCHMARK(BM_CallPaths)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LibraryCallPaths)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_InstancePaths)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DataPaths)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace vrk
