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

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <typeinfo>
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

class vrkobject;

// One slot of the guarded pointer table.
struct vrkregistry_slot {
    vrkptr_base* ptr = nullptr;   // the object, null when the slot is free
    vrkobject* object = nullptr;  // the same object as a native object; null for blocks
    uint32_t id = 0;              // id of the object in the slot, 0 when free
    uint32_t type_hash = 0;       // hash of the most derived registered type, 0 if none
    uint32_t object_hash = 0;     // hash of vrkobject when `object` is set
};

// The guarded pointer table (held by the process context).
struct vrkregistry {
    std::vector<vrkregistry_slot> slots;     // indexed by registry_index
    std::vector<uint64_t> free_slots;        // indices available for reuse
    uint32_t next_id = 0;                    // last id given out
    vrkptr_base* last_registered = nullptr;  // address of the last object entered
};

// A type's 32-bit registry hash: the library's 64-bit type hash folded by XOR of
// its halves. The resolver compares these instead of casting in the usual case.
template <class T>
uint32_t registry_type_hash() {
    const uint64_t h = static_cast<uint64_t>(typeid(T).hash_code());
    const auto folded = static_cast<uint32_t>(h ^ (h >> 32));
    return folded ? folded : 1u;  // 0 marks "no type"
}

// Enters an object in the registry / takes it out. Ids are never 0: the
// counter skips 0 when it wraps, and a reused index always gets a fresh id.
void registry_add(vrkptr_base* p);
void registry_remove(vrkptr_base* p);
// Records the most derived registered type of a registered object.
void registry_set_type(vrkptr_base* p, uint32_t type_hash);
// The object at index with that id, or null.
vrkptr_base* registry_get(uint64_t index, uint32_t id);
// The slot at index when it carries that id, or null (the resolver's first step).
const vrkregistry_slot* registry_slot(uint64_t index, uint32_t id);

// Mix-in that registers `Base`-derived objects for their whole life and names
// `T` as their type in the registry, for the resolver's fast path.
template <class T, class Base>
class vrkptr_register : public Base {
public:
    template <class... A>
    explicit vrkptr_register(A&&... a) : Base(std::forward<A>(a)...) {
        registry_add(this);
        registry_set_type(this, registry_type_hash<T>());
    }
    ~vrkptr_register() override { registry_remove(this); }
};

// What array-like operations answer: done, or a deferred job to run.
struct ScriptArrayReturn {
    int status = 0;             // 0 done; 1 a deferred job is carried
    std::function<void()> job;  // the deferred job, when status is 1
};

// Bits of `vrkobject::object_flags`.
namespace object_flag {
inline constexpr uint32_t DETACHED = 0x1;  // lives on until `free`: no automatic deletion
inline constexpr uint32_t GLOBAL = 0x2;    // a process-wide object that scripts may not free
}  // namespace object_flag

class vrkobject : public virtual vrkptr_base {
public:
    vrkobject();
    ~vrkobject() override;

    virtual void destroy();                                                       // 0
    virtual bool serialize(ScriptCacheWriter& writer);                            // 1
    virtual bool deserialize(ScriptCacheReader& reader);                          // 2
    virtual void toString(std::string& out);                                      // 3
    virtual double toFloat();                                                     // 4
    virtual int64_t toInt();                                                      // 5
    virtual void toData(std::vector<uint8_t>& out);                               // 6
    virtual vrkobject* clone();                                                   // 7
    virtual vrkobject* deepCopy();                                                // 8
    virtual bool add(vrkblock* b, vrkvar* other, vrkvar* res);                    // 9
    virtual bool mult(vrkblock* b, vrkvar* other, vrkvar* res);                   // 10
    virtual bool exp(vrkblock* b, vrkvar* other, vrkvar* res);                    // 11
    virtual bool div(vrkblock* b, vrkvar* other, vrkvar* res);                    // 12
    virtual bool div_reverse(vrkblock* b, vrkvar* other, vrkvar* res);            // 13
    virtual bool sub(vrkblock* b, vrkvar* other, vrkvar* res);                    // 14
    virtual bool sub_reverse(vrkblock* b, vrkvar* other, vrkvar* res);            // 15
    virtual ScriptArrayReturn count(vrkblock* b, vrkvar* res);                    // 16
    virtual ScriptArrayReturn arrayGet(vrkblock* b, vrkvar* res, vrkvar* key);    // 17
    virtual ScriptArrayReturn arraySet(vrkblock* b, vrkvar* value, vrkvar* key);  // 18
    virtual ScriptArrayReturn push(vrkblock* b, vrkvar* res, vrkvar* value);      // 19
    virtual ScriptArrayReturn pop(vrkblock* b, vrkvar* res);                      // 20
    virtual ScriptArrayReturn reserved21();                                       // 21
    virtual ScriptArrayReturn eraseAt(vrkblock* b, vrkvar* position);             // 22
    virtual ScriptArrayReturn hasKey(vrkblock* b, vrkvar* res, vrkvar* key);      // 23
    virtual ScriptArrayReturn sync();                                             // 24
    virtual void onFrameBegin();                                                  // 25
    virtual void onFrameEnd();                                                    // 26
    virtual void addRef();                                                        // 27
    virtual void release();                                                       // 28
    virtual void reserved29();                                                    // 29
    virtual vrkobject* instance();                                                // 30

    int32_t ref_count = 0;                // script references
    uint32_t object_flags = 0;            // object_flag::DETACHED, object_flag::GLOBAL
    vrkblock* owner_block = nullptr;      // block the object is associated with
    const char* type_name = "vrkobject";  // script type name
    uint8_t type_set = 0;                 // the derived type has set type_name
    uint8_t ending = 0;                   // handed to its end (deleted, queued or pooled)
    std::vector<std::function<void()>>* parents = nullptr;  // clean-ups run at destruction

protected:
    // The default end: deleted now, or at the next frame end when the object
    // belongs to a block of a running script.
    void destroy_default();
};

// A guarded handle of a native object.
struct vrkobject_handle {
    uint64_t index = 0;  // registry index of the object
    uint32_t id = 0;     // registry id; 0 means empty
    vrkobject* get() const;
};

// An object whose members may run as jobs on worker threads. `jobs` counts the
// jobs under way; worker threads lower it while the owning thread polls it, so
// the end of the object waits until every job has left.
class vrkobject_threaded : public vrkobject {
public:
    ~vrkobject_threaded() override;

    void destroy() override;  // waits for the jobs, then ends as any object
    virtual void jobBegin();  // 31
    virtual void jobEnd();    // 32

    std::atomic<int32_t> jobs{0};  // jobs running now
};

// Runs the deferred job of an array operation: handed to a worker thread for
// `block` (which then sleeps until the job has finished; true), or, with no
// engine to run workers, run here at once (false). `cell` receives the result.
bool run_deferred(ScriptArrayReturn& answer, vrkblock* block, vrkvar* cell);

// Makes `cell` a counted handle (PTR) of `object`, taking a reference; `fresh`
// marks it as a result just made.
void set_object(vrkvar* cell, vrkobject* object, bool fresh);

// Ties `object` to `block`: when the block ends, the object forgets it (and
// is deleted at once when its last handle goes). A previous tie is undone.
void associateBlock(vrkobject* object, vrkblock* block);
// Undoes the tie of `object`; with `run` the clean-ups run as if the block ended.
void dissociateBlock(vrkobject* object, bool run);

// The resolver: the object at (index, id) as a `T`, or null when the handle is
// stale or the object is no `T`. The hash comparison answers the usual case
// (the exact type, or the plain object base) without a dynamic cast.
template <class T>
T* resolve(uint64_t index, uint32_t id) {
    const vrkregistry_slot* slot = registry_slot(index, id);
    if (!slot) return nullptr;
    if constexpr (std::is_base_of_v<vrkobject, T>) {
        if (slot->object && slot->type_hash == registry_type_hash<T>())
            return static_cast<T*>(slot->object);
        if constexpr (std::is_same_v<T, vrkobject>) return slot->object;
    }
    return dynamic_cast<T*>(slot->ptr);
}

// The live object a PTR cell designates, or null (gone, or not an object handle).
vrkobject* object_of(const vrkvar* cell);

}  // namespace vrk
