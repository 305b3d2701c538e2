// libFuzzer target for the readers of saved forms: block records, the cell
// form and the JSON list form, on arbitrary bytes.
//
// The first byte chooses the reader, the rest is its input. The engine has the
// builtins registered; every input gets a global variable and a program block
// below an outer block, so that links by name and by parent steps have
// something to find. Class bodies in a record run when it is loaded, within
// the budgets of run_budget.h. What was read is written again and the result
// read once more, so the writers see every shape the readers can produce.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/script_lock.h"
#include "host/engine.h"
#include "saved/block_form.h"
#include "saved/value_form.h"
#include "tests/fuzz/run_budget.h"
#include "values/cache.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/object.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/globals.h"

namespace {

using namespace vrk;

// A native type whose state is a name and a number.
class FuzzObject : public vrkobject {
public:
    FuzzObject() { type_name = "fuzzobject"; }
    bool serialize(ScriptCacheWriter& w) override {
        w.compact_string(type_name);
        w.compact_string(label);
        w.u32(number);
        return true;
    }
    bool deserialize(ScriptCacheReader& r) override {
        label = r.compact_string();
        number = r.u32();
        return true;
    }
    std::string label;
    uint32_t number = 0;
};

vrkobject* create(const std::string& name) {
    return name == "fuzzobject" ? new FuzzObject() : nullptr;
}

// The engine of all inputs (its construction registers every builtin, too
// slow to repeat) and, per input, its global block and the blocks around the
// data being read. Whatever an input leaves in the engine's tables is cleared
// with the scene, so that inputs do not depend on each other.
vrkscript& shared_engine() {
    static vrkscript* e = new vrkscript();
    return *e;
}

struct scene {
    vrkscript& engine = shared_engine();  // the engine
    vrkblock* outer = nullptr;            // enclosing block
    vrkblock* program = nullptr;          // block the data belongs to

    scene() {
        declare_global(&engine, "g");
        outer = block_new(&engine);
        program = block_new(&engine);
        program->parent = outer;
        outer->get_children().push_back(program);
        outer->declare_var("x");
    }
    ~scene() {
        block_delete(outer);
        block_delete(engine.globalBlock);
        engine.globalBlock = nullptr;
        engine.extern_blocks.clear();
    }
};

// A new block below the program block, owned by it.
vrkblock* new_block(scene& s) {
    vrkblock* b = block_new(&s.engine);
    b->parent = s.program;
    s.program->get_children().push_back(b);
    return b;
}

void read_block(const std::vector<uint8_t>& bytes, scene& s) {
    vrkblock* b = new_block(s);
    ScriptCacheReader r(bytes);
    fromCache(b, r);

    std::vector<uint8_t> again;
    ScriptCacheWriter w(again);
    toCache(b, w, true);
    toCache(b, w, false);
    ScriptCacheReader r2(again);
    fromCache(new_block(s), r2);
    fromCache(new_block(s), r2);
}

void read_cell(const std::vector<uint8_t>& bytes, scene& s, bool trailer) {
    vrkvar* cell = cell_new(Tag::INT);
    ScriptCacheReader r(bytes);
    deserialize(cell, r, s.program, trailer);

    std::vector<uint8_t> again;
    ScriptCacheWriter w(again);
    serialize(cell, w, s.program, trailer);
    serialize(cell, w, nullptr, trailer);
    ScriptCacheReader r2(again);
    deserialize(cell, r2, s.program, trailer);
    deserialize(cell, r2, nullptr, trailer);
    cell->constant = 0;
    cell_free(cell);
}

void read_list(const std::vector<uint8_t>& bytes, scene& s) {
    vrkvar* cell = cell_new(Tag::JSON);
    ScriptCacheReader r(bytes);
    dataToJson(cell->value.json, r, s.program);

    std::vector<uint8_t> again;
    jsonToData(cell->value.json, again, s.program);
    jsonToData(cell->value.json, again, nullptr);
    ScriptCacheReader r2(again);
    dataToJson(cell->value.json, r2, s.program);
    dataToJson(cell->value.json, r2, nullptr);
    cell_free(cell);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    static const bool ready = [] {
        // Freed records are not reused, so that a late use is seen at once.
        value_context().pools.set_pooling(false);
        context().main_thread = current_thread_id();
        set_object_creator(create);
        fuzz::watch_heap();
        return true;
    }();
    (void)ready;

    const std::vector<uint8_t> bytes(data + 1, data + size);
    // A loaded record runs the bodies of its classes once.
    const fuzz::input_budget budget;
    scene s;
    switch (data[0] % 4) {
        case 0: read_block(bytes, s); break;
        case 1: read_cell(bytes, s, true); break;
        case 2: read_cell(bytes, s, false); break;
        default: read_list(bytes, s); break;
    }
    return 0;
}
