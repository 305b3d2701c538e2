// What every end of a run does, and the forced stop of a suspended chain.
#include <algorithm>
#include <vector>

#include "base/log.h"
#include "values/classref.h"
#include "values/json.h"
#include "values/object.h"
#include "vm/block.h"
#include "vm/ops.h"
#include "vm/run.h"

namespace vrk {

namespace {

// Releases a JSON value of a scoped variable: nested records first, objects and
// instances let go, every element freed.
void release_deep(vrkjson* json) {
    for (vrkelement* e : json->elements) {
        if (e->type == Tag::JSON && e->value.json) release_deep(e->value.json);
        if (e->type == Tag::PTR) release_object(e);
        if (e->type == Tag::CLASS) clearblock(e, nullptr, true);
        reset(e, Tag::INT);
        element_free(e);
    }
    json->elements.clear();
}

void release_scoped(vrkblock* b) {
    if (!b->scoped) return;
    auto& list = *b->scoped;
    for (auto it = list.rbegin(); it != list.rend(); ++it) {
        if (*it >= b->vars.size()) continue;
        vrkvar* v = b->vars[*it];
        if (!v) continue;
        if (v->type == Tag::JSON && v->value.json)
            release_deep(v->value.json);
        else if (v->type == Tag::CLASS)
            clearblock(v, b, false);
        else if (v->type == Tag::PTR)
            release_object(v);
        v->attrs &= static_cast<uint16_t>(~attr::RESULT_BITS);
        reset(v, Tag::INT);
    }
}

}  // namespace

void restore_params(vrkblock* block) { restore_params(block, false); }

void restore_params(vrkblock* block, bool callee_alive) {
    vrkblock* callee = block->callee;
    std::size_t n = block->params.size();
    if (callee && (callee_alive || block_alive(callee)) && callee->vars.size() >= n) {
        for (std::size_t i = 0; i < n; ++i) callee->vars[n - 1 - i] = block->params[i];
    } else if (n) {
        log().log("tmpstack for deleted block!");
    }
    block->params_bound = 0;
    block->params.clear();
}

void run_cleanup_work(vrkblock* b) {
    if (vrkvar* self = b->self_var()) reset(self, Tag::INT);
    if (b->scratch.attrs & attr::RESULT_BITS) release_object(&b->scratch);
    if (b->params_bound && !b->params.empty() && b->callee) restore_params(b);

    if (b->temp_pool.in_use != 0) {
        vrktemp_pool& pool = b->temp_pool;
        log().error("did not free temp vars! memory leak!!! %i", static_cast<int>(pool.in_use));
        for (vrkvar* t : pool.all)
            if (t) log().log("var type: %i", static_cast<int>(t->type));
        release_temps(b);
    }
    release_scoped(b);
}

void release_temps(vrkblock* b) {
    vrktemp_pool& pool = b->temp_pool;
    for (vrkvar* t : pool.all)
        if (t) cell_free(t);
    pool.all.clear();
    pool.free.clear();
    pool.in_use = 0;
    // Slots and call records may still point at the freed temps.
    b->callblocks.clear();
    b->stack.clear();
    b->stack.push_back(&b->scratch);
}

void stop_run(vrkblock* block, bool cascade) {
    if (!block_alive(block)) return;
    vrkblock* top = block;
    for (int guard = 0; guard < 100000; ++guard) {
        vrkblock* up = top->caller;
        if (!up || up == top || !block_alive(up)) break;
        top = up;
    }
    // Displaced parameters go back in the reverse order of their binding, as
    // the calls would have returned. Two calls that bound into the same
    // variables (a function calling itself while it runs, or a block called
    // from two places of the chain while it waits) displaced one another's
    // argument cells; undone in the wrong order, a variable would keep an
    // argument cell that its caller's clean-up then frees. The order of the
    // chain is not the order of binding: a block refused entry waits on
    // itself, innermost, although it may have bound first.
    std::vector<vrkblock*> chain;
    for (vrkblock* b = top; b && block_alive(b) && chain.size() < 100000; b = b->waiting_on) {
        if (b->resume_at != 0 && b->params_bound && !b->params.empty() && b->callee)
            chain.push_back(b);
        if (!cascade || b->waiting_on == b) break;
    }
    std::stable_sort(chain.begin(), chain.end(), [](const vrkblock* x, const vrkblock* y) {
        return x->bind_order > y->bind_order;
    });
    for (vrkblock* b : chain) {
        if (b->params_bound && !b->params.empty() && b->callee) restore_params(b);
    }
    for (int guard = 0; top && block_alive(top) && guard < 100000; ++guard) {
        vrkblock* next = top->waiting_on;
        if (top->resume_at != 0) {
            top->waiting_on = nullptr;
            top->resume_at = 0;
            top->suspended = 0;
            run_cleanup(top);
            if (top->stack.size() != 1)
                log().log("\nwarning stack size: %i\n", static_cast<int>(top->stack.size()));
        }
        if (!cascade || next == top) break;
        top = next;
    }
}

}  // namespace vrk
