// The short paths of instances and stores against the general ones: the
// direct copy of a blueprint's data with its forms looked at once, the
// tear-down of a block's plain variables in line, and the store of a number
// into a plain number variable. Every script here runs with
// `value_context().instance_paths` off and on; what it prints, what it logs,
// the final state of every variable and the holder counts of every instance
// must be the same. The cases cover hidden variables and constants of a class,
// nested classes and member containers, destructors (their order and count),
// an instance held by two variables or by an array, the reassignment of the
// last holder, a constructor that suspends, errors, and stores of numbers of
// every kind (typed, constant, by reference, into elements, fresh results),
// also under every step budget.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/fast_paths.h"
#include "values/value_context.h"
#include "vm/block.h"

namespace vrk {
namespace {

using outcome = test::run_outcome;

class VmInstancesTest : public test::FastPathFixture {
protected:
    // Runs `text` with the switch off and on and requires the same outcome.
    outcome expect_same(const std::string& text, uint64_t budget = 0) {
        return expect_same_both_ways(&vrkvalue_context::instance_paths, text, budget);
    }
};

// Hidden variables (`height` is computed), constants, a typed field, a member
// list, a nested class; destructors that name who goes; an instance held by
// two variables and by an array; the last holder reassigned.
const char* const kLifetimes =
    "class Shape = { width = 2; height = width * 3 + 1; label = \"s\"; ratio = 1.5;"
    " int amount = 3.7; tags = [1, 2, \"three\"]; nothing = none;"
    " class Inner = { depth = 3; deeper() { return depth * 2; } };"
    " constructor(x, name) { this.width = x; this.label = name; }"
    " destructor() { print(\"bye\", this.label, this.width); }"
    " area() { return width * height; } };"
    "class Plain = { v = 1; };"
    "a = Shape(4, \"a\"); b = a; print(a.area(), b.height, a.tags[2], a.amount);"
    "a = 0; print(\"a let go\"); b = Shape(5, \"b\"); print(\"b replaced\");"
    "list = [Shape(6, \"in list\"), Plain()]; list[1].v = 9; print(list[1].v);"
    "list[0] = 0; print(\"list slot cleared\");"
    "for (i = 0; i < 4; i++) { c = Shape(i, \"loop\"); p = Plain(); p.v = i; }"
    "print(c.width, p.v); c = 0; i = Shape.Inner(); print(i.deeper());"
    "list = 0; print(\"end\");";

TEST_F(VmInstancesTest, LifetimesAndDestructorsAreTheSame) {
    const outcome fast = expect_same(kLifetimes);
    const std::vector<std::string> expected{
        "28", "7",          "three", "3",   "a let go", "bye", "a",
        "4",  "b replaced", "9",     "bye", "in list",  "6",   "list slot cleared"};
    ASSERT_GE(fast.printed.size(), expected.size());
    EXPECT_EQ(std::vector<std::string>(
                  fast.printed.begin(),
                  fast.printed.begin() + static_cast<std::ptrdiff_t>(expected.size())),
              expected);
    EXPECT_EQ(fast.printed.back(), "end");
}

TEST_F(VmInstancesTest, SuspendingConstructorAndErrorsAreTheSame) {
    // A constructor that suspends halfway (its caller waits for it); a
    // destructor that suspends; run-time errors of
    // member access on a number.
    const outcome fast = expect_same(
        "class Slow = { v = 0; constructor(n) { this.v = n; pause(); this.v = this.v * 2; }\n"
        " destructor() { pause(); print(\"gone\", this.v); } };\n"
        "class K = { v = 1; };\n"
        "s = Slow(3); print(s.v); s = Slow(4); print(s.v);\n"
        "k = K(); k.v = 2.5; k.v = k.v + 1; print(k.v);\n"
        "z = 0; w = z.v; z.v = 1; print(w);\n"
        "s = 0; print(\"end\");");
    EXPECT_GE(fast.suspensions, 1);
}

// Stores of numbers: int into int, float into float, int into float and back,
// a number into a VOID cell,
// a typed variable, a by-reference parameter, an element, a member of `this`,
// the result of a builtin, and a loop long enough to reuse its temps.
const char* const kStores =
    "class Counter = { value = 0; add(step) { this.value = this.value + step; } };"
    "k = Counter(); for (i = 0; i < 5; i++) { k.add(3); } print(k.value);"
    "x = 1; y = 2; x = y; f = 1.5; g = 2.5; f = g; f = x; x = g; print(x, y, f, g);"
    "int t = 4; t = 2.75; t = y; print(t);"
    "bump(#v) { v = 7; } q = 5; bump(q); print(q);"
    "set(v) { $v = 11; } r = 1; set(#r); print(r);"
    "a = [1, 2, 3]; a[1] = x; n = a[2]; n = a[0]; print(a[1], n);"
    "m = abs(0 - 9); m = abs(2); print(m); e = none; e = 3; o = none; o = 0.5; print(e, o);"
    "s = 0; w = 0; for (j = 0; j < 20; j++) { s = s + j; w = j; } print(s, w);";

TEST_F(VmInstancesTest, NumberStoresAreTheSame) {
    const outcome fast = expect_same(kStores);
    EXPECT_EQ(fast.printed, (std::vector<std::string>{"15", "2.500000", "2", "2", "2.500000", "2",
                                                      "5", "11", "2.500000", "1", "2.000000", "3",
                                                      "0.500000", "190", "19"}));
}

TEST_F(VmInstancesTest, StepBudgetStopsAtTheSameInstruction) {
    const std::string text =
        "class P = { v = 0; constructor(n) { this.v = n; } add(n) { this.v = this.v + n; } };"
        "t = 0; for (i = 0; i < 3; i++) { p = P(i); p.add(2); t = t + p.v; } print(t);";
    for (uint64_t budget = 1; budget < 260; ++budget) expect_same(text, budget);
}

// Dead instances kept by their class and reused for the next instance: a
// destructor on every release, instances in arrays and in the root, one let
// go while a method of it runs, one let go by its own destructor's store,
// hidden variables, constants, a nested class, instances of two classes in
// turn, and more dead instances at once than a class keeps.
const char* const kReuse =
    "class Node = { LIMIT = 10; id = 0; seen = LIMIT * 2; tags = [1]; text = \"t\";"
    " class Leaf = { w = 5; };"
    " constructor(n) { this.id = n; this.tags[0] = n; this.text = this.text + n; }"
    " destructor() { print(\"bye\", this.id, this.text); }"
    " release(#h) { h = 0; m = Node(this.id + 1); print(\"released\", this.id, m.id); }"
    " grow() { this.seen = this.seen + 1; return this.seen; } };"
    "class Other = { x = 1; constructor(v) { this.x = v; } };"
    "for (i = 0; i < 4; i++) { n = Node(i); o = Other(i); print(n.grow(), n.tags[0], o.x); }"
    "list = []; for (i = 0; i < 12; i++) { list[i] = Node(i + 100); }"
    "list = 0; for (i = 0; i < 3; i++) { n = Node(i + 200); print(n.seen, n.LIMIT, n.text); }"
    "holder = Node(300); holder.release(holder); print(holder); n = Node(7);"
    "print(n.id, n.text); n = 0; o = 0; print(\"end\")";

TEST_F(VmInstancesTest, ReusedInstancesAreTheSame) {
    const outcome fast = expect_same(kReuse);
    ASSERT_GE(fast.printed.size(), 4u);
    EXPECT_EQ(std::vector<std::string>(fast.printed.begin(), fast.printed.begin() + 7),
              (std::vector<std::string>{"21", "0", "0", "bye", "0", "t0", "21"}));
    EXPECT_EQ(fast.printed.size(), 88u);
    EXPECT_EQ(fast.printed.back(), "end");
}

// The block of a released instance serves the next instance of its class,
// and nothing that knew the old instance sees the new one as it: a handle of
// the old one resolves to nothing, the count of destroyed blocks has moved,
// the new one has a new registry id, and its fields are those of a new block.
TEST_F(VmInstancesTest, ReusedBlockIsNewToEveryTest) {
    vrkblock* root = parse(
        "class K = { a = 1; B = 2; name = \"k\"; };"
        "c = K(); d = K(); d.a = 1;");
    ASSERT_NE(root, nullptr);
    run(root, nullptr, 0, nullptr);
    vrkvar* c = root->find_var("c");
    vrkvar* d = root->find_var("d");
    ASSERT_TRUE(c && d && c->type == Tag::CLASS && d->type == Tag::CLASS);
    vrkblock* first = c->block;
    vrkblock* fresh = d->block;
    const vrkblock_handle old = vrkblock_handle::of(first);
    const uint32_t old_id = first->registry_id;
    const uint64_t destroyed = value_context().blocks_destroyed;

    reset(c, Tag::INT);  // the last holder lets go: the block is kept
    EXPECT_EQ(old.get(), nullptr);
    EXPECT_FALSE(block_alive(first));
    EXPECT_GT(value_context().blocks_destroyed, destroyed);

    // A copy of the class cell makes the next instance.
    vrkvar* e = root->declare_var("e");
    vrkvar* k = root->find_var("K");
    ASSERT_NE(k, nullptr);
    assign(e, k, root);
    ASSERT_EQ(e->type, Tag::CLASS);
    vrkblock* reused = e->block;
    EXPECT_EQ(reused, first) << "the kept block is taken again";
    EXPECT_TRUE(block_alive(reused));
    EXPECT_EQ(old.get(), nullptr) << "an old handle stays dead";
    EXPECT_NE(reused->registry_id, old_id);
    EXPECT_EQ(vrkblock_handle::of(reused).get(), reused);
    // Field by field as a block made new for the same class.
    EXPECT_EQ(reused->kind, fresh->kind);
    EXPECT_EQ(reused->vars.size(), fresh->vars.size());
    EXPECT_EQ(reused->names, fresh->names);
    EXPECT_EQ(reused->code_text, fresh->code_text);
    EXPECT_EQ(reused->parent, fresh->parent);
    EXPECT_EQ(reused->engine, fresh->engine);
    EXPECT_EQ(reused->this_index, fresh->this_index);
    EXPECT_EQ(reused->self_index, fresh->self_index);
    EXPECT_EQ(reused->param_count, fresh->param_count);
    EXPECT_EQ(reused->destructing, 0);
    EXPECT_EQ(reused->children == nullptr, fresh->children == nullptr);
    EXPECT_EQ(reused->copies == nullptr, fresh->copies == nullptr);
    ASSERT_TRUE(reused->class_data && fresh->class_data);
    EXPECT_EQ(reused->class_data->refs, fresh->class_data->refs);
    EXPECT_EQ(reused->class_data->cells.size(), fresh->class_data->cells.size());
    EXPECT_EQ(reused->class_data->blueprint, fresh->class_data->blueprint);
    EXPECT_EQ(reused->class_data->destructing, 0);
    for (std::size_t i = 0; i < reused->vars.size(); ++i) {
        const vrkvar* r = reused->vars[i];
        const vrkvar* f = fresh->vars[i];
        EXPECT_EQ(r->type, f->type) << i;
        EXPECT_EQ(r->constant, f->constant) << i;
        EXPECT_EQ(r->flags, f->flags) << i;
        EXPECT_EQ(r->attrs, f->attrs) << i;
        if (r->type == Tag::REF) {
            EXPECT_EQ(r->value.ref, f->value.ref) << i;
        }
    }
}

// The kept blocks go with their class (the script that made it goes while
// one instance still lives elsewhere and one is kept); the instance that
// outlives its class is then deleted when let go, not kept.
TEST_F(VmInstancesTest, KeptInstancesGoWithTheirClass) {
    vrkblock* root = parse(
        "class K = { a = 1; destructor() { print(\"bye\", this.a); } };"
        "c = K(); c.a = 2; c = K(); c.a = 3;");
    ASSERT_NE(root, nullptr);
    run(root, nullptr, 0, nullptr);
    vrkvar* c = root->find_var("c");
    ASSERT_TRUE(c && c->type == Tag::CLASS);
    vrkvar* outside = cell_new(Tag::INT);
    assign(outside, c, nullptr);
    const vrkblock_handle survivor = vrkblock_handle::of(c->block);
    parsers.clear();  // the script and its class go; the kept block with it
    ASSERT_NE(survivor.get(), nullptr);
    EXPECT_EQ(survivor.get()->class_data->blueprint, nullptr);
    cell_free(outside);  // no destructor: the class that had it is gone
    EXPECT_EQ(survivor.get(), nullptr);
    EXPECT_EQ(printed, (std::vector<std::string>{"bye", "2"}));
}

}  // namespace
}  // namespace vrk
