// Rebuilding, for a loaded program, what compiling had set up beside the code.
#include "saved/relink.h"

#include <cstddef>
#include <string>

#include "saved/block_links.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/engine.h"
#include "vm/instruction.h"
#include "vm/ops.h"

namespace vrk {
namespace {

// The sub-code of LOAD that empties the list on top: only list literals emit it.
constexpr int64_t kEmptyListSubcode = 6;
// Walks deeper than this are taken for a damaged record and cut.
constexpr int kMaxDepth = 4096;

bool is_op(const vrkinstr& ins, Op op) { return ins.opcode() == op; }

// The constant function cell a LOAD of this block names, or null.
vrkvar* loaded_function(vrkblock* b, const vrkinstr& ins) {
    if (!is_op(ins, Op::LOAD) || operand_block(ins) != b) return nullptr;
    vrkvar* cell = var_at(b, ins.arg);
    if (!cell || !cell->constant || cell->type != Tag::FUNCTION || !cell->block) return nullptr;
    return cell;
}

// The variable of a declared function, which the record keeps without its
// block; the compiler fills it unless it is a constant.
vrkvar* declared_function_cell(vrkblock* owner, int64_t index) {
    vrkvar* cell = var_at(owner, index);
    if (!cell || cell->constant || !(cell->flags & flag::DECLARED_FUNCTION) ||
        cell->type != Tag::FUNCTION)
        return nullptr;
    return cell;
}

void link_declaration(vrkvar* target, const vrkvar* fn) {
    target->value.i = 0;
    target->block = fn->block;
    target->aux = static_cast<uint16_t>(fn->block->param_count < 0 ? 0 : fn->block->param_count);
}

void relink_block(vrkblock* b, int depth) {
    if (depth > kMaxDepth) return;
    const auto& code = b->code;
    for (std::size_t i = 0; i + 1 < code.size(); ++i) {
        if (is_op(code[i], Op::LOAD) && operand_block(code[i]) == b &&
            is_op(code[i + 1], Op::LOAD) && code[i + 1].ref == 0 &&
            code[i + 1].arg == kEmptyListSubcode) {
            vrkvar* list = var_at(b, code[i].arg);
            if (list && !list->constant && list->type != Tag::JSON) {
                const uint16_t flags = list->flags;
                reset(list, Tag::JSON);
                list->flags = flags;
            }
            continue;
        }
        const vrkvar* fn = loaded_function(b, code[i]);
        if (!fn) continue;
        const vrkinstr& next = code[i + 1];
        if (is_op(next, Op::SET) && operand_block(next) == b) {
            if (vrkvar* target = declared_function_cell(b, next.arg)) link_declaration(target, fn);
        } else if (is_op(next, Op::PUSH) && next.arg == 1 && i + 3 < code.size() &&
                   is_op(code[i + 2], Op::LOAD) && is_op(code[i + 3], Op::SET) &&
                   code[i + 3].arg == -1) {
            if (vrkvar* target = declared_function_cell(operand_block(code[i + 2]),
                                                        code[i + 2].arg))
                link_declaration(target, fn);
        }
    }
    if (!b->children) return;
    for (vrkblock* child : *b->children)
        if (child && is_saved_child(child)) relink_block(child, depth + 1);
}

void register_in(vrkblock* b, vrkengine* engine, int depth) {
    if (depth > kMaxDepth || b->is_class_or_instance() ||
        (b->kind & (kind::SINGLETON | kind::STRUCT)))
        return;
    for (uint32_t i = 0; i < b->vars.size(); ++i) {
        const vrkvar* cell = b->vars[i];
        if (!cell || !(cell->flags & flag::DECLARED_FUNCTION) || cell->type != Tag::FUNCTION ||
            !cell->block || cell->block->param_count != 0)
            continue;
        if (b->var_name_at(i).rfind("onFrame", 0) == 0) engine->frame_blocks.push_back(cell->block);
    }
    if (!b->children) return;
    for (vrkblock* child : *b->children)
        if (child && is_saved_child(child)) register_in(child, engine, depth + 1);
}

}  // namespace

void relink_loaded(vrkblock* root) {
    if (root) relink_block(root, 0);
}

void register_frame_functions(vrkblock* root, vrkengine* engine) {
    if (root && engine) register_in(root, engine, 0);
}

}  // namespace vrk
