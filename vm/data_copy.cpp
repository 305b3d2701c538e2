// The data of a block copied straight from block to block, for class
// instances: the same cells, constants and lists a write into the saved
// record and a read back would give, without the bytes in between.
//
// The copy follows the record's rules one by one, so that both ways give the
// same block: parameters, `this`, `self` and blank cells come back VOID,
// untouched INT cells and object handles come back INT 0, plain variables keep
// only their flags, constants keep their value (text up to the first zero byte)
// and their trailer (constant, flags, attrs, aux), and a function or class
// constant comes back without its block. What the record would carry in a form
// of its own (objects, lists, byte and number sets in a constant, `die`
// functions, an extern name, a block that is binding a call's arguments) is
// left to the record: the direct copy declines and touches nothing.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "values/cell.h"
#include "values/pools.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/copies.h"

namespace vrk {

namespace {

// The longest text a constant carries; longer text is cut there.
constexpr std::size_t kMaxConstantText = 1048576;
// Static buffers larger than this (or all of them together) are a fault the
// record reports; such a block goes through the record.
constexpr std::size_t kMaxDirectBuffers = 64 * 1024 * 1024;

[[gnu::always_inline]] inline bool is_pristine(const vrkvar* v, Tag tag) {
    return v->type == tag && v->constant == 0 && v->flags == 0 && v->attrs == 0 && v->aux == 0 &&
           v->value.i == 0 && v->block == nullptr;
}

// How the record keeps a variable (see the saved record's variable forms).
enum class Form : uint8_t { cleared, captured, pristine, buffer, declared, plain };

[[gnu::always_inline]] inline Form form_of(const vrkblock* b, const vrkvar* v, std::size_t i) {
    const auto index = static_cast<int64_t>(i);
    if (!v) return Form::cleared;
    if (v->flags & flag::CAPTURED) return Form::captured;
    if (index == b->this_index || index == b->self_index || index < b->param_count ||
        is_pristine(v, Tag::VOID))
        return Form::cleared;
    if (is_pristine(v, Tag::INT) || v->type == Tag::PTR) return Form::pristine;
    if (v->type == Tag::DATA && (v->flags & flag::STATIC_BUFFER)) return Form::buffer;
    if (v->flags & flag::DECLARED_FUNCTION) return Form::declared;
    return Form::plain;
}

// Tags whose whole cell the direct copy carries: a scalar, a text, or the tag
// alone.
bool simple_tag(Tag tag) {
    switch (tag) {
        case Tag::INT:
        case Tag::FLOAT:
        case Tag::STRING:
        case Tag::FUNCTION:
        case Tag::CLASS:
        case Tag::EXT:
        case Tag::VOID:
        case Tag::REF:
        case Tag::ERR: return true;
        default: return false;
    }
}

bool is_layout(const vrkvar* v) {
    return v->type == Tag::JSON && (v->flags & flag::STRUCT_VAR) && v->block;
}

// Variables whose forms the copy keeps from its first look (more are looked at twice).
constexpr std::size_t kKeptForms = 64;

// True when every part of `source`'s data has a direct form. The forms of the
// first kKeptForms variables go into `forms` when it is given.
bool copyable(const vrkblock* source, Form* forms) {
    if (source->kind & kind::EXTERN) return false;
    if (source->params_bound) return false;
    if (source->die_blocks) {
        for (const vrkblock* d : *source->die_blocks)
            if (block_alive(d)) return false;
    }
    std::size_t buffers = 0;
    const auto& vars = source->vars;
    for (std::size_t i = 0; i < vars.size(); ++i) {
        const vrkvar* v = vars[i];
        const Form form = form_of(source, v, i);
        if (forms && i < kKeptForms) forms[i] = form;
        switch (form) {
            case Form::cleared:
            case Form::captured:
            case Form::pristine: break;
            case Form::buffer: {
                const std::size_t size = v->value.data ? v->value.data->size() : 0;
                buffers += size;
                if (size > kMaxDirectBuffers || buffers > kMaxDirectBuffers) return false;
                break;
            }
            case Form::declared:
                if (!simple_tag(v->type)) return false;
                [[fallthrough]];
            case Form::plain:
                if (v->constant && !is_layout(v) && !simple_tag(v->type)) return false;
                break;
        }
    }
    return true;
}

// True for a tag a fresh cell (INT 0, every field zero) takes by its tag
// alone: what its reset to the tag comes to, as no payload is made for it.
bool tag_alone(Tag tag) {
    switch (tag) {
        case Tag::INT:
        case Tag::FLOAT:
        case Tag::FUNCTION:
        case Tag::CLASS:
        case Tag::EXT:
        case Tag::VOID:
        case Tag::REF: return true;
        default: return false;
    }
}

// The cell with its trailer, as written and read back: the tag, the payload a
// scalar or text carries, and constant, flags, attrs and aux, all taken only
// when the cell accepted the tag.
void copy_cell(vrkvar* to, const vrkvar* from) {
    const Tag tag = from->type;
    if (value_context().instance_paths && tag_alone(tag) && is_pristine(to, Tag::INT))
        to->type = tag;
    else
        reset(to, tag);
    const bool taken = to->type == tag;
    if (!taken) return;
    switch (tag) {
        case Tag::INT: to->value.i = from->value.i; break;
        case Tag::FLOAT: to->value.f = from->value.f; break;
        case Tag::STRING: {
            const std::string* s = from->value.str;
            std::size_t n = s ? std::min(s->size(), kMaxConstantText) : 0;
            if (n) {
                if (const void* zero = std::memchr(s->data(), 0, n))
                    n = static_cast<std::size_t>(static_cast<const char*>(zero) - s->data());
            }
            to->value.str->assign(n ? s->data() : "", n);
            break;
        }
        default: break;
    }
    to->constant = from->constant;
    to->flags = from->flags;
    to->attrs = from->attrs;
    to->aux = from->aux;
}

// The value part of a plain or declared variable.
void copy_value(vrkblock* copy, vrkvar* to, const vrkvar* from, std::size_t index) {
    if (is_layout(from)) {
        // The layout names a child of the source; the copy has no children.
        reset(to, Tag::JSON);
        to->flags |= flag::STRUCT_VAR;
        to->block = nullptr;
        return;
    }
    if (!from->constant) {
        to->flags = from->flags;
        return;
    }
    copy_cell(to, from);
    // A function or class constant comes without its block, and as it is.
    if (to->type == Tag::FUNCTION || to->type == Tag::CLASS) return;
    if (to->attrs & attr::OWNS_RESULT) copy->get_scoped().push_back(static_cast<uint32_t>(index));
    to->constant = 1;
}

// `form` is the variable's form when the caller knows it (with `short_paths`),
// else it is looked up again. With `short_paths` a blank VOID cell is made by
// setting the tag of the fresh cell, which is what its reset to VOID comes to
// (a fresh cell is INT 0 with every field zero).
void copy_variable(vrkblock* source, vrkblock* copy, std::size_t i, std::size_t at,
                   const Form* form, bool short_paths) {
    const vrkvar* from = source->vars[i];
    // The copy's own position of the variable (the copy starts with none).
    // With `short_paths` the cells have been made in bulk beforehand.
    std::size_t index = copy->vars.size();
    vrkvar* to = nullptr;
    if (short_paths) {
        index = at;
        to = copy->vars[index];
    } else {
        to = cell_new(Tag::INT);
        copy->vars.push_back(to);
    }
    switch (form ? *form : form_of(source, from, i)) {
        case Form::captured:
            if (short_paths)
                to->type = Tag::VOID;
            else
                reset(to, Tag::VOID);
            to->flags = flag::CAPTURED;
            return;
        case Form::cleared:
            if (short_paths)
                to->type = Tag::VOID;
            else
                reset(to, Tag::VOID);
            return;
        case Form::pristine: return;
        case Form::buffer: {
            const std::size_t size = from->value.data ? from->value.data->size() : 0;
            std::vector<uint8_t>* data = as_data(to);
            if (size > 0 && data) data->assign(size, 0);
            to->flags |= flag::STATIC_BUFFER;
            return;
        }
        case Form::declared:
            if (!copy->names_shared)
                copy->get_names()[source->var_name_at(static_cast<uint32_t>(i))] =
                    static_cast<uint32_t>(index);
            copy_cell(to, from);
            copy_value(copy, to, from, index);
            return;
        case Form::plain: copy_value(copy, to, from, index); return;
    }
}

void settle_this_and_self(vrkblock* b) {
    const auto count = static_cast<int64_t>(b->vars.size());
    for (int32_t* slot : {&b->this_index, &b->self_index}) {
        if (*slot < 0 || *slot >= count) {
            *slot = -1;
        } else {
            b->vars[static_cast<std::size_t>(*slot)]->flags |= flag::NO_COUNT;
        }
    }
}

}  // namespace

bool copy_data_directly(vrkblock* source, vrkblock* copy, bool cells_ready) {
    const bool short_paths = value_context().instance_paths || cells_ready;
    std::array<Form, kKeptForms> forms;
    if (!copyable(source, short_paths ? forms.data() : nullptr)) return false;
    copy->compiled = source->compiled;
    copy->mode = source->mode;
    copy->kind = source->kind;
    copy->options = source->options;
    copy->native = source->native;
    copy->plain_args = source->plain_args;
    copy->is_function = source->is_function;
    copy->is_loop_body = source->is_loop_body;
    copy->param_count = source->param_count;
    copy->this_index = source->this_index;
    copy->self_index = source->self_index;

    const std::size_t count = source->vars.size();
    const std::size_t first = cells_ready ? 0 : copy->vars.size();
    if (!cells_ready) {
        copy->vars.reserve(first + count);
        if (short_paths) cells_new(copy->vars, count);
    }
    for (std::size_t i = 0; i < count; ++i) {
        const Form* form = short_paths && i < kKeptForms ? &forms[i] : nullptr;
        copy_variable(source, copy, i, first + i, form, short_paths);
    }
    settle_this_and_self(copy);

    // A saved list of scoped variables replaces what the constants added.
    if (source->scoped && !source->scoped->empty()) {
        auto& scoped = copy->get_scoped();
        scoped = *source->scoped;
    }
    if (source->captures) {
        const auto vars = static_cast<int64_t>(copy->vars.size());
        for (const auto& [target, from] : *source->captures) {
            copy->get_captures().emplace_back(target, from);
            const bool this_target = static_cast<int32_t>(target) == copy->this_index;
            for (const int64_t at :
                 {static_cast<int64_t>(static_cast<int32_t>(target)), static_cast<int64_t>(from)}) {
                if (at < 0 || at >= vars) continue;
                vrkvar* cell = copy->vars[static_cast<std::size_t>(at)];
                cell->flags |= flag::CAPTURED;
                if (this_target) cell->flags |= flag::NO_COUNT;
            }
        }
    }
    return true;
}

}  // namespace vrk
