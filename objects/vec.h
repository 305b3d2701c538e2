// `ScriptVector`, the numeric vector of scripts (script type `vec`).
//
// A vector holds up to four single-precision components in normal use (a
// vector read from bytes may hold more). Scripts reach the components by the
// properties `x y z w` (and `r g b` for the first three), by index, and by
// component lists such as `v["xy"]`, which read as a new vector and write
// several components at once. `+ - * /` make a new vector per operation; a
// scalar operand applies to every component.
//
// Vector arithmetic makes one object per operation, so ended vectors are not
// deleted but kept in a pool of the process context and handed out again. A
// pooled vector stays registered under its id: a handle kept past the end of
// a vector resolves to its next use. Growing a vector beyond its present
// dimension starts its components afresh (at zero); shrinking keeps them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "objects/object_ext.h"

namespace vrk {

class ScriptVector : public vrkobject_ext<ScriptVector, vrkobject> {
public:
    static constexpr const char* script_type_name = "vec";

    // Registers the type and its members (x y z w r g b, length, normalize,
    // and the catch-all for indices and component lists).
    static void scriptRegister();
    // A vector of `dimension` zero components, from the pool when it has one.
    static ScriptVector* make(int32_t dimension);

    ScriptVector();
    ~ScriptVector() override;

    // Sets the dimension (below 1 counts as 1); growing starts every
    // component afresh at zero.
    void resize(int32_t n);
    // Component i, or 0 outside the vector.
    float component(int32_t i) const;
    // Euclidean length: squares in single precision, summed in double.
    double length() const;

    void destroy() override;
    bool serialize(ScriptCacheWriter& writer) override;
    bool deserialize(ScriptCacheReader& reader) override;
    void toString(std::string& out) override;
    double toFloat() override;
    int64_t toInt() override;
    void toData(std::vector<uint8_t>& out) override;
    vrkobject* clone() override;
    vrkobject* deepCopy() override;
    bool add(vrkblock* b, vrkvar* other, vrkvar* res) override;
    bool mult(vrkblock* b, vrkvar* other, vrkvar* res) override;
    bool div(vrkblock* b, vrkvar* other, vrkvar* res) override;
    bool div_reverse(vrkblock* b, vrkvar* other, vrkvar* res) override;
    bool sub(vrkblock* b, vrkvar* other, vrkvar* res) override;
    bool sub_reverse(vrkblock* b, vrkvar* other, vrkvar* res) override;
    ScriptArrayReturn count(vrkblock* b, vrkvar* res) override;

    std::vector<float> data;  // the components; its size is the capacity
    int32_t dimension = 2;    // components in use, at least 1
};

}  // namespace vrk
