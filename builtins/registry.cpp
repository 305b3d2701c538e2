// Entering the builtin table into an engine.
#include "builtins/registry.h"

#include <cstring>

#include "vm/block.h"
#include "vm/engine.h"

namespace vrk {

void init_builtins(vrkengine* engine) {
    // The user value is null for the rows before `help` and the engine from
    // `help` on; no body relies on it.
    void* user = nullptr;
    for (const vrkbuiltin_row& row : builtin_table()) {
        if (std::strcmp(row.name, "help") == 0) user = engine;
        if (row.kind == vrkrow_kind::variable) {
            if (!row.setup) continue;
            row.setup(engine, engine->registerVariable(row.name, row.description));
            continue;
        }
        if (!row.body) continue;
        vrkbuiltin_fn callable = [engine, body = row.body](vrkblock* block,
                                                           std::vector<vrkvar*>& args, void* value,
                                                           vrkvar& result) {
            return body(engine, block, args, value, result);
        };
        if (row.kind == vrkrow_kind::constructor)
            engine->registerConstructor(row.name, std::move(callable), row.param_count, user,
                                        row.description, row.plain_args, row.deref_args,
                                        row.constructs);
        else
            engine->registerFunction(row.name, std::move(callable), row.param_count, user,
                                     row.description, row.plain_args, row.deref_args);
    }
}

}  // namespace vrk
