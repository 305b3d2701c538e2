// `VorkaOS`, the class of the one global object `os` (script type `vorka_os`).
//
// `os` groups path helpers (`file_name`, `file_ext`, `file_dir`), file system
// operations (`rename`, `copy`, `remove`, `create_directory`, ...), folder
// listings and console output with colours. It has no state of its own: every
// member works on its arguments and the process.
//
// The object is made once per engine when the builtins are registered. Its
// flag `object_flag::GLOBAL` makes `free(os)` refuse it, and its cell is a
// constant, so a script cannot assign over it.
//
// Failures of the file system operations come from the standard file system
// library as exceptions; a member turns one into a run-time error of the
// calling script with the library's text (a trace follows), and the script
// goes on. Four members are threaded (`get_files`, `file_as_string`, `input`,
// `print`): they run on a worker thread while the calling block sleeps.
//
// The member table keeps a second `remove` after `set_working_directory`; a
// name look-up stops at the first record of a name, so the first `remove`
// answers and the second is never reached.
#pragma once

#include "objects/object_ext.h"

namespace vrk {

class vrkengine;

class VorkaOS : public vrkobject_ext<VorkaOS, vrkobject> {
public:
    static constexpr const char* script_type_name = "vorka_os";

    // Registers the type and its members in their fixed order.
    static void scriptRegister();
};

// Sets up the global cell `os`: a new `VorkaOS`, global, behind a constant handle.
void setup_os_global(vrkengine* engine, vrkvar* cell);

// The console attribute a colour name gives: `background` selects the table
// of `set_bg_color`. A name in neither table gives its length (times 16 for
// the background).
int colour_attribute(const std::string& name, bool background);

}  // namespace vrk
