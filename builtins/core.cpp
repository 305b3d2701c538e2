// The core builtins: help, print, error values, constants, character texts,
// module import, the preprocessor and log listeners.
#include "builtins/core.h"

#include <cstdio>
#include <memory>
#include <string>

#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/preprocess.h"
#include "platform/system.h"
#include "values/json.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/copies.h"
#include "vm/engine.h"
#include "vm/errors.h"
#include "vm/run.h"

namespace vrk::lib {

namespace {

// Names handed to the silent wrong-call report.
const char* const kIserrorName = "iserror";
const char* const kGeterrorName = "geterror";
const char* const kPreprocessorName = "preprocessor";
const char* const kLoglistenerName = "loglistener";

constexpr double kPi = 3.14159265359;
// Most copies a log listener makes of its function before it drops messages.
constexpr std::size_t kMaxListenerCopies = 1000;

vrkvar* answer_int(vrkvar& result, int64_t value) {
    set_int(&result, value);
    return &result;
}

vrkvar* answer_text(vrkvar& result, const std::string& text) {
    set_string(&result, text);
    return &result;
}

// `count` copies of `ch`: one without an argument, none for a count below 1.
vrkvar* answer_repeated(std::vector<vrkvar*>& args, vrkvar& result, char ch) {
    if (args.empty()) return answer_text(result, std::string(1, ch));
    const int64_t count = to_int(args[0]);
    if (count < 1) return answer_text(result, std::string());
    return answer_text(result, std::string(static_cast<std::size_t>(count), ch));
}

bool is_error(const vrkvar* cell) { return cell && cell->type == Tag::ERR; }

std::string error_message(const vrkvar* cell) {
    return cell->value.str ? *cell->value.str : std::string();
}

// Elements of a number set joined by ",", each in its printf form.
template <class T>
std::string joined(const std::vector<T>* values, const char* format) {
    std::string out;
    if (!values) return out;
    char number[64];
    for (std::size_t i = 0; i < values->size(); ++i) {
        if (i) out += ',';
        std::snprintf(number, sizeof number, format, (*values)[i]);
        out += number;
    }
    return out;
}

// The line print writes for one value.
std::string print_form(const vrkvar* cell) {
    switch (cell->type) {
        case Tag::DATA: {
            std::string out;
            if (!cell->value.data) return out;
            for (std::size_t i = 0; i < cell->value.data->size(); ++i) {
                if (i) out += ',';
                out += std::to_string((*cell->value.data)[i]);
            }
            return out;
        }
        case Tag::FLOATSET: {
            std::string out;
            if (!cell->value.floatset) return out;
            std::vector<double> widened(cell->value.floatset->begin(), cell->value.floatset->end());
            return joined(&widened, "%lf");
        }
        case Tag::DOUBLESET: return joined(cell->value.doubleset, "%lf");
        case Tag::INTSET: {
            if (!cell->value.intset) return {};
            std::vector<long long> widened(cell->value.intset->begin(), cell->value.intset->end());
            return joined(&widened, "%lld");
        }
        case Tag::BIGINTSET: {
            std::string out;
            if (!cell->value.bigintset) return out;
            for (std::size_t i = 0; i < cell->value.bigintset->size(); ++i) {
                if (i) out += ',';
                out += std::to_string((*cell->value.bigintset)[i]);
            }
            return out;
        }
        case Tag::REF: return "ref";
        case Tag::VOID: return "void";
        default: return to_string(cell);
    }
}

// A log listener that runs a script function with each message. The function
// runs in a free block of its own: the copy made at registration, or, when all
// are busy (a message logged while the function runs), a further copy.
struct script_listener {
    script_listener() = default;
    script_listener(const script_listener&) = delete;
    script_listener& operator=(const script_listener&) = delete;
    ~script_listener() {
        reset(function, Tag::INT);
        cell_free(function);
    }

    vrkvar* function = cell_new(Tag::INT);  // private copy of the function's cell
    std::vector<vrkblock*> copies;          // blocks it runs in; the first made at registration

    // Runs the function with the message in its parameter; always keeps the listener.
    bool deliver(const char* text) {
        vrkblock* target = nullptr;
        for (auto it = copies.rbegin(); it != copies.rend(); ++it) {
            if (block_alive(*it) && !(*it)->busy()) {
                target = *it;
                break;
            }
        }
        if (!target) {
            if (copies.size() > kMaxListenerCopies) {
                write_line("max 1000 separate command threads reached!!!\n");
                return true;
            }
            if (block_alive(copies.front())) target = get_instance(copies.front(), function, true);
            if (!target) {
                write_line("error could not copy block??\n");
                return true;
            }
            copies.push_back(target);
        }
        if (!target->vars.empty()) set_string(target->vars[0], text);
        run(target, nullptr, 0, kSelfUnchanged);
        return true;
    }

    static void write_line(const char* text) {
        platform::write_stdout(text, std::char_traits<char>::length(text));
    }
};

}  // namespace

VRK_BUILTIN(help) {
    if (args.size() != 1) {
        for (const auto& [name, text] : engine->descriptions) {
            const std::string line = std::string("FN: ") + name + " DESC: " + text;
            log().log("%s", line.c_str());
        }
        return &result;
    }
    const std::string wanted = to_string(args[0]);
    // The map is keyed by the address of each name literal and compares
    // addresses: the address of this text finds no row, so asking for a
    // function by name reports it missing.
    auto found = engine->descriptions.find(wanted.c_str());
    if (found == engine->descriptions.end()) {
        report_error(block, "external_function", "function not found");
        return nullptr;
    }
    const std::string line = "FN: " + wanted + " " + found->second;
    log().log("%s", line.c_str());
    return answer_text(result, found->second);
}

VRK_BUILTIN(getfunctions) {
    reset(&result, Tag::JSON);
    for (const auto& [name, text] : engine->descriptions) {
        vrkelement* element = element_new_keyed(name);
        set_string(element, text);
        result.value.json->elements.push_back(element);
    }
    return &result;
}

VRK_BUILTIN(print) {
    for (vrkvar* arg : args) log().logText(print_form(arg).c_str());
    return &result;
}

VRK_BUILTIN(error) {
    if (args.empty()) return &result;
    const std::string text = to_string(args[0]);
    report_errorf(block, "external_function", "%s", text.c_str());
    return &result;
}

VRK_BUILTIN(fail) {
    const std::string message = args.size() == 1 ? to_string(args[0]) : std::string();
    reset(&result, Tag::ERR);
    *result.value.str = message;
    return &result;
}

VRK_BUILTIN(failed) { return answer_int(result, args.size() != 1 || is_error(args[0]) ? 1 : 0); }

VRK_BUILTIN(failcode) {
    if (args.size() == 1 && is_error(args[0])) return answer_text(result, error_message(args[0]));
    return answer_text(result, std::string());
}

VRK_BUILTIN(iserror) {
    if (args.size() != 1) {
        log().errorNamed(&kIserrorName, "invalid params!");
        return answer_int(result, 0);
    }
    return answer_int(result, is_error(args[0]) ? 1 : 0);
}

VRK_BUILTIN(geterror) {
    if (args.size() == 1 && is_error(args[0])) return answer_text(result, error_message(args[0]));
    if (args.size() != 1) log().errorNamed(&kGeterrorName, "invalid params!");
    return answer_text(result, "errormsg not set.");
}

VRK_BUILTIN(globalvar_exist) {
    if (args.size() != 1) return answer_int(result, 0);
    const auto& names = engine->firstBlock->get_names();
    return answer_int(result, names.count(to_string(args[0])) ? 1 : 0);
}

VRK_BUILTIN(platform) { return answer_text(result, vrk::platform::platform_name()); }

VRK_BUILTIN(pi) {
    set_float(&result, kPi);
    return &result;
}

void setup_M_PI(vrkengine*, vrkvar* cell) { set_float(cell, kPi); }

VRK_BUILTIN(nl) { return answer_repeated(args, result, '\n'); }
VRK_BUILTIN(qt) { return answer_repeated(args, result, '"'); }
VRK_BUILTIN(qt2) { return answer_text(result, "'"); }
VRK_BUILTIN(tab) { return answer_repeated(args, result, '\t'); }
VRK_BUILTIN(cr) { return answer_text(result, "\r"); }
VRK_BUILTIN(bs) { return answer_text(result, "\b"); }
VRK_BUILTIN(bsl) { return answer_text(result, "\\"); }
VRK_BUILTIN(sl) { return answer_text(result, "/"); }

VRK_BUILTIN(import) {
    if (args.size() == 1) engine->loadModule(to_string(args[0]));
    return &result;
}

VRK_BUILTIN(preprocessor) {
    if (args.empty()) {
        log().errorNamed(&kPreprocessorName, "wrong params!");
        return &result;
    }
    const std::string base = args.size() > 1 ? to_string(args[1]) : std::string();
    return answer_text(result, preprocess_text(to_string(args[0]), engine->scriptSearchPath, base));
}

VRK_BUILTIN(loglistener) {
    if (args.size() != 1) {
        log().errorNamed(&kLoglistenerName, "invalid parameter count");
        return answer_int(result, 0);
    }
    vrkvar* function = deref(args[0]);
    if (function->type != Tag::FUNCTION || !function->block || function->block->param_count != 1) {
        log().errorNamed(&kLoglistenerName, "wrong cb!");
        return answer_int(result, 0);
    }
    vrkblock* copy = get_instance(function->block, function, true);
    if (!copy) {
        script_listener::write_line("cannot copy callback function (may be empty)?\n");
        return &result;
    }

    auto listener = std::make_shared<script_listener>();
    assign(listener->function, function, block);
    listener->copies.push_back(copy);
    ScriptLock lock;
    const uint32_t id = log().addListener(
        [listener](ScriptLogType, const char* text) { return listener->deliver(text); });
    // The listener goes with the block it runs in.
    callback_add(
        [id](uint64_t) {
            script_listener::write_line("ondestroy remove loglistener\n");
            log().removeListener(id);
        },
        reinterpret_cast<uint64_t>(listener.get()), copy, 1);
    return answer_int(result, id);
}

VRK_BUILTIN(refactor_old) {
    if (args.size() != 1) {
        report_errorf(block, "external_function", "wrong params! %s", "refactor_old");
        return answer_text(result, std::string());
    }
    return answer_text(result, to_string(args[0]));
}

}  // namespace vrk::lib
