// Run-time fault reports, with the trace the block layer writes.
#include "values/error_report.h"

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/script_lock.h"
#include "values/value_context.h"

namespace vrk {

namespace {

constexpr std::size_t kReportBufferSize = 16384;

// The trace of `block`, or nothing before the block layer's writer is installed.
std::string trace_of(vrkblock* block) {
    std::string t;
    if (block) {
        if (auto writer = value_context().trace_writer) writer(block, t);
    }
    return t;
}

}  // namespace

void runtime_error(const char* code, vrkblock* block) {
    const std::string t = trace_of(block);
    log().error("\nRuntime error: %s\n%s\n", code, t.c_str());
}

void report_error(vrkblock* block, const char* kind, const char* message) {
    ScriptLock lock;
    const std::string t = trace_of(block);
    log().error("\n%s: %s\nIn File:\n%s\n", kind ? kind : "runtime error", message, t.c_str());
}

void report_errorf(vrkblock* block, const char* kind, const char* format, ...) {
    ScriptLock lock;
    // The message is cut at the size of the report buffer.
    std::vector<char> buffer(kReportBufferSize);
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer.data(), buffer.size(), format, args);
    va_end(args);
    report_error(block, kind ? kind : "runtime_error", buffer.data());
}

}  // namespace vrk
