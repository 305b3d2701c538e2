// `vrkengine`: the engine as every layer below the host sees it.
//
// A block belongs to an engine, and the block layer, the front end, the saved
// forms and the builtins all need something of it: the block of registered
// functions and the global block that names resolve against, the tables the
// compiler fills (extern blocks, frame functions, constructors), a place to
// register builtins, a worker thread for a slow job, a schedule, the list of
// loaded scripts. The engine itself, `vrkscript` (host/engine.h), is the top
// layer and owns far more (threads, sleepers, retired scripts, the frame). So
// the engine is cut in two: this abstract record holds the tables the lower
// layers read and write as plain fields, and declares the operations they may
// ask of the engine as virtual functions that `vrkscript` implements. A block
// points to its engine through this type, so no lower layer includes the host.
//
// The free functions at the end are the block layer's calls on its engine; each
// does nothing for a null engine (a block made without one, a test).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "vm/instruction.h"

namespace vrk {

struct vrkblock;
struct vrkvar;
struct vrkparser;
struct vrkschedule;

class vrkengine {
public:
    virtual ~vrkengine() = default;
    vrkengine(const vrkengine&) = delete;
    vrkengine& operator=(const vrkengine&) = delete;

    // Registers a builtin: a native block under `name` in firstBlock. The name and
    // description must outlive the engine. Returns the function's cell.
    virtual vrkvar* registerFunction(const char* name, vrkbuiltin_fn function, int parameterCount,
                                     void* userValue, const char* description, bool plain_args,
                                     bool deref_args) = 0;
    // registerFunction, and the function cell enters `constructors` with the
    // script type name it makes.
    virtual vrkvar* registerConstructor(const char* name, vrkbuiltin_fn function,
                                        int parameterCount, void* userValue,
                                        const char* description, bool plain_args, bool deref_args,
                                        const char* typeName) = 0;
    // Registers a global variable in firstBlock.
    virtual vrkvar* registerVariable(const char* name, const char* description) = 0;

    // Loads a script: a file (`isFile`) or source text. Returns the parser, which
    // has no root block when the source could not be read; null for an empty name.
    virtual vrkparser* load(const std::string& fileName, bool isFile, bool compileNow) = 0;
    // Loads the native module at `path`.
    virtual void loadModule(const std::string& path) = 0;
    // The loaded scripts, in load order.
    virtual std::vector<vrkparser*> scripts() const = 0;

    // Runs `function` on a worker thread on behalf of `block`, which sleeps until
    // a frame after the work has finished; the function gets `returnCell`,
    // which is also the answer.
    virtual vrkvar* returnThread(std::function<void(vrkvar*)> function, vrkblock* block,
                                 vrkvar* returnCell) = 0;

    // A new zeroed schedule record with the next id, owned by the engine.
    virtual vrkschedule* addSchedule() = 0;
    // Finds the record and frees it; an unknown record is ignored.
    virtual void removeSchedule(vrkschedule* record) = 0;
    // The schedule record with that id, or null.
    virtual vrkschedule* find_schedule(uint64_t id) = 0;

    // True while the block is in the scheduler's hands: waiting to start,
    // sleeping, or suspended and resumed by the frame.
    virtual bool is_scheduled(const vrkblock* b) const = 0;
    // Ends the run of a script thread (or any block the scheduler holds) at
    // once; false for a block the run loop is inside.
    virtual bool stop_thread(vrkblock* b) = 0;

    // A block is being destroyed: take it out of every engine list.
    virtual void block_destroyed(vrkblock* block) = 0;
    // The scheduler takes a block that now sleeps.
    virtual void add_sleeper(vrkblock* block) = 0;
    // A detached block has finished: delete it at the frame's end.
    virtual void block_finished(vrkblock* block) = 0;

    vrkblock* firstBlock = nullptr;           // registered functions: cells, names, native blocks
    vrkblock* globalBlock = nullptr;          // the scripts' global variables
    std::string moduleText;                   // kept for native modules
    std::string scriptSearchPath;             // prefix for relative script names
    std::vector<vrkblock*> frame_blocks;      // run once per frame (onFrame)
    std::vector<vrkparser*> parsersToRemove;  // scripts to stop at the next frame
    std::map<std::string, vrkblock*> extern_blocks;   // blocks declared extern, by name
    std::map<const char*, const char*> descriptions;  // help text by name pointer
    std::map<vrkvar*, std::string> namedCells;        // named global cells
    std::map<vrkvar*, vrkvar*> constructors;  // constructor cell -> constant STRING of its type
    // Receivers of `out` text, by the root block of the script that writes it.
    std::map<vrkblock*, std::function<void(vrkblock*, const std::string&)>> outputHandlers;

protected:
    vrkengine() = default;
};

// The block layer's calls on a block's engine; each does nothing for a null engine.
void engine_block_destroyed(vrkengine* engine, vrkblock* block);
void engine_add_sleeper(vrkengine* engine, vrkblock* block);
void engine_block_finished(vrkengine* engine, vrkblock* block);
// The engine's extern blocks, or null.
std::map<std::string, vrkblock*>* engine_extern_blocks(vrkengine* engine);

}  // namespace vrk
