// The table of block hooks the value layer calls, filled from the block record.
#include "vm/block_hooks.h"

#include "values/block_hooks.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/instances.h"

namespace vrk {

namespace {

bool lambda_captures(const vrkblock* fn, const vrkcapture_list*& captures) {
    if ((fn->kind & kind::LAMBDA) == 0) return false;
    captures = fn->captures.get();
    return true;
}

const std::vector<vrkvar*>& variables(const vrkblock* block) { return block->vars; }

std::string variable_name(vrkblock* block, uint32_t index) { return block->var_name_at(index); }

vrkengine* engine_of(const vrkblock* block) { return block->engine; }

constexpr vrkblock_hooks kHooks{
    .copy_class = &instance_copy,
    .hold_instance = &instance_hold,
    .release_instance = &instance_release,
    .release_cell = &instance_release_cell,
    .append_class_text = &instance_text,
    .lambda_captures = &lambda_captures,
    .variables = &variables,
    .variable_name = &variable_name,
    .alive = &block_alive,
    .engine = &engine_of,
};

}  // namespace

void install_block_hooks(vrkvalue_context& ctx) { ctx.block_hooks = &kHooks; }

}  // namespace vrk
