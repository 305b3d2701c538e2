// Retiring and reviving names of the engine's global block.
//
// A global variable can be retired without losing its slot: its cell stays at
// its index under the name + "__VORKAGC", so instructions compiled against the
// slot keep working, and declaring the name again revives that same slot.
#pragma once

#include <string>

namespace vrk {

struct vrkvar;
class vrkengine;

// Takes `name` out of the global block's names, keeping its slot for a revival.
void retire_global(vrkengine* engine, const std::string& name);
// Declares `name` in the global block, reviving a retired slot if there is one.
vrkvar* declare_global(vrkengine* engine, const std::string& name);

}  // namespace vrk
