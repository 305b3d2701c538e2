// The table of engine calls the block layer uses, installed by the engine.
#include "vm/engine_link.h"

namespace vrk {

namespace {

vrkengine_link& link_slot() {
    static vrkengine_link slot;
    return slot;
}

}  // namespace

void set_engine_link(const vrkengine_link& link) { link_slot() = link; }

void engine_block_destroyed(vrkscript* engine, vrkblock* block) {
    if (engine && link_slot().block_destroyed) link_slot().block_destroyed(engine, block);
}

void engine_add_sleeper(vrkscript* engine, vrkblock* block) {
    if (engine && link_slot().add_sleeper) link_slot().add_sleeper(engine, block);
}

void engine_block_finished(vrkscript* engine, vrkblock* block) {
    if (engine && link_slot().block_finished) link_slot().block_finished(engine, block);
}

std::map<std::string, vrkblock*>* engine_extern_blocks(vrkscript* engine) {
    if (!engine || !link_slot().extern_blocks) return nullptr;
    return link_slot().extern_blocks(engine);
}

}  // namespace vrk
