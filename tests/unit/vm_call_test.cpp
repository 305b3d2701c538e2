// Calls: parameter passing by pointer swap and its restore, native functions
// through EXTERNAL, member calls, the faults of a call, and suspension of a
// call with its resumption.
#include <string>
#include <vector>

#include "frontend/emit.h"
#include "support/program.h"

namespace vrk::test {
namespace {

using VmCallTest = VmTest;

// A native that suspends its caller the first time it is called.
vrkbuiltin_fn napping(int& calls) {
    return [&calls](vrkblock* caller, std::vector<vrkvar*>&, void*, vrkvar&) -> vrkvar* {
        if (calls++ == 0) caller->suspended = 2;
        return nullptr;
    };
}

TEST_F(VmCallTest, ParametersAreSwappedInAndRestored) {
    program f = w.function(2);
    f.binary(Op::SUB_TMP, Op::SUB, 0, 1).ret();  // return p0 - p1
    const std::vector<vrkvar*> own = f.block()->vars;

    program p = w.block();
    const uint32_t fn = p.function_var("f", f.block());
    p.call(fn, {p.constant(10), p.constant(3)});
    vrkvar* r = p.run();
    EXPECT_EQ(r, &f.block()->result);
    EXPECT_EQ(to_int(r), 7) << "arguments arrive in declared order";
    EXPECT_EQ(f.block()->vars, own) << "the callee's own cells are back in place";
    EXPECT_EQ(own[0]->type, Tag::VOID) << "the argument was never copied into them";
    EXPECT_TRUE(p.block()->params.empty());
    EXPECT_FALSE(p.block()->params_bound);
    EXPECT_TRUE(p.block()->callblocks.empty());
    EXPECT_EQ(p.temps_in_use(), 0);
}

TEST_F(VmCallTest, NativeFunctionsReceiveTheirArgumentsInOrder) {
    std::vector<std::string> seen;
    auto record = [&seen](vrkblock*, std::vector<vrkvar*>& args, void*, vrkvar& res) {
        for (vrkvar* arg : args) seen.push_back(tag_name(arg->type) + ":" + to_string(arg));
        set_int(&res, 99);
        return &res;
    };
    program plain = w.native("plain", record, 2);
    program derefs = w.native("derefs", record, 2, true);
    const std::vector<vrkvar*> own = plain.block()->vars;

    program p = w.block();
    const uint32_t one = p.constant(1);
    const uint32_t r = p.variable("r");
    set_ref(p.var(r), p.var(p.variable("x", 5)));
    p.call(p.function_var("plain", plain.block()), {one, r})
        .call(p.function_var("derefs", derefs.block()), {one, r});
    vrkvar* answer = p.run();
    EXPECT_EQ(answer, &p.block()->native_result);
    EXPECT_EQ(to_int(answer), 99);
    EXPECT_EQ(seen, (std::vector<std::string>{"INT:1", "REF:REF", "INT:1", "INT:5"}));
    EXPECT_EQ(plain.block()->vars, own) << "a native block's variables are never touched";
    EXPECT_TRUE(p.block()->params.empty());
    EXPECT_EQ(p.temps_in_use(), 0);
}

TEST_F(VmCallTest, ReturnOfANativeResultFallsThrough) {
    program n = w.native(
        "five",
        [](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& res) {
            set_int(&res, 5);
            return &res;
        },
        0);
    program p = w.block();
    p.call(p.function_var("five", n.block()), {}).ret();
    vrkvar* r = p.run();
    EXPECT_EQ(r, &p.block()->native_result) << "the value falls through to the end of the block";
    EXPECT_EQ(to_int(r), 5);
    const uint32_t nine = p.constant(9);
    p.load(nine);
    EXPECT_EQ(p.run(), p.var(nine)) << "and the instruction behind the return still runs";

    program q = w.block();
    q.load(q.variable("x", 4)).ret().load(q.constant(10));
    r = q.run();
    EXPECT_EQ(r, &q.block()->result) << "any other value is copied and ends the run";
    EXPECT_EQ(to_int(r), 4);
    EXPECT_TRUE(q.block()->return_signal) << "outside a function body the return travels up";
}

TEST_F(VmCallTest, CallFaults) {
    program f = w.function(1);
    program p = w.block();
    const uint32_t a = p.constant(1);
    p.call(p.function_var("f", f.block()), {a, a});
    std::string out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("Runtime error: TOO_MANY_PARAMS"), std::string::npos) << out;
    EXPECT_NE(out.find("2 > 1"), std::string::npos) << out;

    program cls = w.block();
    cls.block()->kind = kind::CLASS;
    cls.block()->make_class_slots();  // no constructor
    program q = w.block();
    const uint32_t k = q.variable("k");
    reset(q.var(k), Tag::CLASS);
    q.var(k)->block = cls.block();
    q.var(k)->flags |= flag::NO_COUNT;
    q.load(q.variable("number", 3))
        .emit(Op::LOAD, load_code::CALL_START, 0)
        .load(k)
        .emit(Op::LOAD, load_code::CALL_START, 0);
    out = output_of([&] { q.run(); });
    const std::size_t first = out.find("Runtime error: NOT_A_FUNCTION");
    EXPECT_NE(first, std::string::npos) << out;
    EXPECT_NE(out.find("Runtime error: NOT_A_FUNCTION", first + 1), std::string::npos) << out;
    EXPECT_EQ(q.top(), nullptr);
    reset(q.var(k), Tag::INT);
}

TEST_F(VmCallTest, MemberCallBindsThis) {
    program f = w.function(0);
    f.block()->declare_var("this");
    program inst = w.block();
    inst.block()->kind = kind::INSTANCE;
    const uint32_t method = inst.function_var("m", f.block());

    program p = w.block();
    const uint32_t obj = p.variable("obj");
    reset(p.var(obj), Tag::CLASS);
    p.var(obj)->block = inst.block();
    p.var(obj)->flags |= flag::NO_COUNT;
    p.load(obj)
        .emit(Op::CLASS_ACCESS, method, 0)
        .emit(Op::LOAD, load_code::CALL_START, 0)
        .emit(Op::CALL_PREP, 0, 0);
    p.emit(Op::CALL_PREP, 0, kRefMinusOne).emit(Op::RESET, 1, 0).emit(Op::CALL, 0, 0);
    p.run();
    EXPECT_EQ(f.block()->this_var()->block, inst.block());
    EXPECT_EQ(p.block()->member_owner, nullptr) << "the owner is used up by the call";
    reset(p.var(obj), Tag::INT);
}

TEST_F(VmCallTest, BusyFunctionsMakeTheCallerWait) {
    program f = w.function(0);
    f.block()->options = 1;    // locked
    f.block()->resume_at = 3;  // and suspended elsewhere
    program p = w.block();
    p.call(p.function_var("f", f.block()), {});
    EXPECT_EQ(p.run(), kSuspended);
    EXPECT_EQ(p.block()->resume_at, 2u) << "CALL_PREP runs again when resumed";
    f.block()->resume_at = 0;
    EXPECT_NE(p.resume(), kSuspended);
    EXPECT_EQ(p.temps_in_use(), 0);

    program n = w.native(
        "held", [](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar&) { return nullptr; }, 0);
    n.block()->hold = 1;
    program q = w.block();
    q.call(q.function_var("held", n.block()), {});
    vrkvar* r = nullptr;
    EXPECT_NE(output_of([&] { r = q.run(); }).find("Runtime error: EXTERNAL_BUSY"),
              std::string::npos);
    EXPECT_EQ(r, kSuspended);
    n.block()->hold = 0;
}

TEST_F(VmCallTest, NativeSuspendsTheCallerAfterTheCall) {
    int calls = 0;
    program nap = w.native("nap", napping(calls), 1);
    program p = w.block();
    const uint32_t after = p.variable("after");
    p.call(p.function_var("nap", nap.block()), {p.constant(1)});
    const uint32_t call_index = p.here() - 1;
    p.load(after).emit(Op::INC);

    EXPECT_EQ(p.run(), kSuspended);
    EXPECT_EQ(p.block()->resume_at, call_index + 1) << "stopped after the CALL";
    EXPECT_TRUE(p.block()->callblocks.empty());
    EXPECT_TRUE(p.block()->params.empty());
    EXPECT_FALSE(p.block()->running);
    EXPECT_EQ(to_int(p.var(after)), 0);

    p.resume();
    EXPECT_EQ(to_int(p.var(after)), 1) << "resumed from resume_at";
    EXPECT_EQ(p.block()->resume_at, 0u);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(p.temps_in_use(), 0);
}

TEST_F(VmCallTest, SuspendedCalleeKeepsItsArgumentsUntilResumed) {
    int calls = 0;
    program nap = w.native("nap", napping(calls), 0);
    program f = w.function(1);
    f.call(f.function_var("nap", nap.block()), {}).load(0).ret();  // nap(); return p0
    vrkvar* own = f.var(0);

    program p = w.block();
    p.call(p.function_var("f", f.block()), {p.constant(42)});
    const uint32_t call_index = p.here() - 1;
    EXPECT_EQ(p.run(), kSuspended);
    EXPECT_EQ(p.block()->resume_at, call_index) << "the CALL runs again to resume the callee";
    EXPECT_EQ(to_int(f.var(0)), 42) << "the argument stays bound while the callee waits";
    EXPECT_NE(f.var(0), own);

    vrkvar* r = p.resume();
    EXPECT_EQ(to_int(r), 42);
    EXPECT_EQ(f.var(0), own) << "restored when the call has finished";
    EXPECT_EQ(p.temps_in_use(), 0);
}

}  // namespace
}  // namespace vrk::test
