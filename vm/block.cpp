// The block record: construction, variables, reserved class slots, and the
// ordered tear-down of a block.
#include "vm/block.h"

#include <algorithm>
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

// Enters the block into the set of live blocks. Making a block also installs
// the trace writer of the value layer's fault reports (values/error_report.h)
// and its block hooks (values/block_hooks.h): no report can name a block, and
// no cell can hold one, before the first one exists.
void enter_live(vrkblock* b) {
    vrkvalue_context& ctx = value_context();
    ctx.live_blocks[b] = b->vars.get();
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

vrkblock::vrkblock(vrkengine* eng) : engine(eng), vars(std::make_unique<std::vector<vrkvar*>>()) {
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

vrktemp_pool& vrkblock::get_temp_pool() {
    if (!temp_pool) temp_pool = std::make_unique<vrktemp_pool>();
    return *temp_pool;
}

int64_t vrkblock::find_var_index(const std::string& name) {
    if (!names) return -1;
    auto it = names->find(name);
    if (it == names->end()) return -1;
    return it->second;
}

vrkvar* vrkblock::find_var(const std::string& name) {
    int64_t i = find_var_index(name);
    if (i < 0 || static_cast<std::size_t>(i) >= vars->size()) return nullptr;
    return (*vars)[static_cast<std::size_t>(i)];
}

vrkvar* vrkblock::declare_var(const std::string& name) {
    if (vrkvar* existing = find_var(name)) return existing;
    auto& map = get_names();
    uint32_t index = static_cast<uint32_t>(vars->size());
    vrkvar* cell = cell_new(Tag::INT);
    vars->push_back(cell);
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
        if (index < vars->size() && (*vars)[index] == cell) return name;
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
    vars->insert(vars->begin(), slots.begin(), slots.end());
    if (names) {
        for (auto& entry : *names) entry.second += kClassSlotCount;
    }
    if (this_index >= 0) this_index += static_cast<int32_t>(kClassSlotCount);
    if (self_index >= 0) self_index += static_cast<int32_t>(kClassSlotCount);
}

vrkvar* vrkblock::this_var() {
    if (this_index < 0 || static_cast<std::size_t>(this_index) >= vars->size()) return nullptr;
    return (*vars)[static_cast<std::size_t>(this_index)];
}

vrkvar* vrkblock::self_var() {
    if (self_index < 0 || static_cast<std::size_t>(self_index) >= vars->size()) return nullptr;
    return (*vars)[static_cast<std::size_t>(self_index)];
}

void end_running(vrkblock* b) {
    b->running = 0;
    // The source's next search for an idle copy starts no later than here.
    if (vrkblock* source = b->copy_of; source && b->copy_position < source->running_copies)
        source->running_copies = b->copy_position;
}

bool vrkblock::busy() const {
    return (running && !native) || resume_at != 0 || wait_mode != 0 || sleeping || hold;
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
    if (home && block_alive(home) && home->vars->size() >= n) {
        for (std::size_t i = 0; i < n; ++i) (*home->vars)[n - 1 - i] = b->params[i];
    } else {
        log().log("debug later, possible mem corrupt %i : %i\n",
                  home && block_alive(home) ? static_cast<int>(home->vars->size()) : 0,
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
    const std::unordered_set<const vrkvar*> own(blueprint->vars->begin(), blueprint->vars->end());
    for (const auto& entry : value_context().live_blocks) {
        vrkblock* instance = const_cast<vrkblock*>(entry.first);
        if (instance == blueprint || !instance->class_data ||
            instance->class_data->blueprint != blueprint)
            continue;
        for (vrkvar* v : *instance->vars) {
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

}  // namespace

vrkblock::~vrkblock() {
    ScriptLock lock;
    if (destructing == 0) destructing = 1;
    // Copies that outlive this block no longer report to it.
    if (copies) {
        for (vrkblock* c : *copies)
            if (block_alive(c) && c->copy_of == this) c->copy_of = nullptr;
    }

    const bool short_paths = value_context().instance_paths;
    clear_variable(&scratch, short_paths);
    clear_variable(&native_result, short_paths);
    clear_variable(&result, short_paths);

    // Nothing may release this block again through a cell that still holds it.
    if (class_data) {
        for (vrkvar* cell : class_data->cells) {
            vrkvar* end = deref(cell);
            if (end && end->type == Tag::CLASS && end->block == this) {
                end->type = Tag::INT;
                end->value.i = 0;
                end->block = nullptr;
            }
        }
        class_data->cells.clear();
    }

    if (busy()) stop_run(this, true);
    run_cleanup(this);
    if (params_bound && !params.empty()) return_displaced_params(this);

    // Values are released before any cell is freed and before the children
    // go: releasing a value can run a script destructor, which may still read
    // a cell of this block or of a child (an instance held inside the class
    // that made it refers to the class's cells).
    for (vrkvar* cell : *vars) {
        if (!cell) {
            log().log("empty varptr????");
            continue;
        }
        clear_variable(cell, short_paths);
    }

    fire_block_callbacks(this);

    if (children) {
        bool checked = context().debug_info || destructing == 2;
        for (vrkblock* child : *children) {
            if (checked && !block_alive(child)) {
                log().log("invalid block!");
                continue;
            }
            block_delete(child);
        }
        children.reset();
    }

    // What the children's destructors stored here meanwhile goes the same way.
    for (vrkvar* cell : *vars)
        if (cell) clear_variable(cell, short_paths);
    if ((kind & kind::CLASS) && !(kind & kind::INSTANCE)) detach_instances(this);
    if (short_paths) {
        cells_free(*vars);
    } else {
        for (vrkvar*& cell : *vars) {
            if (cell) cell_free(cell);
            cell = nullptr;
        }
        vars->clear();
    }

    free_code_operands(code);
    code.clear();
    if (engine) {
        engine_block_destroyed(engine, this);
    }

    // Temporaries are owned by the pool of this block.
    if (temp_pool) {
        for (vrkvar* t : temp_pool->all) {
            if (t) cell_free(t);
        }
        temp_pool.reset();
    }
    callblocks.clear();
    stack.clear();
    names.reset();
    if (code_text && !text_shared) string_free(code_text);
    code_text = nullptr;
    if (full_source && !source_shared) string_free(full_source);
    full_source = nullptr;
    vrkvalue_context& ctx = value_context();
    ctx.live_blocks.erase(this);
    ++ctx.blocks_destroyed;
}

}  // namespace vrk
