// `AScript`, a script loaded as an object (script type `vorkamodule`).
//
// `loadmodule` loads a script, from a file or from source text, into the
// engine and gives it to the caller as an object: the caller reads and
// writes the script's top-level variables (`has`, `get`, `set`), runs its root
// block (`run`, `running`), takes its compiled program image (`compile`) and
// asks for its folder (`module_dir`). The script is an ordinary loaded script
// of the engine; the object only points at its parser record. A failed load
// still gives an object, without a script, whose members do nothing.
//
// The script goes when the object goes: the destructor logs "unloading
// module." and hands the parser to `unload`, which the creator set (the engine
// removes the script at its next frame). A REF taken with `get` points into
// the script's variables and is valid only while the module lives.
#pragma once

#include <functional>
#include <string>

#include "objects/object_ext.h"

namespace vrk {

class vrkengine;
struct vrkparser;

class AScript : public vrkobject_ext<AScript, vrkobject> {
public:
    static constexpr const char* script_type_name = "vorkamodule";

    // Registers the type and its members, in their fixed order.
    static void scriptRegister();

    AScript() = default;
    ~AScript() override;

    // The root block of the script, or null (no script, or a script that
    // could not be read).
    vrkblock* root() const;

    vrkengine* engine = nullptr;             // the engine that holds the script
    vrkparser* script = nullptr;             // the loaded script's parser; null when loading failed
    std::function<void(vrkparser*)> unload;  // asks the engine to remove the script
};

}  // namespace vrk
