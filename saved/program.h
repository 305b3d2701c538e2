// Compiled programs: a compiled root block written as a `.vre` image, and a
// running program built back from one.
//
// The image is the block record of the script's root block and nothing else:
// no preprocessor, parser or compiler is involved in loading it. What it needs
// from outside it finds by name while it is read: registered functions, native
// modules, global variables, named cells and extern functions must therefore
// exist before the load, which is so once the engine has been constructed. A
// global variable the image asks for and nobody declared is created, and
// retired again when the program's root block goes. Classes and singletons of
// the image run their bodies during the load; nothing else runs until the host
// runs the root block.
//
// A program parser has no file name and takes no part in reloading. A file
// whose content is bad is reported as the record reader reports it and leaves
// a partly filled root block, which the host runs all the same.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrk {

class vrkengine;
struct vrkparser;
struct vrkblock;
class ScriptCacheReader;
class ScriptCacheWriter;

// Bytes reserved for an image before it is written.
inline constexpr std::size_t kImageReserve = 2048;

// `save`: the parser's root block with code; nothing without a root block.
void save(const vrkparser* parser, ScriptCacheWriter& writer);
// `construct`: a fresh root block (the old one is destroyed) filled from the
// reader.
void construct(vrkparser* parser, ScriptCacheReader& reader);

// The image of a compiled root block.
std::vector<uint8_t> program_image(vrkblock* root);
// A parser made to receive an image: no file is read, nothing is parsed, and
// it is not one of the engine's scripts.
vrkparser* empty_program_parser(vrkengine* engine);
// Builds the program in `bytes`, read from offset 0, into the parser.
void construct_from_bytes(vrkparser* parser, const std::vector<uint8_t>& bytes);

// Writes the image of `root` to `path` in binary, replacing the file; false
// when the file cannot be written.
bool write_program(vrkblock* root, const std::string& path);
// Reads the image at `path` into a new program parser. A file that cannot be
// opened ends the process abnormally.
vrkparser* load_program(vrkengine* engine, const std::string& path);

}  // namespace vrk
