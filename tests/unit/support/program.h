// A small builder for hand-made programs of the virtual machine.
//
// Tests of the run loop do not go through the compiler: they make blocks,
// give them hidden constant variables (the way literals live in a block),
// append instructions by opcode and run them. A `workshop` owns every block it
// made and deletes them at the end of the test; a `program` is a view of one
// block with helpers to fill and run it. Call sequences are emitted the way
// the compiler emits them, so a test can call a script function or a native
// one with a single line.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/script_lock.h"
#include "saved/block_image.h"
#include "values/cell.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/instruction.h"
#include "vm/run.h"

namespace vrk::test {

// The `ref` of an instruction that names a block.
inline uint64_t ref_of(const vrkblock* b) { return reinterpret_cast<uint64_t>(b); }

class program {
public:
    explicit program(vrkblock* b) : b_(b) {}

    vrkblock* block() const { return b_; }
    uint64_t ref() const { return ref_of(b_); }
    // Index the next emitted instruction will have.
    uint32_t here() const { return static_cast<uint32_t>(b_->code.size()); }

    // ---- variables ----------------------------------------------------------------
    // A hidden constant, as the compiler makes for a literal.
    uint32_t constant(int64_t v) {
        return add(make_constant([v](vrkvar* c) { set_int(c, v); }));
    }
    uint32_t constant_string(const std::string& s) {
        return add(make_constant([s](vrkvar* c) { set_string(c, s); }));
    }
    // A plain named variable holding an integer.
    uint32_t variable(const std::string& name, int64_t v = 0) {
        vrkvar* cell = b_->declare_var(name);
        set_int(cell, v);
        return static_cast<uint32_t>(b_->find_var_index(name));
    }
    // A variable holding a FUNCTION cell of `fn` (script or native block).
    uint32_t function_var(const std::string& name, vrkblock* fn) {
        vrkvar* cell = b_->declare_var(name);
        reset(cell, Tag::FUNCTION);
        cell->block = fn;
        cell->aux = static_cast<uint16_t>(fn->param_count);
        if (fn->native) {
            cell->attrs |= attr::NATIVE_FUNCTION;
            cell->flags |= flag::CAPTURED;
            cell->value.native = reinterpret_cast<vrknative*>(fn->code.front().ref);
        }
        return static_cast<uint32_t>(b_->find_var_index(name));
    }
    vrkvar* var(uint32_t i) const { return b_->vars[i]; }

    // ---- code -------------------------------------------------------------------------
    program& emit(Op op, int64_t arg = 0, uint64_t ref = 0) {
        b_->code.push_back(vrkinstr{static_cast<uint8_t>(op), ref, arg});
        return *this;
    }
    program& load(uint32_t i) { return emit(Op::LOAD, i, ref()); }
    program& load_from(const program& owner, uint32_t i) { return emit(Op::LOAD, i, owner.ref()); }
    program& set(uint32_t i) { return emit(Op::SET, i, ref()); }
    program& ret() { return emit(Op::LOAD, load_code::RETURN, 0); }
    // `a op b` into a hidden result variable: a; SET hidden; OP_TMP; b; OP.
    program& binary(Op step, Op op, uint32_t a, uint32_t b) {
        const uint32_t hidden = add(cell_new(Tag::INT));
        return load(a).set(hidden).emit(step).load(b).emit(op);
    }
    // The call sequence of `fn(args...)` for the function held by variable `fn_var`.
    program& call(uint32_t fn_var, std::initializer_list<uint32_t> args) {
        load(fn_var)
            .emit(Op::LOAD, load_code::CALL_START, 0)
            .emit(Op::CALL_PREP, static_cast<int64_t>(args.size()), 0);
        const std::vector<uint32_t> list(args);
        for (std::size_t i = 0; i < list.size(); ++i) {
            const bool last = i + 1 == list.size();
            load(list[i]).emit(Op::ARG, static_cast<int64_t>(i + 1), last ? 0 : 1);
        }
        emit(Op::CALL_PREP, 0, kRefMinusOne);
        for (std::size_t i = list.size(); i-- > 0;) {
            const bool last = i + 1 == list.size();
            emit(Op::POP, 1, last ? 3 : 1).emit(Op::SET, static_cast<int64_t>(i), kRefMinusOne);
        }
        return emit(Op::RESET, 1, 0).emit(Op::CALL, 0, 0);
    }

    // ---- running ---------------------------------------------------------------------
    vrkvar* run(uint32_t start = 0, vrkblock* caller = nullptr) {
        return vrk::run(b_, caller, start, kSelfUnchanged);
    }
    vrkvar* resume() { return vrk::resume(b_, nullptr, nullptr); }
    vrkvar* top() const { return b_->stack.empty() ? nullptr : b_->stack.back(); }
    int16_t temps_in_use() const { return b_->temp_pool.in_use; }

private:
    template <class Fill>
    static vrkvar* make_constant(Fill fill) {
        vrkvar* c = cell_new(Tag::INT);
        fill(c);
        c->constant = 1;
        return c;
    }
    uint32_t add(vrkvar* cell) {
        b_->vars.push_back(cell);
        return static_cast<uint32_t>(b_->vars.size() - 1);
    }

    vrkblock* b_;
};

// Makes `cell` a handle of a live native object; the handle holds no count, so
// letting it go leaves the object alone.
inline void make_handle(vrkvar* cell, vrkobject* object) {
    reset(cell, Tag::PTR);
    cell->value.i = static_cast<int64_t>(object->registry_id);
    cell->handle_index = object->registry_index;
    cell->set_aux(1, kHandleMark);
}

// Owns the blocks of one test.
class workshop {
public:
    workshop() = default;
    workshop(const workshop&) = delete;
    workshop& operator=(const workshop&) = delete;
    ~workshop() {
        for (auto it = owned_.rbegin(); it != owned_.rend(); ++it) block_delete(*it);
    }

    program block() { return program(keep(block_new(nullptr))); }
    // A function body with `params` VOID parameter variables p0, p1, ...
    program function(int params) {
        vrkblock* fn = keep(block_new(nullptr));
        fn->is_function = 1;
        fn->param_count = static_cast<int16_t>(params);
        for (int i = 0; i < params; ++i) reset(fn->declare_var("p" + std::to_string(i)), Tag::VOID);
        return program(fn);
    }
    // A native block as the engine registers a builtin: one EXTERNAL with the
    // native record, VOID parameter cells, its name as its text.
    program native(const std::string& name, vrkbuiltin_fn fn, int params, bool deref_args = false) {
        vrkblock* b = keep(block_new(nullptr));
        b->code_text = string_new();
        *b->code_text = name;
        auto* record = new vrknative{std::move(fn), nullptr, deref_args};
        b->code.push_back(
            vrkinstr{static_cast<uint8_t>(Op::EXTERNAL), reinterpret_cast<uint64_t>(record), -1});
        b->param_count = static_cast<int16_t>(params);
        b->native = 1;
        for (int i = 0; i < params; ++i) b->vars.push_back(cell_new(Tag::VOID));
        return program(b);
    }
    // A nested body owned by `parent` (RUN_CHILD index = order of creation).
    program child(const program& parent) {
        vrkblock* c = block_new(nullptr);
        c->parent = parent.block();
        parent.block()->get_children().push_back(c);
        return program(c);
    }

private:
    vrkblock* keep(vrkblock* b) {
        owned_.push_back(b);
        return b;
    }
    std::vector<vrkblock*> owned_;
};

// Base of the virtual machine tests: the test thread is the main thread, so the
// pools may be used.
class VmTest : public ::testing::Test {
protected:
    // Blocks are copied through their saved record, which the engine installs
    // when it is created; these tests run blocks without an engine.
    void SetUp() override {
        context().main_thread = current_thread_id();
        install_block_image();
    }

    // Everything the log printed while `fn` ran.
    static std::string output_of(const std::function<void()>& fn) {
        ::testing::internal::CaptureStdout();
        fn();
        return ::testing::internal::GetCapturedStdout();
    }

    workshop w;
};

}  // namespace vrk::test
