// File builtins: reading and writing files, file information, folder walks,
// and the paths of the running script and program.
//
// Paths are byte strings handed to the system as they stand. A wrong call is
// a silent named report (`errorNamed`) and the builtin answers its default,
// usually INT 0. Reading a file that cannot be opened leaves the result as it
// was or reports "cannot open file!", as each function says.
//
// The slow functions come in a second, threaded form (`filereadthread`,
// `filehashthread`), and every folder walk is threaded: the inputs are copied
// into a job that runs on a worker thread (`returnThread`) while the calling
// block sleeps; the job writes the result cell under the script lock when it
// ends, and the block wakes with it. Walks never report a missing folder.
//
// Every body has the signature of builtins/registry.h and lives in namespace
// `lib` under its script name.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

// ---- reading and writing (builtins/files_read.cpp) ------------------------------
VRK_BUILTIN(stringfromfile);  // (filename) the text of a file; the result stays on failure
VRK_BUILTIN(fileread);        // (filename) the bytes of a file as DATA
VRK_BUILTIN(filereadthread);  // (filename) the same on a worker thread
VRK_BUILTIN(filewrite);       // (filename, value) replaces the file; makes its folders
VRK_BUILTIN(fileappend);      // (filename, value) appends; makes its folders
VRK_BUILTIN(fappend);         // (filename, text) appends text
VRK_BUILTIN(linesfromfile);   // (filename) JSON of the lines without line feeds
VRK_BUILTIN(filehash);        // (filename) the change-detection hash of the bytes
VRK_BUILTIN(filehashthread);  // (filename) the same on a worker thread

// ---- file information and paths (builtins/files_info.cpp) -----------------------
VRK_BUILTIN(fileexists);     // (filename) 1 when the path exists (folders too)
VRK_BUILTIN(filemodified);   // (filename) modification time, seconds since 1970
VRK_BUILTIN(fileage);        // (filename) milliseconds since the last modification
VRK_BUILTIN(filesize);       // (filename) size in bytes
VRK_BUILTIN(fileshortname);  // (path) the last component of a path
VRK_BUILTIN(curdir);         // () the folder of the calling script
VRK_BUILTIN(moduledir);      // () the path of the running program
VRK_BUILTIN(module_path);    // () the file of the calling script
VRK_BUILTIN(modulename);     // () the engine's current module name

// ---- folder walks (builtins/files_walk.cpp) --------------------------------------
VRK_BUILTIN(files);           // (dir...) every file below up to 16 folders
VRK_BUILTIN(folders);         // (dir...) the sub-folders of each folder
VRK_BUILTIN(folder_content);  // (dir) {"files": [...], "folders": [...]} by name
VRK_BUILTIN(filesext);        // (dir, ".a,.b", depth) files with one of the extensions
VRK_BUILTIN(filesext2);       // (dir, ".a,.b") files without any of the extensions

}  // namespace vrk::lib
