// Console output past the log: cout, couts, cprogress, coutclear, out, console window.
#include "builtins/console_out.h"

#include <cstdio>
#include <string>

#include "builtins/files_support.h"
#include "platform/console.h"
#include "platform/system.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/engine.h"

namespace vrk::lib {

namespace {

void write_line(const std::string& text, char end) {
    std::string line = text;
    line += end;
    platform::flush_stdout();
    platform::write_stdout(line.data(), line.size());
}

}  // namespace

VRK_BUILTIN(out) {
    if (args.size() != 1 || !engine) return &result;
    vrkblock* root = block;
    while (root && root->parent) root = root->parent;
    const auto handler = engine->outputHandlers.find(root);
    if (handler == engine->outputHandlers.end() || !handler->second) return &result;
    const std::string text = file_support::text_arg(args, 0);
    handler->second(root, text);
    return &result;
}

VRK_BUILTIN(hideconsole) {
    platform::show_console_window(false);
    return &result;
}

VRK_BUILTIN(showconsole) {
    platform::show_console_window(true);
    return &result;
}

VRK_BUILTIN(cout) {
    if (args.size() == 1) write_line(file_support::text_arg(args, 0), '\n');
    return &result;
}

VRK_BUILTIN(couts) {
    if (args.size() == 1) write_line(file_support::text_arg(args, 0), '\r');
    return &result;
}

VRK_BUILTIN(coutclear) {
    platform::clear_console();
    return &result;
}

VRK_BUILTIN(cprogress) {
    if (args.empty()) return &result;
    const double given = to_float(args[0]);
    double p = given;
    if (!(p >= 0.0)) p = 0.0;
    if (p > 1.0) p = 1.0;
    constexpr int kPlaces = 70;
    const int pos = static_cast<int>(p * kPlaces);
    std::string bar = "[";
    for (int i = 0; i < kPlaces; ++i) {
        if (i < pos)
            bar += given == 1.0 ? '=' : '|';
        else if (i == pos)
            bar += '>';
        else
            bar += ' ';
    }
    char number[64];
    std::snprintf(number, sizeof(number), "%lf", static_cast<double>(static_cast<int>(p * 100)));
    bar += "] ";
    bar += number;
    bar += " % \r";
    platform::flush_stdout();
    platform::write_stdout(bar.data(), bar.size());
    return &result;
}

}  // namespace vrk::lib
