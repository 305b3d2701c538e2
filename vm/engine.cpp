// The block layer's calls on the engine that owns a block (vm/engine.h).
#include "vm/engine.h"

namespace vrk {

void engine_block_destroyed(vrkengine* engine, vrkblock* block) {
    if (engine) engine->block_destroyed(block);
}

void engine_add_sleeper(vrkengine* engine, vrkblock* block) {
    if (engine) engine->add_sleeper(block);
}

void engine_block_finished(vrkengine* engine, vrkblock* block) {
    if (engine) engine->block_finished(block);
}

std::map<std::string, vrkblock*>* engine_extern_blocks(vrkengine* engine) {
    return engine ? &engine->extern_blocks : nullptr;
}

}  // namespace vrk
