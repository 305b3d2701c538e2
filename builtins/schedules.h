// Date schedules: `everyxdays`, `everyxhours`, `everyxminutes`, `everyxseconds`.
//
// Each call enters a schedule record into the engine (builtins/schedule_record.h): the
// function, a period in the unit of the call's name, and a start given as
// local "dd.mm.yyyy hh:mm". The engine looks at one record per frame and,
// when its test passes, starts the function as a script thread in an idle
// copy. The record lives as long as the function's block; the answer of the
// call is the record's id, or false when the call was refused.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(everyxdays);     // (func, days, "dd.mm.yyyy hh:mm")
VRK_BUILTIN(everyxhours);    // (func, hours, "dd.mm.yyyy hh:mm")
VRK_BUILTIN(everyxminutes);  // (func, minutes, "dd.mm.yyyy hh:mm")
VRK_BUILTIN(everyxseconds);  // (func, seconds, "dd.mm.yyyy hh:mm")

}  // namespace vrk::lib
