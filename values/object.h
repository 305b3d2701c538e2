// Native objects and the guarded pointer registry that scripts reach them through.
//
// A script never holds a raw pointer to a native object. A PTR cell stores a
// registry id and a registry index instead; the registry gives back the object
// only while the slot at that index still carries that id, so a stale handle
// resolves to nothing rather than to freed memory. Blocks are entered in the same
// registry, which is how code holding an untrusted block handle checks it.
//
// `vrkobject` is the base of every native script type. Its virtual operations
// have a fixed slot order (listed at each declaration); a type overrides what it
// needs. Reference counts are script references: the first PTR cell that takes
// the object raises the count to 1, and the release that brings it to 0 destroys it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vrk {

struct vrkvar;
struct vrkblock;
class ScriptCacheReader;
class ScriptCacheWriter;

// Registration state every guarded object carries.
class vrkptr_base {
public:
    virtual ~vrkptr_base();

    uint64_t registry_index = 0;  // slot in the guarded pointer table
    uint32_t registry_id = 0;     // id stored in that slot, never 0 once registered
    uint8_t registered = 0;       // the slot has been filled
};

// One slot of the guarded pointer table.
struct vrkregistry_slot {
    vrkptr_base* ptr = nullptr;  // the object, null when the slot is free
    uint32_t id = 0;             // id of the object in the slot, 0 when free
};

// The guarded pointer table (held by the process context).
struct vrkregistry {
    std::vector<vrkregistry_slot> slots;  // indexed by registry_index
    std::vector<uint64_t> free_slots;     // indices available for reuse
    uint32_t next_id = 0;                 // last id given out
    vrkptr_base* last_registered = nullptr;  // address of the last object entered
};

// Enters an object in the registry / takes it out.
void registry_add(vrkptr_base* p);
void registry_remove(vrkptr_base* p);
// The object at index with that id, or null.
vrkptr_base* registry_get(uint64_t index, uint32_t id);

// Mix-in that registers `Base`-derived objects for their whole life.
template <class T, class Base>
class vrkptr_register : public Base {
public:
    template <class... A>
    explicit vrkptr_register(A&&... a) : Base(std::forward<A>(a)...) { registry_add(this); }
    ~vrkptr_register() override { registry_remove(this); }
};

// What array-like operations answer: done, or a deferred job to run.
struct ScriptArrayReturn {
    int status = 0;                 // 0 done; 1 a deferred job is carried
    std::function<void()> job;      // the deferred job, when status is 1
};

// Bits of `vrkobject::object_flags`.
inline constexpr uint32_t kObjectDetached = 1;  // bit 0: kept alive until `free`, whatever the count
inline constexpr uint32_t kObjectGlobal = 2;    // bit 1: a library global (`os`); `free` refuses it

class vrkobject : public virtual vrkptr_base {
public:
    vrkobject();
    ~vrkobject() override;

    virtual void destroy();                                             // 0
    virtual bool serialize(ScriptCacheWriter& writer);                  // 1
    virtual bool deserialize(ScriptCacheReader& reader);                // 2
    virtual void toString(std::string& out);                            // 3
    virtual double toFloat();                                           // 4
    virtual int64_t toInt();                                            // 5
    virtual void toData(std::vector<uint8_t>& out);                     // 6
    virtual vrkobject* clone();                                         // 7
    virtual vrkobject* deepCopy();                                      // 8
    virtual bool add(vrkblock* b, vrkvar* other, vrkvar* res);          // 9
    virtual bool mult(vrkblock* b, vrkvar* other, vrkvar* res);         // 10
    virtual bool exp(vrkblock* b, vrkvar* other, vrkvar* res);          // 11
    virtual bool div(vrkblock* b, vrkvar* other, vrkvar* res);          // 12
    virtual bool div_reverse(vrkblock* b, vrkvar* other, vrkvar* res);  // 13
    virtual bool sub(vrkblock* b, vrkvar* other, vrkvar* res);          // 14
    virtual bool sub_reverse(vrkblock* b, vrkvar* other, vrkvar* res);  // 15
    virtual ScriptArrayReturn count(vrkblock* b, vrkvar* res);                      // 16
    virtual ScriptArrayReturn arrayGet(vrkblock* b, vrkvar* res, vrkvar* key);      // 17
    virtual ScriptArrayReturn arraySet(vrkblock* b, vrkvar* value, vrkvar* key);    // 18
    virtual ScriptArrayReturn push(vrkblock* b, vrkvar* res, vrkvar* value);        // 19
    virtual ScriptArrayReturn pop(vrkblock* b, vrkvar* res);                        // 20
    virtual ScriptArrayReturn reserved21();                                         // 21
    virtual ScriptArrayReturn eraseAt(vrkblock* b, vrkvar* position);               // 22
    virtual ScriptArrayReturn hasKey(vrkblock* b, vrkvar* res, vrkvar* key);        // 23
    virtual ScriptArrayReturn sync();                                               // 24
    virtual void onFrameBegin();                                        // 25
    virtual void onFrameEnd();                                          // 26
    virtual void addRef();                                              // 27
    virtual void release();                                             // 28
    virtual void reserved29();                                          // 29
    virtual vrkobject* instance();                                      // 30

    int32_t ref_count = 0;              // script references
    uint32_t object_flags = 0;          // kObjectDetached, kObjectGlobal
    vrkblock* owner_block = nullptr;    // block the object is associated with
    const char* type_name = "vrkobject";  // script type name
    uint8_t type_set = 0;               // the derived type has set type_name
    std::vector<std::function<void()>>* parents = nullptr;  // clean-ups run at destruction
};

// A guarded handle of a native object.
struct vrkobject_handle {
    uint64_t index = 0;  // registry index of the object
    uint32_t id = 0;     // registry id; 0 means empty
    vrkobject* get() const;
};

// The live object a PTR cell designates, or null (gone, or not an object handle).
vrkobject* object_of(const vrkvar* cell);

}  // namespace vrk
