// The trace of a block's calling chain.
#include "vm/errors.h"

#include "base/context.h"
#include "base/log.h"
#include "vm/block.h"
#include "vm/debug_runs.h"

namespace vrk {

namespace {

// The line entry of the table that covers instruction ip, or null.
const vrkline_entry* line_of(const vrkblock* b, uint32_t ip) {
    for (const auto& [key, entry] : *b->line_table) {
        if (entry.first <= ip && ip <= entry.last) return &entry;
    }
    return nullptr;
}

void trace_into(vrkblock* b, std::string& out, int depth) {
    // A block that is its own caller ends the chain; a corrupt chain is cut
    // rather than followed for ever.
    if (b->caller && b->caller != b && depth < 4096 && block_alive(b->caller))
        trace_into(b->caller, out, depth + 1);
    // A block that is running names the instruction it is at when debug
    // tables are kept (the caller of a call is at that call); otherwise, and
    // for a suspended block, the place its run resumes at.
    uint32_t ip = b->resume_at;
    if (context().debug_info && b->running && !b->native)
        if (const uint32_t* position = debug_run_position(b)) ip = *position;
    if (ip < b->code.size() && b->line_table) {
        if (const vrkline_entry* entry = line_of(b, ip)) {
            std::string file = "MEMORY";
            if (b->file_table && !b->file_table->empty() && b->file_table->front().first <= ip)
                file = b->file_table->front().name;
            std::size_t start = entry->text.find_first_not_of(" \t");
            out += "line ";
            out += std::to_string(entry->line);
            out += " in file: ";
            out += file;
            out += "\n-> ";
            out += start == std::string::npos ? std::string() : entry->text.substr(start);
            out += "\n\n";
            return;
        }
    } else if (b->native) {
        out += "external block\n";
        if (b->code_text) out += *b->code_text;
        out += "\n\n";
        return;
    }
    out += "line 0 in file: MEMORY\ninternal debug info error (no debug info)!\n\n";
}

}  // namespace

void trace(vrkblock* block, std::string& out) {
    if (!block) return;
    trace_into(block, out, 0);
}

}  // namespace vrk
