// What the block layer asks of the engine that owns a block.
//
// A block knows its engine only as an opaque `vrkscript*`. The few things the
// block layer must tell that engine (a block is gone, a block now sleeps, a
// detached block has finished and may be deleted) and the one engine table it
// reads (the blocks declared extern) go through this table of functions. The
// engine installs it when it is created, the way the front end installs the
// block's source splitter, so the block layer never includes the host. Before
// that (a block made without an engine, a test without one) the calls do
// nothing and the table reads as empty.
#pragma once

#include <map>
#include <string>

namespace vrk {

class vrkscript;
struct vrkblock;

struct vrkengine_link {
    void (*block_destroyed)(vrkscript* engine,
                            vrkblock* block) = nullptr;  // take the block out of every engine list
    void (*add_sleeper)(vrkscript* engine,
                        vrkblock* block) = nullptr;  // the scheduler takes a block that now sleeps
    void (*block_finished)(vrkscript* engine, vrkblock* block) =
        nullptr;  // delete a detached block at the frame's end
    std::map<std::string, vrkblock*>* (*extern_blocks)(vrkscript* engine) =
        nullptr;  // blocks declared extern, by name
};

// Installs the engine's table (the engine's constructor does it).
void set_engine_link(const vrkengine_link& link);

// Calls of the table; each does nothing for a null engine or before installation.
void engine_block_destroyed(vrkscript* engine, vrkblock* block);
void engine_add_sleeper(vrkscript* engine, vrkblock* block);
void engine_block_finished(vrkscript* engine, vrkblock* block);
// The engine's extern blocks, or null.
std::map<std::string, vrkblock*>* engine_extern_blocks(vrkscript* engine);

}  // namespace vrk
