// `vrkblock`: the unit of code and the unit of execution at once.
//
// A source file, a function, a lambda, a class, a struct and the body of an
// `if`, `while` or `for` each compile to one block with its own instruction
// vector, variable vector and value stack. There is no separate frame object: a
// block is its own activation record. That is why a block that is already
// running cannot simply be entered again; the system runs a copy of it instead.
// Instructions name variables by (block pointer, index), bound at compile time;
// names survive at run time only for member look-up and messages.
//
// Containers that most blocks never use are "lazy": a pointer that stays null
// until first needed. Every reader that finds one null creates it empty (the
// `get_*` helpers below do that).
//
// A process-wide map `live_blocks` (in the process context) holds every block
// that exists, so code holding an untrusted block pointer can ask whether it is
// still alive.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "values/cell.h"
#include "values/object.h"
#include "values/pools.h"
#include "vm/instruction.h"
#include "vm/ptr_stack.h"
#include "vm/temps.h"

namespace vrk {

class vrkengine;
struct compile_state;

// `kind` bits of a block.
namespace kind {
inline constexpr uint8_t THREAD = 0x01;     // copy that runs on a worker thread
inline constexpr uint8_t CLASS = 0x02;      // class blueprint
inline constexpr uint8_t INSTANCE = 0x04;   // instance of a class
inline constexpr uint8_t LAMBDA = 0x08;     // has a capture list
inline constexpr uint8_t STRUCT = 0x10;     // struct layout
inline constexpr uint8_t EXTERN = 0x20;     // function declared extern
inline constexpr uint8_t COPY = 0x40;       // made by block copy
inline constexpr uint8_t SINGLETON = 0x80;  // class declared singleton: never counted or released
// The test for "a class or an instance".
inline constexpr uint8_t CLASS_OR_INSTANCE = CLASS | INSTANCE;
}  // namespace kind

// The nine reserved slots at the front of a class's variables.
enum class ClassSlot : uint32_t {
    constructor = 0,
    destructor = 1,
    opadd = 2,
    opsub = 3,
    opmult = 4,
    opdiv = 5,
    oparray = 6,
    opstring = 7,
    opcopy = 8,
};
inline constexpr uint32_t kClassSlotCount = 9;
// Names of the reserved slots, in slot order.
extern const char* const kClassSlotNames[kClassSlotCount];

// The entry of a block in the map of live blocks, taken out whole so that it
// can go back in without an allocation (the map's own node type).
using vrklive_node = std::unordered_map<const vrkblock*, std::vector<vrkvar*>*>::node_type;

// A dead instance its class keeps for its next instance (vm/instances.h).
struct vrkspare_block {
    vrkblock* block = nullptr;  // torn down (block_retire): dead to every test, cells blank
    vrklive_node node;          // its entry of the map of live blocks, for block_renew
};

// Instance data of a class or instance block.
struct vrkclass_data {
    int32_t refs = 0;                   // counting cells that hold this instance
    std::vector<vrkvar*> cells;         // every CLASS cell that points at this block
    std::unique_ptr<std::string> name;  // class name, lazy
    uint8_t destructing = 0;            // the script destructor has been started
    vrkblock* blueprint = nullptr;  // of an instance: the class it was made from, while that lives
    std::vector<vrkspare_block> spares;  // of a class: dead instances kept for reuse
};

// Callbacks the scheduler drives for a suspended block.
struct vrkcompletion {
    std::function<void(vrkblock*, vrkvar*)> on_finish;  // called when the suspended block has ended
    std::function<void(vrkblock*)> on_tick;             // called on each pass while it waits
    uint8_t finish_once = 0;                            // on_finish replaces the usual end handling
};

// One source line's span of instructions.
struct vrkline_entry {
    uint32_t first = 0;  // first instruction of the line
    uint32_t last = 0;   // last instruction of the line
    uint32_t line = 0;   // line number in its file
    std::string text;    // source text of the line
};

// Where a file's instructions begin.
struct vrkfile_entry {
    uint32_t first = 0;  // first instruction index from that file
    std::string name;    // file name
};

// A shared cell with a count of holders.
struct vrkshared_value {
    vrkvar* cell = nullptr;  // the shared cell
    int32_t count = 0;       // holders
};

struct vrkblock : public vrkptr_register<vrkblock, vrkptr_base> {
    // Empty block: the engine's global block, copies, loading.
    explicit vrkblock(vrkengine* engine);
    // Block with source text, handed to the source splitter.
    vrkblock(vrkengine* engine, const std::string& text);
    ~vrkblock() override;
    vrkblock(const vrkblock&) = delete;
    vrkblock& operator=(const vrkblock&) = delete;

    vrkengine* engine = nullptr;     // owner; null for an engine's own global block
    vrkblock* parent = nullptr;      // lexically enclosing block (a copy has its source's)
    vrkblock* caller = nullptr;      // block that started the current run; itself from outside
    vrkblock* callee = nullptr;      // block of the call in progress
    vrkblock* waiting_on = nullptr;  // block this run is suspended on
    vrkvar* member_owner = nullptr;  // container or instance last indexed: `this` of the next call
    uint8_t owner_transient = 0;     // member_owner lives in a result cell or a temp (see ops.h)
    vrkvar* transient_element = nullptr;  // element last read out of a result cell or a temp
    std::string* code_text =
        nullptr;              // working copy of the source the compiler consumes; a native's name
    uint8_t text_shared = 0;  // code_text belongs to another block
    std::string* full_source = nullptr;  // source text given to set_source
    uint8_t source_shared = 0;           // full_source belongs to another block
    uint8_t mode = 0;                    // kept in the saved form; no run-time effect
    uint8_t kind = 0;                    // namespace kind bits
    uint8_t suspended = 0;      // 0 running, 1 stopped before, 2 after the current instruction
    uint8_t params_bound = 0;   // `params` holds displaced variable pointers of `callee`
    uint8_t native = 0;         // native function: exactly one EXTERNAL instruction
    uint8_t plain_args = 0;     // arguments arrive as REF wrappers of the caller's cells
    uint8_t is_function = 0;    // function body: `return` ends here
    uint8_t is_loop_body = 0;   // loop body: `break` and `continue` end here
    int16_t param_count = 0;    // declared parameters (first variables after reserved slots)
    int32_t this_index = -1;    // index of the variable `this`, -1 if none
    int32_t self_index = -1;    // index of the variable `self`, -1 if none
    uint8_t compiled = 0;       // compilation has started
    uint8_t loop_signal = 0;    // 0 none, 1 break, 2 continue travelling up
    uint8_t return_signal = 0;  // 1: return travelling up to the function
    uint8_t bind_source = 0;    // where displaced parameters belong (1: callblocks, 2: stack)
    uint8_t destructing = 0;    // 0 alive, 1 being destroyed, 2 check children against live_blocks
    uint8_t options = 0;        // bit 0: locked
    const vrkinstr* current_instruction = nullptr;          // set during an object's element access
    std::unique_ptr<std::vector<vrkobject*>> object_stack;  // objects being indexed (lazy)
    std::unique_ptr<std::vector<vrkblock*>> copies;         // run-time copies of this block (lazy)
    std::unique_ptr<std::vector<vrkblock*>> children;       // owned nested blocks (lazy)
    std::unique_ptr<std::vector<vrkblock*>>
        die_blocks;  // functions named `die` declared here (lazy)
    std::shared_ptr<std::map<std::string, uint32_t>>
        names;                 // variable name to index (lazy; shared by copies)
    uint8_t names_shared = 0;  // `names` belongs to the source block of a copy
    std::unique_ptr<std::vector<uint32_t>> scoped;  // variables declared scoped (lazy)
    vrkptr_stack<vrkvar> stack;                     // the value stack
    std::unique_ptr<vrkshared_value> shared_value;  // shared cell with a count (lazy)
    std::unique_ptr<std::vector<std::pair<uint32_t, int32_t>>> captures;  // (target, source) (lazy)
    std::vector<vrkinstr> code;                                           // instructions
    std::vector<vrkvar*> vars;    // owned variables and hidden temporaries
    vrkptr_stack<vrkvar> params;  // displaced pointers, or a native callee's arguments
    uint64_t bind_order = 0;      // when the binding held in `params` began (bindings_started)
    // The three embedded cells stay together, in this order: is_embedded
    // tells them from every other cell by one range test.
    vrkvar result;         // return value of a run (MOVABLE, NO_REF_WRAP)
    vrkvar native_result;  // receives native functions' results (MOVABLE, NO_REF_WRAP)
    vrkvar scratch;        // scratch result slot (MOVABLE)
    std::unique_ptr<vrkcompletion> completion;  // scheduler callbacks (lazy)
    std::unique_ptr<vrkclass_data> class_data;  // instance data (lazy)
    vrkvar* self_cell = nullptr;  // `this` value of the current run, kept across suspensions
    vrktemp_pool temp_pool;       // temporaries of the instructions
    union {
        int64_t pending_index = -1;  // integer index awaiting a store; -1 when none
        vrkvar* pending_key;         // key cell awaiting a store into a JSON
    };
    compile_state* compile_state_ptr = nullptr;  // shared compile state, during compile
    std::unique_ptr<std::map<uint32_t, vrkline_entry>> line_table;  // debug lines (lazy)
    std::unique_ptr<std::vector<vrkfile_entry>> file_table;         // debug files (lazy)
    int64_t sleep_start = 0;          // monotonic ms when the sleep began
    int64_t sleep_ms = 0;             // length of the sleep; 0 at once; -1 until woken
    uint32_t resume_at = 0;           // instruction where the run continues; 0 when none
    uint8_t wait_mode = 0;            // non-zero while holding a thread-wait of that kind
    uint8_t sleeping = 0;             // in the sleep list
    uint8_t running = 0;              // the run loop is inside this block
    uint8_t hold = 0;                 // kept in the suspended set by a wait
    vrkptr_stack<vrkvar> callblocks;  // one temp per call in preparation: the callee cell
    uint64_t copies_checked =
        0;  // blocks destroyed (context count) when `copies` was last cleared of dead ones
    uint32_t running_copies = 0;  // leading entries of `copies` known to be running (see copies.h)
    uint64_t running_copies_destroyed = 0;  // blocks destroyed (context count) at that search
    vrkblock* copy_of = nullptr;  // of a copy made for calls: its source, while the source lives
    uint32_t copy_position = 0;   // of such a copy: its place in the source's `copies`

    // ---- lazy containers --------------------------------------------------------------
    std::map<std::string, uint32_t>& get_names();
    std::vector<vrkblock*>& get_children();
    std::vector<vrkblock*>& get_copies();
    std::vector<vrkobject*>& get_object_stack();
    std::vector<uint32_t>& get_scoped();
    std::vector<vrkblock*>& get_die_blocks();
    std::vector<std::pair<uint32_t, int32_t>>& get_captures();
    vrkcompletion& get_completion();
    vrkclass_data& get_class_data();
    vrktemp_pool& get_temp_pool() { return temp_pool; }

    // ---- variables --------------------------------------------------------------------
    // The variable of that name, or null.
    vrkvar* find_var(const std::string& name);
    // Index of the variable of that name, or -1.
    int64_t find_var_index(const std::string& name);
    // Existing variable of that name, or a new one appended.
    vrkvar* declare_var(const std::string& name);
    // Name of a variable by cell pointer / by index; "" if absent.
    std::string var_name(const vrkvar* cell);
    std::string var_name_at(uint32_t index);
    // Inserts the nine reserved class slots at the front; every name index rises by 9.
    void make_class_slots();
    vrkvar* this_var() {
        if (static_cast<std::size_t>(this_index) >= vars.size()) return nullptr;
        return vars[static_cast<std::size_t>(this_index)];
    }
    vrkvar* self_var() {
        if (static_cast<std::size_t>(self_index) >= vars.size()) return nullptr;
        return vars[static_cast<std::size_t>(self_index)];
    }

    // ---- state ------------------------------------------------------------------------
    // True when the block may not be entered: running (unless native), suspended,
    // waiting, sleeping or held. Every decision to enter a block uses this test.
    bool busy() const {
        return (running && !native) || resume_at != 0 || wait_mode != 0 || sleeping || hold;
    }
    bool is_class_or_instance() const { return (kind & kind::CLASS_OR_INSTANCE) != 0; }
    // True for one of the embedded cells (result, native_result, scratch).
    // They lie next to each other, so the distance from the first tells.
    [[gnu::always_inline]] bool is_embedded(const vrkvar* cell) const {
        const auto first = reinterpret_cast<uintptr_t>(&result);
        return reinterpret_cast<uintptr_t>(cell) - first < 3 * sizeof(vrkvar);
    }

    // ---- tree ---------------------------------------------------------------------------
    // Replaces the source text and splits it into child blocks (front end).
    void set_source(const std::string& text);
    // A new child with the parent's engine, named "##BLK<n>".
    static vrkblock* add_child(vrkblock* parent, const std::string& text);
};

// A guarded handle of a block: valid while the registry slot keeps the id.
struct vrkblock_handle {
    uint64_t index = 0;  // registry index of the block
    uint32_t id = 0;     // registry id; 0 means empty
    vrkblock* get() const;
    static vrkblock_handle of(vrkblock* b);
    // True when the handle was taken of `b` (compares without resolving).
    bool refers_to(const vrkblock* b) const;
};

// True while the block exists.
bool block_alive(const vrkblock* b);

// Clears `running`. When the block is a copy, the count of ended copy runs
// goes up, which tells the search for an idle copy that one may be free now.
inline void end_running(vrkblock* b) {
    b->running = 0;
    // The source's next search for an idle copy starts no later than here.
    if (vrkblock* source = b->copy_of; source && b->copy_position < source->running_copies)
        source->running_copies = b->copy_position;
}

// Blocks are created and destroyed only through these two: a block is owned by
// its parent's child list (or by a parser, an engine, or its instance holders),
// and its destruction follows a fixed order that other code relies on.
vrkblock* block_new(vrkengine* engine);
vrkblock* block_new(vrkengine* engine, const std::string& text);
void block_delete(vrkblock* b);

// Reuse of a dead block (class instances, vm/instances.h). block_retire tears
// `b` down exactly as block_delete would (its values released, destructors
// run, callbacks fired, the engine told, the block counted as destroyed and
// taken out of the live blocks and the registry) but keeps its memory and its
// variable cells, blank, and gives back its entry of the map of live blocks.
// Call both only on the pool thread, with the script lock held. block_renew makes such a block live again as
// block_new(engine) makes one (a new registry id, so old handles stay dead),
// except that its variables keep their blank cells. A retired block that is
// not renewed goes by block_delete.
vrklive_node block_retire(vrkblock* b);
void block_renew(vrkblock* b, vrkengine* engine, vrklive_node node);

// Hook the front end installs so that set_source can split source text into
// child blocks; without one the text is only stored.
using source_splitter = void (*)(vrkblock* block, const std::string& text);
void set_source_splitter(source_splitter fn);

}  // namespace vrk
