// Entry into a run, the binding of `this`, the normal end, the opcodes that
// act as loads, code appended after a run, and the traces of runtime errors.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "frontend/emit.h"
#include "support/program.h"

namespace vrk::test {
namespace {

using VmRunTest = VmTest;

TEST_F(VmRunTest, ABusyBlockIsNotEnteredAgain) {
    program p = w.block();
    p.block()->full_source = string_new();
    *p.block()->full_source = "x = 1";
    const uint32_t x = p.variable("x");
    p.load(x).emit(Op::INC);
    program caller = w.block();

    p.block()->running = 1;
    vrkvar* r = void_value();
    std::string out = output_of([&] { r = p.run(0, caller.block()); });
    EXPECT_NE(out.find("Script already running! x = 1"), std::string::npos) << out;
    EXPECT_EQ(r, nullptr);
    EXPECT_EQ(caller.block()->suspended, 1) << "the caller waits";
    EXPECT_FALSE(p.block()->running) << "the refusal clears the flag all the same";
    EXPECT_EQ(to_int(p.var(x)), 0);

    p.block()->resume_at = 1;
    out = output_of([&] { p.run(0); });
    EXPECT_NE(out.find("Script already running!"), std::string::npos)
        << "a suspended block is not restarted";
    p.block()->resume_at = 0;

    program n = w.native(
        "n", [](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar&) { return nullptr; }, 0);
    n.block()->running = 1;
    EXPECT_EQ(n.run(), void_value()) << "a native block may be entered while it runs";
}

TEST_F(VmRunTest, SelfBindsThisForTheRun) {
    program p = w.block();
    vrkvar* self = p.block()->declare_var("this");
    const uint32_t value = p.variable("value", 7);
    const uint32_t ref = p.variable("ref");
    set_ref(p.var(ref), p.var(value));
    vrk::run(p.block(), nullptr, 0, p.var(ref));
    EXPECT_EQ(to_int(self), 7) << "taken from the end of the REF chain";
    EXPECT_EQ(p.block()->self_cell, nullptr) << "forgotten at the end of the run";
    EXPECT_EQ(p.block()->caller, p.block()) << "a run from outside is its own caller";

    set_int(p.var(value), 8);
    vrk::run(p.block(), nullptr, 0, kSelfUnchanged);
    EXPECT_EQ(to_int(self), 7) << "no binding";
}

TEST_F(VmRunTest, UnknownOpcodesLoadAndTheEndReportsALeftoverStack) {
    program p = w.block();
    const uint32_t x = p.variable("x", 5);
    for (uint8_t op : {uint8_t{4}, uint8_t{30}, uint8_t{44}, uint8_t{255}}) {
        p.block()->code = {vrkinstr{op, p.ref(), x}};
        EXPECT_EQ(p.run(), p.var(x)) << "opcode " << int{op};
    }
    program q = w.block();
    q.emit(Op::PUSH, 2, 0);
    EXPECT_NE(output_of([&] { q.run(); }).find("\nstack size: 3\n"), std::string::npos);
}

// The run loop notes on an instruction which fused sequence starts there the
// first time it takes it. Code a block gets after it has run (the prompt
// appends each line) must not find a note that is no longer true.
TEST_F(VmRunTest, CodeAppendedAfterARunRunsAsItReads) {
    program p = w.block();
    const uint32_t a = p.variable("a", 1);
    const uint32_t b = p.variable("b", 2);
    p.load(a);
    EXPECT_EQ(p.run(), p.var(a)) << "the load alone, at the end of the code";
    p.emit(Op::ARG, 0, 1).load(b).emit(Op::CMP, cmp_code::LESS);
    EXPECT_EQ(p.run(), true_value()) << "a < b once the comparison follows";
    set_int(p.var(a), 3);
    EXPECT_EQ(p.run(), false_value());
    set_string(p.var(a), "x");
    set_string(p.var(b), "y");
    EXPECT_EQ(p.run(), true_value()) << "texts take the comparison routine";
}

// Counts no compiler writes, as a damaged program file may hold them: a PUSH
// of millions of slots is refused, a POP past the bottom reports once.
TEST_F(VmRunTest, DamagedSlotCountsAreReportedNotObeyed) {
    program p = w.block();
    p.emit(Op::PUSH, 400000000, 0);
    std::string out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("cannot push 400000000 slots!"), std::string::npos) << out;
    EXPECT_EQ(out.find("stack size:"), std::string::npos) << "nothing was pushed";

    program q = w.block();
    q.emit(Op::PUSH, 1, 0).emit(Op::POP, 400000000, 0);
    out = output_of([&] { q.run(); });
    std::size_t reports = 0;
    for (std::size_t at = out.find("stack underflow!!!"); at != std::string::npos;
         at = out.find("stack underflow!!!", at + 1))
        ++reports;
    EXPECT_EQ(reports, 1u) << out;
}

TEST_F(VmRunTest, TracesNameEveryBlockOfTheChain) {
    const std::string no_info =
        "line 0 in file: MEMORY\ninternal debug info error (no debug info)!\n\n";
    program failing = w.block();
    failing.emit(Op::SWAP, 5, 0);
    // A native in the middle of the chain shows as an external block.
    vrkblock* native_block = nullptr;
    program n = w.native(
        "probe",
        [&native_block, &failing](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar&) {
            vrk::run(failing.block(), native_block, 0, kSelfUnchanged);
            return nullptr;
        },
        0);
    native_block = n.block();
    program p = w.block();
    p.call(p.function_var("probe", n.block()), {});
    const std::string out = output_of([&] { p.run(); });
    EXPECT_NE(
        out.find("Runtime error: SWAP_ERROR\n" + no_info + "external block\nprobe\n\n" + no_info),
        std::string::npos)
        << out;

    // The running index is not stored per instruction: a block that has not
    // been suspended shows the line of instruction 0.
    program lines = w.block();
    lines.block()->line_table = std::make_unique<std::map<uint32_t, vrkline_entry>>();
    (*lines.block()->line_table)[0] = vrkline_entry{0, 0, 3, "  first()"};
    (*lines.block()->line_table)[1] = vrkline_entry{1, 2, 4, "second()"};
    lines.emit(Op::NOP).emit(Op::NOP).emit(Op::SWAP, 0, 7);
    EXPECT_NE(
        output_of([&] { lines.run(); }).find("SWAP_ERROR\nline 3 in file: MEMORY\n-> first()\n\n"),
        std::string::npos);
}

}  // namespace
}  // namespace vrk::test
