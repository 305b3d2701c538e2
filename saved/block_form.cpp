// Writing and reading the block record, field by field, with the references
// that stand in for pointers.
#include "saved/block_form.h"

#include <string>
#include <utility>
#include <vector>

#include "base/log.h"
#include "base/script_lock.h"
#include "saved/block_links.h"
#include "saved/relink.h"
#include "saved/value_form.h"
#include "values/cache.h"
#include "values/cell.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/engine.h"
#include "vm/globals.h"
#include "vm/instruction.h"
#include "vm/run.h"

namespace vrk {

namespace {

// First byte of a saved variable: what kind of cell follows.
enum class VarForm : uint8_t {
    plain = 0,     // then the value byte below
    declared = 1,  // a declared function: its name, the cell with trailer, then the value byte
    pristine = 2,  // a blank INT, or any native object handle: read as INT 0
    cleared = 3,   // this/self, a parameter or a blank VOID: read as VOID
    buffer = 4,    // a static DATA buffer: its size only
    captured = 5,  // a captured copy: read as VOID, CAPTURED
};

// Second byte: what of the value is kept.
enum class ValueForm : uint8_t {
    layout = 0,    // JSON laid out by a struct: the struct's child position
    flags = 1,     // a plain variable: its flags only
    constant = 2,  // a constant: the cell with trailer, then a cell link for functions and classes
};

// First count of an instruction's block reference, and of a cell link.
namespace link {
inline constexpr int32_t native = -1;      // a native function, by name
inline constexpr int32_t first = -2;       // instructions: a registered function; cells: no block
inline constexpr int32_t child = -3;       // a child of this block, by position
inline constexpr int32_t global = -4;      // a global variable's block, by name
inline constexpr int32_t external = -5;    // an extern function, by name
inline constexpr int32_t named_cell = -6;  // a named cell's function, by name
}  // namespace link

// The child positions of a relative reference that mean "no step".
constexpr uint16_t kNoStep = 0xFFFF;
// The two opcodes whose `ref` is an operand the code owns (a native record, a
// look-up cache). Neither is saved, and on loading their `ref` is always 0,
// whatever a damaged record says.
bool owns_operand(uint8_t op) {
    return op == static_cast<uint8_t>(Op::INDEX) || op == static_cast<uint8_t>(Op::EXTERNAL);
}

// A plain operand as it comes back. Only the opcodes that keep a number in
// `ref` (call preparation, push, argument, pop, swap) keep one; for the others
// `ref` is a block, so a plain operand can only be 0 or -1, and anything else
// (which no writer produces) would be taken for a block by the run loop.
uint64_t plain_operand(uint8_t op, uint64_t ref) {
    if (ref == 0 || ref == kRefMinusOne) return owns_operand(op) ? 0 : ref;
    if (ref >= kFirstBlockRef) return 0;
    switch (static_cast<Op>(op)) {
        case Op::CALL_PREP:
        case Op::PUSH:
        case Op::ARG:
        case Op::POP:
        case Op::SWAP: return ref;
        default: return 0;
    }
}

// The smallest complete block record: header, markers, and a zero or -1 for
// every count. No more records than this allows are made for a buffer.
constexpr std::size_t kMinRecordBytes = 33;

// Static buffers beyond this size in a record, or beyond the second size all
// together in one load, are taken for corruption: a few bytes of a damaged
// file would otherwise ask for gigabytes.
constexpr int32_t kMaxStaticBuffer = 64 * 1024 * 1024;
constexpr std::size_t kMaxStaticBuffersPerLoad = std::size_t{256} * 1024 * 1024;

bool is_pristine(const vrkvar* v, Tag tag) {
    return v->type == tag && v->constant == 0 && v->flags == 0 && v->attrs == 0 && v->aux == 0 &&
           v->value.i == 0 && v->block == nullptr;
}

// ---- writing ----------------------------------------------------------------------------

// While a block prepares a call, its callee's parameter cells sit in the
// caller's `params`; the write sees them back in place.
class params_back {
public:
    explicit params_back(vrkblock* b) : b_(b) {
        vrkblock* callee = b->callee;
        if (b->params_bound && callee && !b->params.empty() && block_alive(callee) &&
            callee->vars.size() >= b->params.size()) {
            active_ = true;
            swap();
        }
    }
    ~params_back() {
        if (active_) swap();
    }
    params_back(const params_back&) = delete;
    params_back& operator=(const params_back&) = delete;

private:
    void swap() {
        auto& vars = b_->callee->vars;
        const std::size_t n = b_->params.size();
        for (std::size_t i = 0; i < n; ++i) std::swap(vars[n - 1 - i], b_->params[i]);
    }

    vrkblock* b_;
    bool active_ = false;
};

class record_writer {
public:
    explicit record_writer(ScriptCacheWriter& w) : w_(w) {}

    void write(vrkblock* b, bool withCode) {
        w_.blocks_open.insert(b);
        ++w_.depth;
        params_back params(b);

        w_.u8(b->compiled);
        w_.u8(b->mode);
        w_.u8(b->kind);
        w_.u8(b->options);
        w_.u8(b->native);
        w_.u8(b->plain_args);
        w_.u8(b->is_function);
        w_.u8(b->is_loop_body);
        w_.u16(static_cast<uint16_t>(b->param_count));
        w_.u16(kRecordMarker);

        if (withCode) {
            std::vector<vrkblock*> saved;
            if (b->children) {
                for (vrkblock* c : *b->children) {
                    if (is_saved_child(c)) saved.push_back(c);
                }
            }
            w_.compact_s32(static_cast<int32_t>(saved.size()));
            for (vrkblock* c : saved) {
                w_.u16(kRecordMarker);
                write(c, true);
            }
        } else {
            w_.compact_s32(-1);
        }
        w_.u16(kRecordMarker);

        std::vector<vrkblock*> dies;
        if (b->die_blocks) {
            for (vrkblock* d : *b->die_blocks) {
                if (block_alive(d)) dies.push_back(d);
            }
        }
        w_.compact_s32(static_cast<int32_t>(dies.size()));
        for (vrkblock* d : dies) write(d, true);
        w_.u16(kRecordMarker);

        if (withCode) {
            w_.compact_s32(static_cast<int32_t>(b->code.size()));
            for (const vrkinstr& ins : b->code) write_instruction(b, ins);
        } else {
            w_.compact_s32(-1);
        }
        w_.u16(kRecordMarker);

        w_.compact_s32(b->this_index);
        w_.compact_s32(b->self_index);
        const auto& vars = b->vars;
        w_.compact_s32(static_cast<int32_t>(vars.size()));
        for (std::size_t i = 0; i < vars.size(); ++i) write_variable(b, i, withCode);
        if (withCode && b->is_class_or_instance()) write_class_slots(b);
        w_.u16(kRecordMarker);

        if (b->kind & kind::EXTERN) {
            std::string name;
            extern_name(b->engine, b, name);
            w_.compact_string(name);
        }
        w_.u16(kRecordMarker);

        if ((b->kind & (kind::CLASS | kind::STRUCT)) && b->names) {
            w_.compact_s32(static_cast<int32_t>(b->names->size()));
            for (const auto& [name, index] : *b->names) {
                w_.compact_s32(static_cast<int32_t>(index));
                w_.compact_string(name);
            }
        } else {
            w_.u8(0);
        }
        w_.u16(kRecordMarker);

        const std::size_t scoped = b->scoped ? b->scoped->size() : 0;
        w_.compact_s32(static_cast<int32_t>(scoped));
        for (std::size_t i = 0; i < scoped; ++i) w_.compact_u32((*b->scoped)[i]);
        const std::size_t captures = b->captures ? b->captures->size() : 0;
        w_.compact_s32(static_cast<int32_t>(captures));
        for (std::size_t i = 0; i < captures; ++i) {
            w_.compact_s32(static_cast<int32_t>((*b->captures)[i].first));
            w_.compact_s32((*b->captures)[i].second);
        }

        --w_.depth;
        w_.blocks_open.erase(b);
    }

private:
    void write_instruction(vrkblock* b, const vrkinstr& ins) {
        w_.u8(ins.op);
        w_.compact_s32(static_cast<int32_t>(static_cast<uint32_t>(ins.arg)));
        const Op op = ins.opcode();
        const bool plain = op == Op::INDEX || op == Op::EXTERNAL ||
                           (op == Op::SET && ins.arg < 0) || ins.ref == kRefMinusOne ||
                           ins.ref < kFirstBlockRef;
        if (plain) {
            w_.u8(0);
            // The look-up cache and the native record are not saved, and any
            // other pointer in a plain position means nothing in another run.
            const bool number = ins.ref == kRefMinusOne || ins.ref < kFirstBlockRef;
            const bool kept = number && op != Op::INDEX && op != Op::EXTERNAL;
            w_.compact_s64(kept ? static_cast<int64_t>(ins.ref) : 0);
            return;
        }
        w_.u8(1);
        write_reference(b, ins);
    }

    void write_reference(vrkblock* b, const vrkinstr& ins) {
        vrkblock* target = ins.ref_block();
        vrkengine* engine = b->engine;
        std::string name;
        const int32_t child = saved_child_index(b, target);
        if (child >= 0) {
            w_.compact_s32(link::child);
            w_.compact_s32(child);
            return;
        }
        // The block itself and the blocks that enclose it are parent steps
        // whatever tables know them: a copy must reach its own variables, and
        // a table entry of the block is made only after its code is read.
        const int32_t steps = parent_steps(b, target);
        if (steps >= 0) {
            put_relative(steps, kNoStep, kNoStep);
            return;
        }
        if (named_cell_name(engine, target, name)) {
            w_.compact_s32(link::named_cell);
            w_.compact_string(name);
            return;
        }
        if (extern_name(engine, target, name)) {
            w_.compact_s32(link::external);
            w_.compact_string(name);
            return;
        }
        if (engine && target == engine->globalBlock) {
            w_.compact_s32(link::global);
            w_.compact_string(target->var_name_at(static_cast<uint32_t>(ins.arg)));
            return;
        }
        if (engine && target == engine->firstBlock) {
            w_.compact_s32(link::first);
            w_.compact_string(target->var_name_at(static_cast<uint32_t>(ins.arg)));
            return;
        }
        if (block_alive(target) && target->native) {
            w_.compact_s32(link::native);
            w_.compact_string(block_name(target));
            return;
        }
        write_relative(b, ins, target);
    }

    // Up from the instruction's block: at each level the level's block itself,
    // then its children, then the constructors of its classes.
    void write_relative(vrkblock* b, const vrkinstr& ins, vrkblock* target) {
        int32_t level = 0;
        for (vrkblock* at = b; at; at = at->parent, ++level) {
            if (at == target) {
                put_relative(level, kNoStep, kNoStep);
                return;
            }
            if (!at->children) continue;
            int32_t position = 0;
            for (vrkblock* c : *at->children) {
                if (!is_saved_child(c)) continue;
                if (c == target) {
                    put_relative(level, static_cast<uint16_t>(position), kNoStep);
                    return;
                }
                if (c->is_class_or_instance() && !c->vars.empty()) {
                    vrkvar* ctor = deref(c->vars[0]);
                    if (ctor && (ctor->type == Tag::FUNCTION || ctor->type == Tag::CLASS) &&
                        ctor->block == target) {
                        const int32_t inner = saved_child_index(c, target);
                        if (inner >= 0) {
                            put_relative(level, static_cast<uint16_t>(position),
                                         static_cast<uint16_t>(inner));
                            return;
                        }
                        log().error("cannot find constructor blk!");
                    }
                }
                ++position;
            }
        }
        log().error("ASM %i index %i BLK %llx", static_cast<int>(ins.op), static_cast<int>(ins.arg),
                    static_cast<unsigned long long>(ins.ref));
        log().error("error finding block for cache!");
        put_relative(level, kNoStep, kNoStep);
    }

    // Parent steps from `b` up to `target` (0: `b` itself), or -1.
    static int32_t parent_steps(vrkblock* b, const vrkblock* target) {
        int32_t level = 0;
        for (vrkblock* at = b; at; at = at->parent, ++level) {
            if (at == target) return level;
        }
        return -1;
    }

    void put_relative(int32_t level, uint16_t first, uint16_t second) {
        w_.compact_s32(level);
        w_.u16(first);
        w_.u16(second);
    }

    void write_variable(vrkblock* b, std::size_t i, bool withCode) {
        vrkvar* v = b->vars[i];
        const auto index = static_cast<int64_t>(i);
        if (!v) {
            w_.u8(static_cast<uint8_t>(VarForm::cleared));
            return;
        }
        if (v->flags & flag::CAPTURED) {
            w_.u8(static_cast<uint8_t>(VarForm::captured));
        } else if (index == b->this_index || index == b->self_index || index < b->param_count ||
                   is_pristine(v, Tag::VOID)) {
            w_.u8(static_cast<uint8_t>(VarForm::cleared));
        } else if (is_pristine(v, Tag::INT) || v->type == Tag::PTR) {
            w_.u8(static_cast<uint8_t>(VarForm::pristine));
        } else if (v->type == Tag::DATA && (v->flags & flag::STATIC_BUFFER)) {
            w_.u8(static_cast<uint8_t>(VarForm::buffer));
            w_.compact_s32(static_cast<int32_t>(v->value.data ? v->value.data->size() : 0));
        } else if (v->flags & flag::DECLARED_FUNCTION) {
            w_.u8(static_cast<uint8_t>(VarForm::declared));
            w_.compact_string(b->var_name_at(static_cast<uint32_t>(i)));
            serialize(v, w_, b, true);
            write_value(b, v, withCode);
        } else {
            w_.u8(static_cast<uint8_t>(VarForm::plain));
            write_value(b, v, withCode);
        }
    }

    void write_value(vrkblock* b, vrkvar* v, bool withCode) {
        if (v->type == Tag::JSON && (v->flags & flag::STRUCT_VAR) && v->block) {
            w_.u8(static_cast<uint8_t>(ValueForm::layout));
            w_.compact_s32(saved_child_index(b, v->block));
        } else if (!v->constant) {
            w_.u8(static_cast<uint8_t>(ValueForm::flags));
            w_.compact_s32(static_cast<int16_t>(v->flags));
        } else {
            w_.u8(static_cast<uint8_t>(ValueForm::constant));
            serialize(v, w_, b, true);
            if (v->type == Tag::FUNCTION || v->type == Tag::CLASS)
                write_cell_link(b, v->block, withCode);
        }
    }

    void write_cell_link(vrkblock* b, vrkblock* target, bool withCode) {
        if (!target || !withCode) {
            w_.compact_s32(link::first);
            return;
        }
        std::string name;
        const int32_t child = saved_child_index(b, target);
        if (child >= 0) {
            w_.compact_s32(link::child);
            w_.compact_s32(child);
            return;
        }
        const int32_t steps = parent_steps(b, target);
        if (steps >= 0) {
            w_.compact_s32(steps);
            return;
        }
        if (named_cell_name(b->engine, target, name)) {
            w_.compact_s32(link::named_cell);
            w_.compact_string(name);
            return;
        }
        if (extern_name(b->engine, target, name)) {
            w_.compact_s32(link::external);
            w_.compact_string(name);
            return;
        }
        if (block_alive(target) && target->native) {
            w_.compact_s32(link::native);
            w_.compact_string(block_name(target));
            return;
        }
        log().error("error finding block for cache!");
        w_.compact_s32(link::first);
    }

    void write_class_slots(vrkblock* b) {
        const auto& vars = b->vars;
        for (uint32_t s = 0; s < kClassSlotCount; ++s) {
            vrkvar* slot = s < vars.size() ? vars[s] : nullptr;
            vrkblock* target = nullptr;
            if (slot && (slot->type == Tag::FUNCTION || slot->type == Tag::CLASS))
                target = slot->block;
            int32_t position = -1;
            if (target) {
                position = saved_child_index(b, target);
                if (position < 0) log().error("cannot find class function!");
            }
            w_.compact_s32(position);
        }
    }

    ScriptCacheWriter& w_;
};

// ---- reading ----------------------------------------------------------------------------

// A relative reference waiting for the whole tree.
struct pending_ref {
    vrkblock* block;    // block of the instruction
    std::size_t index;  // position of the instruction in its code
    int32_t level;      // parent steps
    uint16_t first;     // child position, or all ones
    uint16_t second;    // child position in that child, or all ones
};

// A class or singleton child whose body runs once the tree is complete.
struct pending_run {
    vrkblock* owner;  // the block that declares it
    vrkblock* body;   // the class block
};

struct load_state {
    std::vector<pending_ref> refs;  // references resolved once the whole tree is read
    std::vector<pending_run> runs;  // class bodies run at the end
    std::size_t static_bytes = 0;   // bytes of static buffers made so far
};

class record_reader {
public:
    record_reader(ScriptCacheReader& r, load_state& state) : r_(r), state_(state) {}

    void read(vrkblock* b) {
        if (r_.depth >= kMaxNesting) {
            log().error("saved data nested too deeply!");
            r_.exhaust();
            return;
        }
        ++r_.depth;
        read_fields(b);
        --r_.depth;
    }

private:
    bool marker() { return r_.u16() == kRecordMarker; }

    // A new block below `b`, with its engine and parent.
    static vrkblock* new_child(vrkblock* b) {
        vrkblock* child = block_new(b->engine);
        child->parent = b;
        return child;
    }

    void read_fields(vrkblock* b) {
        b->compiled = r_.u8();
        b->mode = r_.u8();
        b->kind = r_.u8();
        b->options = r_.u8();
        b->native = r_.u8();
        b->plain_args = r_.u8();
        b->is_function = r_.u8();
        b->is_loop_body = r_.u8();
        b->param_count = static_cast<int16_t>(r_.u16());
        if (!marker()) {
            log().error("program error 3.");
            return;
        }

        std::vector<vrkblock*> classes;
        if (!read_children(b, classes)) return;
        if (!marker()) {
            log().error("program error 4.");
            return;
        }

        const int32_t dies = r_.compact_s32();
        const std::size_t possible_dies = r_.remaining() / kMinRecordBytes + 1;
        for (int32_t i = 0; i < dies && static_cast<std::size_t>(i) < possible_dies && !r_.at_end();
             ++i) {
            vrkblock* die = new_child(b);
            adopt_block(b, die);
            b->get_die_blocks().push_back(die);
            read(die);
        }
        if (!marker()) {
            log().error("program error 2.");
            return;
        }

        const int32_t instructions = r_.compact_s32();
        const bool withCode = instructions != -1;
        for (int32_t i = 0; i < instructions && !r_.at_end(); ++i) read_instruction(b);
        if (!marker()) {
            log().error("program error.");
            return;
        }

        b->this_index = r_.compact_s32();
        b->self_index = r_.compact_s32();
        const int32_t variables = r_.compact_s32();
        for (int32_t i = 0; i < variables && !r_.at_end(); ++i) read_variable(b);
        settle_this_and_self(b);
        if (withCode && b->is_class_or_instance()) read_class_slots(b);
        if (!marker()) log().error("program error 5.");

        if (b->kind & kind::EXTERN) {
            const std::string name = r_.compact_string();
            log().log("external...");
            if (b->engine) b->engine->extern_blocks[name] = b;
        }
        if (!marker()) log().error("program error 6.");

        const int32_t names = r_.compact_s32();
        for (int32_t i = 0; i < names && !r_.at_end(); ++i) {
            const int32_t index = r_.compact_s32();
            const std::string name = r_.compact_string();
            if (!b->names_shared) b->get_names()[name] = static_cast<uint32_t>(index);
        }
        if (!marker()) log().error("program end error.");

        read_scoped(b);
        read_captures(b);

        for (vrkblock* body : classes) state_.runs.push_back({b, body});
    }

    // All children are made before the first is read, so that a reference to
    // a later sibling finds its block. False after a bad marker.
    bool read_children(vrkblock* b, std::vector<vrkblock*>& classes) {
        const int32_t count = r_.compact_s32();
        if (count <= 0) return true;
        // Each child is a marker and a record: more children than the buffer
        // can hold are not made.
        const std::size_t possible = r_.remaining() / (2 + kMinRecordBytes);
        const std::size_t made = static_cast<std::size_t>(count) < possible
                                     ? static_cast<std::size_t>(count)
                                     : possible;
        auto& children = b->get_children();
        const std::size_t first = children.size();
        for (std::size_t i = 0; i < made; ++i) children.push_back(new_child(b));
        for (int32_t i = 0; i < count; ++i) {
            if (!marker() || static_cast<std::size_t>(i) >= made) {
                log().error("program error 4 %i %s.", static_cast<int>(i), block_name(b).c_str());
                return false;
            }
            vrkblock* child = children[first + static_cast<std::size_t>(i)];
            read(child);
            if (child->kind & (kind::SINGLETON | kind::CLASS)) classes.push_back(child);
        }
        return true;
    }

    void read_instruction(vrkblock* b) {
        vrkinstr ins;
        ins.op = r_.u8();
        ins.arg = r_.compact_s32();
        const uint8_t reference = r_.u8();
        const std::size_t index = b->code.size();
        if (reference != 1) {
            // Only numbers come back: a cache, a native record or a pointer of
            // another run would point at nothing here.
            ins.ref = plain_operand(ins.op, static_cast<uint64_t>(r_.compact_s64()));
            b->code.push_back(ins);
            return;
        }
        b->code.push_back(ins);
        read_reference(b, index);
        if (owns_operand(ins.op)) b->code[index].ref = 0;
    }

    void read_reference(vrkblock* b, std::size_t index) {
        const int32_t form = r_.compact_s32();
        if (form >= 0) {
            const uint16_t first = r_.u16();
            const uint16_t second = r_.u16();
            state_.refs.push_back({b, index, form, first, second});
            return;
        }
        vrkengine* engine = b->engine;
        vrkinstr& ins = b->code[index];
        switch (form) {
            case link::native: {
                const std::string name = r_.compact_string();
                vrkblock* target = find_named_block(b, name);
                if (!target) log().error("cannot find function %s!", name.c_str());
                ins.ref = reinterpret_cast<uint64_t>(target);
                return;
            }
            case link::first: {
                const std::string name = r_.compact_string();
                const int64_t at = engine && engine->firstBlock
                                       ? engine->firstBlock->find_var_index(name)
                                       : -1;
                if (at < 0) {
                    log().error("cannot find function %s!", name.c_str());
                } else {
                    ins.arg = at;
                }
                ins.ref = reinterpret_cast<uint64_t>(engine ? engine->firstBlock : nullptr);
                return;
            }
            case link::child:
                ins.ref = reinterpret_cast<uint64_t>(saved_child(b, r_.compact_s32()));
                return;
            case link::global: {
                const std::string name = r_.compact_string();
                ins.ref = 0;
                if (!engine) return;
                int64_t at = engine->globalBlock ? engine->globalBlock->find_var_index(name) : -1;
                if (at < 0) {
                    log().warn("cannot find global var %s! creating...", name.c_str());
                    declare_global(engine, name);
                    at = engine->globalBlock->find_var_index(name);
                    // The variable lives as long as the program that asked for it.
                    callback_add([engine, name](uint64_t) { retire_global(engine, name); }, 0, b,
                                 1);
                }
                ins.ref = reinterpret_cast<uint64_t>(engine->globalBlock);
                ins.arg = at;
                return;
            }
            case link::external: {
                const std::string name = r_.compact_string();
                ins.ref = engine ? reinterpret_cast<uint64_t>(engine->extern_blocks[name]) : 0;
                return;
            }
            case link::named_cell:
                ins.ref = reinterpret_cast<uint64_t>(named_cell_block(engine, r_.compact_string()));
                return;
            default: ins.ref = 0; return;
        }
    }

    void read_variable(vrkblock* b) {
        const auto index = static_cast<int64_t>(b->vars.size());
        vrkvar* v = cell_new(Tag::INT);
        b->vars.push_back(v);
        switch (static_cast<VarForm>(r_.u8())) {
            case VarForm::captured:
                reset(v, Tag::VOID);
                v->flags = flag::CAPTURED;
                return;
            case VarForm::cleared: reset(v, Tag::VOID); return;
            case VarForm::pristine: return;
            case VarForm::buffer: {
                const int32_t size = r_.compact_s32();
                std::vector<uint8_t>* data = as_data(v);
                if (size > kMaxStaticBuffer ||
                    (size > 0 && state_.static_bytes + static_cast<std::size_t>(size) >
                                     kMaxStaticBuffersPerLoad)) {
                    log().error("static buffer too large! %i", static_cast<int>(size));
                } else if (size > 0 && data) {
                    data->assign(static_cast<std::size_t>(size), 0);
                    state_.static_bytes += static_cast<std::size_t>(size);
                }
                v->flags |= flag::STATIC_BUFFER;
                return;
            }
            case VarForm::declared: {
                const std::string name = r_.compact_string();
                if (!b->names_shared) b->get_names()[name] = static_cast<uint32_t>(index);
                deserialize(v, r_, b, true);
                read_value(b, v, index);
                return;
            }
            case VarForm::plain: read_value(b, v, index); return;
        }
        // Any other first byte: a corrupt record; the cell stays INT 0.
    }

    void read_value(vrkblock* b, vrkvar* v, int64_t index) {
        switch (static_cast<ValueForm>(r_.u8())) {
            case ValueForm::layout: {
                vrkblock* layout = saved_child(b, r_.compact_s32());
                reset(v, Tag::JSON);
                v->flags |= flag::STRUCT_VAR;
                v->block = layout;
                return;
            }
            case ValueForm::flags: v->flags = static_cast<uint16_t>(r_.compact_s32()); return;
            case ValueForm::constant: {
                deserialize(v, r_, b, true);
                if (v->type == Tag::FUNCTION || v->type == Tag::CLASS) {
                    if (!read_cell_link(b, v, index)) return;
                }
                if (v->attrs & attr::OWNS_RESULT)
                    b->get_scoped().push_back(static_cast<uint32_t>(index));
                v->constant = 1;
                return;
            }
        }
    }

    // The block of a function or class constant; false for "no block".
    bool read_cell_link(vrkblock* b, vrkvar* v, int64_t index) {
        const int32_t form = r_.compact_s32();
        vrkblock* target = nullptr;
        switch (form) {
            case link::first: return false;
            case link::child: target = saved_child(b, r_.compact_s32()); break;
            case link::named_cell: target = named_cell_block(b->engine, r_.compact_string()); break;
            case link::external: {
                const std::string name = r_.compact_string();
                if (b->engine) target = b->engine->extern_blocks[name];
                break;
            }
            case link::native: target = find_named_block(b, r_.compact_string()); break;
            default:
                if (form >= 0) {
                    target = b;
                    for (int32_t i = 0; i < form && target; ++i) target = target->parent;
                    if (!target) log().error("error constructing program...");
                }
                break;
        }
        // A class value holds only a class: releasing a class value may
        // destroy what it holds, and no record may make it hold a block of the
        // tree that is not a class.
        if (target && v->type == Tag::CLASS && (target->kind & kind::CLASS) == 0) {
            log().error("error constructing program...");
            target = nullptr;
        }
        if (index != b->this_index && index != b->self_index) v->block = target;
        return true;
    }

    static void settle_this_and_self(vrkblock* b) {
        const auto count = static_cast<int64_t>(b->vars.size());
        for (int32_t* slot : {&b->this_index, &b->self_index}) {
            if (*slot < 0 || *slot >= count) {
                *slot = -1;
            } else {
                b->vars[static_cast<std::size_t>(*slot)]->flags |= flag::NO_COUNT;
            }
        }
    }

    void read_class_slots(vrkblock* b) {
        for (uint32_t s = 0; s < kClassSlotCount; ++s) {
            const int32_t position = r_.compact_s32();
            if (position < 0) {
                if (position != -1) log().error("cannot find class function!");
                continue;
            }
            vrkblock* target = saved_child(b, position);
            if (!target || s >= b->vars.size()) continue;
            // Slots hold functions; a slot of any other kind (a damaged record)
            // is left as it is.
            vrkvar* slot = b->vars[s];
            if (slot->type == Tag::FUNCTION || slot->type == Tag::VOID) slot->block = target;
        }
    }

    void read_scoped(vrkblock* b) {
        const int32_t count = r_.compact_s32();
        if (count <= 0) return;
        // The saved list is the whole list: it replaces what the constants added.
        auto& scoped = b->get_scoped();
        scoped.clear();
        for (int32_t i = 0; i < count && !r_.at_end(); ++i) scoped.push_back(r_.compact_u32());
    }

    void read_captures(vrkblock* b) {
        const int32_t count = r_.compact_s32();
        const auto vars = static_cast<int64_t>(b->vars.size());
        for (int32_t i = 0; i < count && !r_.at_end(); ++i) {
            const int32_t target = r_.compact_s32();
            const int32_t source = r_.compact_s32();
            b->get_captures().emplace_back(static_cast<uint32_t>(target), source);
            const bool this_target = target == b->this_index;
            for (int32_t at : {target, source}) {
                if (at < 0 || at >= vars) continue;
                vrkvar* cell = b->vars[static_cast<std::size_t>(at)];
                cell->flags |= flag::CAPTURED;
                if (this_target) cell->flags |= flag::NO_COUNT;
            }
        }
    }

    ScriptCacheReader& r_;
    load_state& state_;
};

// Walks a relative reference in the finished tree.
void resolve(const pending_ref& p) {
    vrkinstr& ins = p.block->code[p.index];
    if (owns_operand(ins.op)) return;
    vrkblock* at = p.block;
    for (int32_t i = 0; i < p.level; ++i) {
        at = at->parent;
        if (!at) {
            log().error("error constructing program... %i", static_cast<int>(p.level));
            ins.ref = 0;
            return;
        }
    }
    const auto first = static_cast<int16_t>(p.first);
    if (first >= 0) {
        if (vrkblock* child = saved_child(at, first)) {
            at = child;
        } else {
            log().error("error constructing program (blk index out of range)... %i",
                        static_cast<int>(first));
        }
    }
    const auto second = static_cast<int16_t>(p.second);
    if (second >= 0) {
        vrkblock* inner = saved_child(at, second);
        if (!inner) {
            log().error("error constructing program (cannot get constructor from block)... %i",
                        static_cast<int>(second));
            ins.ref = 0;
            return;
        }
        at = inner;
    }
    ins.ref = reinterpret_cast<uint64_t>(at);
}

// Runs a class body once, with the owner's first CLASS variable of that class
// as `this`.
void run_class_body(const pending_run& p) {
    if (!block_alive(p.owner) || !block_alive(p.body)) return;
    vrkvar* self = kSelfUnchanged;
    for (vrkvar* v : p.owner->vars) {
        if (v && v->type == Tag::CLASS && v->block == p.body) {
            self = v;
            break;
        }
    }
    run(p.body, nullptr, 0, self);
}

}  // namespace

void toCache(vrkblock* block, ScriptCacheWriter& writer, bool withCode) {
    ScriptLock lock;
    record_writer(writer).write(block, withCode);
}

void fromCache(vrkblock* block, ScriptCacheReader& reader) {
    ScriptLock lock;
    load_state state;
    record_reader(reader, state).read(block);
    for (const pending_ref& ref : state.refs) resolve(ref);
    relink_loaded(block);
    for (const pending_run& run : state.runs) run_class_body(run);
}

}  // namespace vrk
