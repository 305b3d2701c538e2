// The block record: construction, variables, reserved class slots, and the
// ordered tear-down of a block.
#include "vm/block.h"

#include <algorithm>
#include <type_traits>
#include <unordered_set>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "values/value_context.h"
#include "vm/block_hooks.h"
#include "vm/engine.h"
#include "vm/errors.h"
#include "vm/run.h"

namespace vrk {

static_assert(std::is_same_v<vrklive_node, decltype(vrkvalue_context::live_blocks)::node_type>,
              "a retired block keeps its entry of the live blocks");

const char* const kClassSlotNames[kClassSlotCount] = {
    "constructor", "destructor", "opadd",    "opsub",  "opmult",
    "opdiv",       "oparray",    "opstring", "opcopy",
};

namespace {

source_splitter& splitter_slot() {
    static source_splitter fn = nullptr;  // installed once by the front end at start-up
    return fn;
}

void mark_embedded_cells(vrkblock* b) {
    b->result.flags = flag::MOVABLE;
    b->result.attrs = attr::NO_REF_WRAP;
    b->native_result.flags = flag::MOVABLE;
    b->native_result.attrs = attr::NO_REF_WRAP;
    b->scratch.flags = flag::MOVABLE;
}

// The registry's type of a block, worked out once.
uint32_t block_type_hash() {
    static const uint32_t hash = registry_type_hash<vrkblock>();
    return hash;
}

// Enters the block into the set of live blocks. Making a block also installs
// the trace writer of the value layer's fault reports (values/error_report.h)
// and its block hooks (values/block_hooks.h): no report can name a block, and
// no cell can hold one, before the first one exists.
void enter_live(vrkblock* b) {
    vrkvalue_context& ctx = value_context();
    ctx.live_blocks[b] = &b->vars;
    ctx.trace_writer = &trace;
    install_block_hooks(ctx);
}

// reset(cell, Tag::INT) for a cell whose value word is the whole value (a
// number, VOID, an EXT, a reference, a function without a closure record, a
// class cell without a block): nothing to release, so only the fields reset
// clears are cleared, in line. False for any other cell, which takes reset
// itself. A constant is left alone, as reset leaves it.
[[gnu::always_inline]] inline bool clear_plain_cell(vrkvar* cell) {
    if (cell->constant) return true;
    switch (cell->type) {
        case Tag::FUNCTION:
            if (cell->value.ptr) return false;
            [[fallthrough]];
        case Tag::CLASS:
            if (cell->type == Tag::CLASS && cell->block) return false;
            cell->value.i = 0;
            cell->aux = 0;
            cell->type = Tag::INT;
            cell->attrs &= attr::KEEP_MASK;
            return true;
        case Tag::INT:
            cell->value.i = 0;
            cell->block = nullptr;
            cell->aux = 0;
            cell->attrs &= attr::KEEP_MASK;
            return true;
        case Tag::FLOAT:
        case Tag::VOID:
        case Tag::EXT:
        case Tag::REF:
            cell->value.i = 0;
            cell->aux = 0;
            cell->type = Tag::INT;
            cell->attrs &= attr::KEEP_MASK;
            return true;
        default: return false;
    }
}

// The reset of a variable (or an embedded cell) at the tear-down of its block.
[[gnu::always_inline]] inline void clear_variable(vrkvar* cell, bool short_paths) {
    if (!(short_paths && clear_plain_cell(cell))) reset(cell, Tag::INT);
}

}  // namespace

void set_source_splitter(source_splitter fn) { splitter_slot() = fn; }

vrkblock* block_new(vrkengine* engine) { return new vrkblock(engine); }

vrkblock* block_new(vrkengine* engine, const std::string& text) {
    return new vrkblock(engine, text);
}

void block_delete(vrkblock* b) { delete b; }

bool block_alive(const vrkblock* b) {
    if (!b) return false;
    vrkvalue_context& ctx = value_context();
    // The pointer is only compared, never followed: it may name freed memory,
    // or a new block made where a dead one was (which a destruction in between
    // tells apart).
    const auto address = reinterpret_cast<uintptr_t>(b);
    vrklive_hit& hit = ctx.live_hits[((address >> 4) ^ (address >> 10)) & (kLiveHits - 1)];
    if (hit.block == b && hit.destroyed == ctx.blocks_destroyed) return true;
    if (ctx.live_blocks.find(b) == ctx.live_blocks.end()) return false;
    hit.block = b;
    hit.destroyed = ctx.blocks_destroyed;
    return true;
}

vrkblock* vrkblock_handle::get() const { return dynamic_cast<vrkblock*>(registry_get(index, id)); }

vrkblock_handle vrkblock_handle::of(vrkblock* b) {
    if (!b) return {};
    return {b->registry_index, b->registry_id};
}

bool vrkblock_handle::refers_to(const vrkblock* b) const {
    return b && id != 0 && id == b->registry_id && index == b->registry_index;
}

vrkblock::vrkblock(vrkengine* eng) : engine(eng) {
    ScriptLock lock;
    mark_embedded_cells(this);
    enter_live(this);
}

vrkblock::vrkblock(vrkengine* eng, const std::string& text) : vrkblock(eng) { set_source(text); }

std::map<std::string, uint32_t>& vrkblock::get_names() {
    if (!names) {
        names = std::make_shared<std::map<std::string, uint32_t>>();
        names_shared = 0;
    }
    return *names;
}

std::vector<vrkblock*>& vrkblock::get_children() {
    if (!children) children = std::make_unique<std::vector<vrkblock*>>();
    return *children;
}

std::vector<vrkblock*>& vrkblock::get_copies() {
    if (!copies) copies = std::make_unique<std::vector<vrkblock*>>();
    return *copies;
}

std::vector<vrkobject*>& vrkblock::get_object_stack() {
    if (!object_stack) object_stack = std::make_unique<std::vector<vrkobject*>>();
    return *object_stack;
}

std::vector<uint32_t>& vrkblock::get_scoped() {
    if (!scoped) scoped = std::make_unique<std::vector<uint32_t>>();
    return *scoped;
}

std::vector<vrkblock*>& vrkblock::get_die_blocks() {
    if (!die_blocks) die_blocks = std::make_unique<std::vector<vrkblock*>>();
    return *die_blocks;
}

std::vector<std::pair<uint32_t, int32_t>>& vrkblock::get_captures() {
    if (!captures) captures = std::make_unique<std::vector<std::pair<uint32_t, int32_t>>>();
    return *captures;
}

vrkcompletion& vrkblock::get_completion() {
    if (!completion) completion = std::make_unique<vrkcompletion>();
    return *completion;
}

vrkclass_data& vrkblock::get_class_data() {
    if (!class_data) class_data = std::make_unique<vrkclass_data>();
    return *class_data;
}

int64_t vrkblock::find_var_index(const std::string& name) {
    if (!names) return -1;
    auto it = names->find(name);
    if (it == names->end()) return -1;
    return it->second;
}

vrkvar* vrkblock::find_var(const std::string& name) {
    int64_t i = find_var_index(name);
    if (static_cast<std::size_t>(i) >= vars.size()) return nullptr;
    return vars[static_cast<std::size_t>(i)];
}

vrkvar* vrkblock::declare_var(const std::string& name) {
    if (vrkvar* existing = find_var(name)) return existing;
    auto& map = get_names();
    uint32_t index = static_cast<uint32_t>(vars.size());
    vrkvar* cell = cell_new(Tag::INT);
    vars.push_back(cell);
    map[name] = index;
    if (name == "this") {
        this_index = static_cast<int32_t>(index);
        cell->flags |= flag::NO_COUNT;
    } else if (name == "self") {
        self_index = static_cast<int32_t>(index);
        cell->flags |= flag::NO_COUNT;
    }
    return cell;
}

std::string vrkblock::var_name(const vrkvar* cell) {
    if (!names) return "";
    for (const auto& [name, index] : *names) {
        if (index < vars.size() && vars[index] == cell) return name;
    }
    return "";
}

std::string vrkblock::var_name_at(uint32_t index) {
    if (!names) return "";
    for (const auto& [name, i] : *names) {
        if (i == index) return name;
    }
    return "";
}

void vrkblock::make_class_slots() {
    std::vector<vrkvar*> slots;
    slots.reserve(kClassSlotCount);
    for (uint32_t i = 0; i < kClassSlotCount; ++i) slots.push_back(cell_new(Tag::VOID));
    vars.insert(vars.begin(), slots.begin(), slots.end());
    if (names) {
        for (auto& entry : *names) entry.second += kClassSlotCount;
    }
    if (this_index >= 0) this_index += static_cast<int32_t>(kClassSlotCount);
    if (self_index >= 0) self_index += static_cast<int32_t>(kClassSlotCount);
}

void vrkblock::set_source(const std::string& text) {
    compiled = 0;
    if (source_splitter fn = splitter_slot()) {
        fn(this, text);
        return;
    }
    // No front end installed: keep the text as the block's source.
    if (!full_source || source_shared) {
        full_source = string_new();
        source_shared = 0;
    }
    *full_source = text;
    if (!code_text || text_shared) {
        code_text = string_new();
        text_shared = 0;
    }
    *code_text = text;
}

vrkblock* vrkblock::add_child(vrkblock* parent, const std::string& text) {
    vrkblock* child = block_new(parent->engine);
    auto& kids = parent->get_children();
    kids.push_back(child);
    child->parent = parent;
    child->set_source(text);
    return child;
}

namespace {

// Puts the parameter pointers displaced by a call in preparation back into the
// block they came from; frees them when that block is gone.
void return_displaced_params(vrkblock* b) {
    vrkblock* home = nullptr;
    if (b->bind_source == 1) {
        if (!b->callblocks.empty() && b->callblocks.back())
            home = deref(b->callblocks.back())->block;
    } else if (b->bind_source == 2) {
        if (b->stack.size() >= 2 && b->stack[b->stack.size() - 2])
            home = deref(b->stack[b->stack.size() - 2])->block;
    }
    std::size_t n = b->params.size();
    if (home && block_alive(home) && home->vars.size() >= n) {
        for (std::size_t i = 0; i < n; ++i) home->vars[n - 1 - i] = b->params[i];
    } else {
        log().log("debug later, possible mem corrupt %i : %i\n",
                  home && block_alive(home) ? static_cast<int>(home->vars.size()) : 0,
                  static_cast<int>(n));
        for (vrkvar* cell : b->params) {
            if (!is_marker(cell, 11)) cell_free(cell);
        }
    }
    b->params.clear();
    b->params_bound = 0;
}

// Instances can outlive the class they were made from (one kept in a global
// while its script goes, or made by a destructor while the program ends).
// Their methods and nested classes are REFs into the class's cells, which are
// about to be freed: those REFs become 0, so that calling such a method
// reports "NOT_A_FUNCTION" and releasing the instance runs no destructor. The
// walk over every block is paid only when a class itself goes.
void detach_instances(vrkblock* blueprint) {
    const std::unordered_set<const vrkvar*> own(blueprint->vars.begin(), blueprint->vars.end());
    for (const auto& entry : value_context().live_blocks) {
        vrkblock* instance = const_cast<vrkblock*>(entry.first);
        if (instance == blueprint || !instance->class_data ||
            instance->class_data->blueprint != blueprint)
            continue;
        for (vrkvar* v : instance->vars) {
            if (v && v->type == Tag::REF && own.count(v->value.ref)) {
                v->type = Tag::INT;
                v->value.i = 0;
            }
        }
        instance->class_data->blueprint = nullptr;
    }
}

void fire_block_callbacks(vrkblock* b) {
    auto& queue = value_context().callback_queue;
    bool any = false;
    for (const auto& cb : queue) any = any || cb.block == b;
    if (!any) return;
    std::vector<vrkcallback> mine;
    std::vector<vrkcallback> rest;
    for (auto& cb : queue) {
        if (cb.block != b) {
            rest.push_back(std::move(cb));
            continue;
        }
        if (cb.kind == 1)
            mine.insert(mine.begin(), std::move(cb));
        else
            mine.push_back(std::move(cb));
    }
    queue = std::move(rest);
    for (auto& cb : mine) {
        if (!cb.callable) {
            log().error("empty callback in block cleanup");
            continue;
        }
        cb.callable(cb.handle);
    }
}

// A class's dead instances kept for reuse go with the class.
void discard_spares(vrkblock* blueprint) {
    if (!blueprint->class_data || blueprint->class_data->spares.empty()) return;
    std::vector<vrkspare_block> spares = std::move(blueprint->class_data->spares);
    blueprint->class_data->spares.clear();
    for (vrkspare_block& spare : spares) block_delete(spare.block);
}

// Everything but the retired block's memory and its variable cells back to
// the state of a new block (the constructor's), for block_renew. The class
// data keeps its allocation and the name's; the instance it becomes sets both.
void reset_retired(vrkblock* b) {
    b->engine = nullptr;
    b->parent = nullptr;
    b->caller = nullptr;
    b->callee = nullptr;
    b->waiting_on = nullptr;
    b->member_owner = nullptr;
    b->owner_transient = 0;
    b->transient_element = nullptr;
    b->mode = 0;
    b->kind = 0;
    b->suspended = 0;
    b->params_bound = 0;
    b->native = 0;
    b->plain_args = 0;
    b->is_function = 0;
    b->is_loop_body = 0;
    b->param_count = 0;
    b->this_index = -1;
    b->self_index = -1;
    b->compiled = 0;
    b->loop_signal = 0;
    b->return_signal = 0;
    b->bind_source = 0;
    b->destructing = 0;
    b->options = 0;
    b->current_instruction = nullptr;
    b->object_stack.reset();
    b->copies.reset();
    b->die_blocks.reset();
    b->names_shared = 0;
    b->scoped.reset();
    b->shared_value.reset();
    b->captures.reset();
    b->params.clear();
    b->bind_order = 0;
    for (vrkvar* cell : {&b->result, &b->native_result, &b->scratch}) *cell = vrkvar{};
    mark_embedded_cells(b);
    b->completion.reset();
    if (b->class_data) {
        vrkclass_data& data = *b->class_data;
        data.refs = 0;
        data.cells.clear();
        data.destructing = 0;
        data.blueprint = nullptr;
    }
    b->self_cell = nullptr;
    b->pending_index = -1;
    b->compile_state_ptr = nullptr;
    b->line_table.reset();
    b->file_table.reset();
    b->sleep_start = 0;
    b->sleep_ms = 0;
    b->resume_at = 0;
    b->wait_mode = 0;
    b->sleeping = 0;
    b->running = 0;
    b->hold = 0;
    b->copies_checked = 0;
    b->running_copies = 0;
    b->running_copies_destroyed = 0;
    b->copy_of = nullptr;
    b->copy_position = 0;
}

// The ordered tear-down of a block: the body of its destructor. With `keep`
// the block's memory and its variable cells (blank) stay for block_renew and
// its entry of the live blocks is given back; the block is dead all the same.
// Call with the script lock held.
vrklive_node tear_down(vrkblock* b, bool keep) {
    if (b->destructing == 0) b->destructing = 1;
    // Copies that outlive this block no longer report to it.
    if (b->copies) {
        for (vrkblock* c : *b->copies)
            if (block_alive(c) && c->copy_of == b) c->copy_of = nullptr;
    }

    const bool short_paths = value_context().instance_paths;
    clear_variable(&b->scratch, short_paths);
    clear_variable(&b->native_result, short_paths);
    clear_variable(&b->result, short_paths);

    // Nothing may release this block again through a cell that still holds it.
    if (b->class_data) {
        for (vrkvar* cell : b->class_data->cells) {
            vrkvar* end = deref(cell);
            if (end && end->type == Tag::CLASS && end->block == b) {
                end->type = Tag::INT;
                end->value.i = 0;
                end->block = nullptr;
            }
        }
        b->class_data->cells.clear();
    }

    if (b->busy()) stop_run(b, true);
    run_cleanup(b);
    if (b->params_bound && !b->params.empty()) return_displaced_params(b);

    // Values are released before any cell is freed and before the children
    // go: releasing a value can run a script destructor, which may still read
    // a cell of this block or of a child (an instance held inside the class
    // that made it refers to the class's cells).
    for (vrkvar* cell : b->vars) {
        if (!cell) {
            log().log("empty varptr????");
            continue;
        }
        clear_variable(cell, short_paths);
    }

    fire_block_callbacks(b);

    if (b->children) {
        bool checked = context().debug_info || b->destructing == 2;
        for (vrkblock* child : *b->children) {
            if (checked && !block_alive(child)) {
                log().log("invalid block!");
                continue;
            }
            block_delete(child);
        }
        b->children.reset();
    }

    // What the children's destructors stored here meanwhile goes the same way.
    for (vrkvar* cell : b->vars)
        if (cell) clear_variable(cell, short_paths);
    if ((b->kind & kind::CLASS) && !(b->kind & kind::INSTANCE)) {
        detach_instances(b);
        discard_spares(b);
    }
    if (keep) {
        cells_blank(b->vars);
    } else if (short_paths) {
        cells_free(b->vars);
    } else {
        for (vrkvar*& cell : b->vars) {
            if (cell) cell_free(cell);
            cell = nullptr;
        }
        b->vars.clear();
    }

    free_code_operands(b->code);
    b->code.clear();
    if (b->engine) {
        engine_block_destroyed(b->engine, b);
    }

    // Temporaries are owned by the pool of this block.
    for (vrkvar* t : b->temp_pool.all) {
        if (t) cell_free(t);
    }
    b->temp_pool.all.clear();
    b->temp_pool.free.clear();
    b->temp_pool.in_use = 0;
    b->callblocks.clear();
    b->stack.clear();
    b->names.reset();
    if (b->code_text && !b->text_shared) string_free(b->code_text);
    b->code_text = nullptr;
    b->text_shared = 0;
    if (b->full_source && !b->source_shared) string_free(b->full_source);
    b->full_source = nullptr;
    b->source_shared = 0;
    vrkvalue_context& ctx = value_context();
    vrklive_node node;
    if (keep) {
        node = ctx.live_blocks.extract(b);
        registry_remove(b);
        reset_retired(b);
        ++ctx.blocks_destroyed;
    } else if (ctx.live_blocks.erase(b) != 0) {
        ++ctx.blocks_destroyed;
    }
    return node;
}

}  // namespace

// A retired block that goes for good passes through here a second time: as
// it is out of the live blocks already, it is not counted again.
vrkblock::~vrkblock() {
    ScriptLock lock;
    tear_down(this, false);
}

vrklive_node block_retire(vrkblock* b) { return tear_down(b, true); }

void block_renew(vrkblock* b, vrkengine* engine, vrklive_node node) {
    b->engine = engine;
    registry_add(b);
    registry_set_type(b, block_type_hash());
    vrkvalue_context& ctx = value_context();
    if (node)
        ctx.live_blocks.insert(std::move(node));
    else
        ctx.live_blocks.emplace(b, &b->vars);
    ctx.trace_writer = &trace;
    install_block_hooks(ctx);
}

}  // namespace vrk
