// Member look-up of native objects, its per-site cache, and the member wrapper.
#include "objects/members.h"

#include <cstring>
#include <utility>

#include "base/log.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/instruction.h"
#include "vm/ops.h"

namespace vrk {

namespace {

// The look-up cache of an INDEX site, made on its first name look-up. The
// cache's `block` stays null for object look-ups, so a class look-up at the
// same site never takes an object answer, and the other way round.
vrkindex_cache* site_cache(vrkinstr* site) {
    if (!site || site->opcode() != Op::INDEX || site->ref == kRefMinusOne) return nullptr;
    if (site->ref == 0) site->ref = reinterpret_cast<uint64_t>(new vrkindex_cache());
    return reinterpret_cast<vrkindex_cache*>(site->ref);
}

int64_t search(const vrkmember_table& table, const std::string& text) {
    for (std::size_t i = 0; i < table.size(); ++i) {
        const std::string& name = table[i].name;
        // Names compare as C texts: a key with a NUL byte ends there.
        if (name.empty() || std::strcmp(name.c_str(), text.c_str()) == 0)
            return static_cast<int64_t>(i);
    }
    return -1;
}

// The INDEX instruction whose member read is under way in `b`, if any.
vrkinstr* current_site(vrkblock* b) {
    if (!b || !b->current_instruction) return nullptr;
    // The run loop's code is not constant; the block only keeps a read view of
    // the instruction it is executing. The cache operand belongs to it.
    return const_cast<vrkinstr*>(b->current_instruction);
}

vrkvar* private_copy(vrkvar* cell) {
    vrkvar* copy = cell_new();
    if (cell) assign(copy, deref(cell));
    return copy;
}

}  // namespace

int64_t find_member_index(const vrkmember_table& table, const std::string& text, vrkinstr* site) {
    vrkindex_cache* cache = site_cache(site);
    if (cache && cache->block == nullptr && cache->object == &table &&
        (cache->key_ptr == &text || cache->key == text) && cache->index < table.size())
        return cache->index;
    const int64_t i = search(table, text);
    if (i >= 0 && cache) {
        cache->block = nullptr;
        cache->object = &table;
        cache->key = text;
        cache->key_ptr = &text;
        cache->index = static_cast<uint32_t>(i);
    }
    return i;
}

ScriptArrayReturn member_access(vrkobject* object, const vrkmember_table* table, vrkblock* b,
                                vrkvar* cell, vrkvar* key, bool is_set) {
    if (!table || !key) return {};
    int64_t i = -1;
    if (key->type == Tag::INT) {
        i = key->value.i;
        if (i < 0 || i >= static_cast<int64_t>(table->size())) return {};
    } else if (key->type == Tag::STRING && key->value.str) {
        i = find_member_index(*table, *key->value.str, is_set ? nullptr : current_site(b));
    } else {
        i = find_member_index(*table, to_string(key), nullptr);
    }
    if (i < 0) return {};
    const vrkmember& member = (*table)[static_cast<std::size_t>(i)];

    if (member.function_cell) {
        // A function member reads as its FUNCTION value, which the script then
        // calls; the object stays on top of the block's object stack.
        if (is_set)
            log().error("cannot overide function member %s!", member.name.c_str());
        else
            assign(cell, member.function_cell, b);
        return {};
    }
    if (!member.accessor) return {};
    vrkobject* self = object->instance();
    if (!member.threaded) {
        member.accessor(self, cell, key, is_set);
        return {};
    }

    // A threaded property works on private copies on the worker and hands the
    // read value back through the cell while the block sleeps.
    vrkvar* key_copy = private_copy(key);
    vrkvar* value_copy = private_copy(cell);
    auto* threaded = dynamic_cast<vrkobject_threaded*>(self);
    if (threaded) threaded->jobBegin();
    ScriptArrayReturn answer;
    answer.status = 1;
    answer.job = [accessor = member.accessor, self, threaded, cell, key_copy, value_copy, is_set] {
        accessor(self, value_copy, key_copy, is_set);
        {
            ScriptLock lock;
            if (!is_set) assign(cell, value_copy);
            cell_free(key_copy);
            cell_free(value_copy);
        }
        if (threaded) threaded->jobEnd();
    };
    return answer;
}

vrkbuiltin_fn member_wrapper(vrkmember_fn callable, bool threaded) {
    return [callable = std::move(callable), threaded](vrkblock* b, std::vector<vrkvar*>& args,
                                                      void*, vrkvar& result) -> vrkvar* {
        if (!b || !b->object_stack || b->object_stack->empty() || !b->object_stack->back()) {
            log().log("invalid vrkobject!");
            return &result;
        }
        vrkobject* self = b->object_stack->back()->instance();
        // A member that leaves its result alone answers its own object.
        set_object(&result, self, false);
        if (!threaded) {
            callable(self, b, args, result);
            return &result;
        }
        vrkvalue_context& ctx = value_context();
        if (!ctx.startWorker || !b->engine) {
            callable(self, b, args, result);
            return &result;
        }
        auto* counted = dynamic_cast<vrkobject_threaded*>(self);
        if (counted) counted->jobBegin();
        return ctx.startWorker(
            [callable, self, b, counted, args](vrkvar* cell) mutable {
                callable(self, b, args, *cell);
                if (counted) counted->jobEnd();
            },
            b, &result);
    };
}

}  // namespace vrk
