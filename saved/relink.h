// What the compiler leaves outside the code, done again for a loaded program.
//
// Compiling a declaration does more than emit instructions: the function goes
// into its variable at once (so a call written above the declaration finds
// it), a list literal's cell starts out as an empty list, and a function named
// `onFrame...` enters the engine's frame list. A program record carries the
// code and the constants but none of these three, so after a program is read
// they are rebuilt from the code itself, whose shape the compiler fixes:
//
//   declaration   LOAD k <block>   (the constant function cell of the body)
//                 PUSH 1 ; LOAD i <owner> ; SET -1    (named)   or
//                 SET i <block>                        (anonymous)
//   list literal  LOAD d <block> ; LOAD sub-code 6    (empty the list on top)
#pragma once

namespace vrk {

struct vrkblock;
class vrkengine;

// Puts each declared function's block back into its variable and makes each
// list literal's cell an empty list again, in `root` and every saved child.
void relink_loaded(vrkblock* root);

// Enters the argument-less functions named "onFrame..." that a program
// declares outside classes into the engine's frame list.
void register_frame_functions(vrkblock* root, vrkengine* engine);

}  // namespace vrk
