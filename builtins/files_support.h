// Pieces shared by the file builtins (builtins/files_*.cpp): text arguments,
// the folder-making routine, and the hand-over of a job to a worker
// thread whose result is written into the call's result cell.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/log.h"
#include "values/cell.h"

namespace vrk {
class vrkengine;
struct vrkblock;
}  // namespace vrk

namespace vrk::lib::file_support {

// Argument `i` as text (a no-value marker reads as "0").
std::string text_arg(std::vector<vrkvar*>& args, std::size_t i);

// Creates every folder of `path` in turn; levels that exist already are fine.
void make_folders(const std::string& path);

// Runs `job` on a worker thread for `block`, which sleeps until it ends. The
// job computes without touching cells, then takes the script lock to write its
// answer into the cell it is given (the call's result). Without an engine it
// runs here at once.
vrkvar* run_job(vrkengine* engine, vrkblock* block, vrkvar& result,
                std::function<void(vrkvar*)> job);

// Replaces the cell's value by a JSON array of the strings, dropping empty ones.
void store_strings(vrkvar* cell, const std::vector<std::string>& strings);

}  // namespace vrk::lib::file_support
