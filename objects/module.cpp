// The script module type: its members and its end.
#include "objects/module.h"

#include "base/log.h"
#include "frontend/parser.h"
#include "saved/program.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/run.h"

namespace vrk {

namespace {

// The variable `name` of the module's root block, or null. A missing name is
// reported when `report` is set.
vrkvar* module_var(AScript* self, vrkvar* name, bool report) {
    vrkblock* root = self->root();
    const std::string text = to_string(deref(name));
    auto& names = root->get_names();
    auto found = names.find(text);
    if (found == names.end() || found->second >= root->vars.size()) {
        if (report) log().error("cannot find var %s in module!", text.c_str());
        return nullptr;
    }
    return root->vars[found->second];
}

}  // namespace

AScript::~AScript() {
    log().log("unloading module.");
    if (script && unload) unload(script);
}

vrkblock* AScript::root() const { return script ? script->root_block : nullptr; }

void AScript::scriptRegister() {
    registerType<AScript>(script_type_name);
    scriptFunction<AScript>(
        "has",
        [](AScript* self, vrkblock*, std::vector<vrkvar*>& args, vrkvar& result) {
            set_int(&result, 0);
            if (args.size() != 1 || !self->root()) return;
            if (module_var(self, args[0], false)) set_int(&result, 1);
        },
        1, false, false, "(var_name)");
    scriptFunction<AScript>(
        "get",
        [](AScript* self, vrkblock*, std::vector<vrkvar*>& args, vrkvar& result) {
            if (args.size() != 1 || !self->root()) return;
            if (vrkvar* var = module_var(self, args[0], true)) set_ref(&result, var);
        },
        1, false, false, "(var_name)");
    scriptFunction<AScript>(
        "set",
        [](AScript* self, vrkblock* b, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 2 || !self->root()) return;
            if (vrkvar* var = module_var(self, args[0], true)) assign(var, deref(args[1]), b);
        },
        2, false, false, "(var_name, value)");
    scriptFunction<AScript>(
        "run",
        [](AScript* self, vrkblock*, std::vector<vrkvar*>&, vrkvar&) {
            if (vrkblock* root = self->root()) run(root, nullptr, 0, kSelfUnchanged);
        },
        0, false, false, "()");
    scriptFunction<AScript>(
        "running",
        [](AScript* self, vrkblock*, std::vector<vrkvar*>&, vrkvar& result) {
            vrkblock* root = self->root();
            set_int(&result, root && block_alive(root) && root->busy() ? 1 : 0);
        },
        0, false, false, "()");
    scriptFunction<AScript>(
        "compile",
        [](AScript* self, vrkblock*, std::vector<vrkvar*>&, vrkvar& result) {
            vrkblock* root = self->root();
            if (!root) return;
            set_type(&result, Tag::DATA);
            if (std::vector<uint8_t>* data = as_data(&result)) *data = program_image(root);
        },
        0, false, false, "() returns binary uchars of program");
    scriptFunction<AScript>(
        "module_dir",
        [](AScript* self, vrkblock*, std::vector<vrkvar*>&, vrkvar& result) {
            if (self->script) set_string(&result, self->script->source_folder);
        },
        0, false, false, "()");
}

}  // namespace vrk
