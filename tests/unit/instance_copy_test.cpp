// Instances made directly from their blueprint against instances made through
// the saved record: both ways must give the same block, field by field, for
// every kind of data a class holds.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/engine_fixture.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/copies.h"

namespace vrk {
namespace {

class InstanceCopyTest : public test::EngineFixture {
protected:
    // Every class blueprint below `b`, depth first.
    static void blueprints(vrkblock* b, std::vector<vrkblock*>& out) {
        if (!b->children) return;
        for (vrkblock* c : *b->children) {
            if (c->kind & kind::CLASS) out.push_back(c);
            blueprints(c, out);
        }
    }

    static void expect_same_cell(const vrkvar* a, const vrkvar* b, const std::string& where) {
        ASSERT_EQ(a == nullptr, b == nullptr) << where;
        if (!a) return;
        EXPECT_EQ(a->type, b->type) << where;
        EXPECT_EQ(a->constant, b->constant) << where;
        EXPECT_EQ(a->flags, b->flags) << where;
        EXPECT_EQ(a->attrs, b->attrs) << where;
        EXPECT_EQ(a->aux, b->aux) << where;
        EXPECT_EQ(a->block, b->block) << where;
        if (a->type != b->type) return;
        switch (a->type) {
            case Tag::INT:
            case Tag::EXT: EXPECT_EQ(a->value.i, b->value.i) << where; break;
            case Tag::FLOAT: EXPECT_EQ(a->value.i, b->value.i) << where << " (bits)"; break;
            case Tag::STRING:
            case Tag::ERR:
                ASSERT_EQ(a->value.str == nullptr, b->value.str == nullptr) << where;
                if (a->value.str) {
                    EXPECT_EQ(*a->value.str, *b->value.str) << where;
                }
                break;
            case Tag::FUNCTION:
                EXPECT_EQ(a->value.closure == nullptr, b->value.closure == nullptr) << where;
                break;
            case Tag::REF: EXPECT_EQ(a->value.ref, b->value.ref) << where; break;
            case Tag::JSON: EXPECT_EQ(to_string(a), to_string(b)) << where; break;
            case Tag::DATA:
                ASSERT_TRUE(a->value.data && b->value.data) << where;
                EXPECT_EQ(*a->value.data, *b->value.data) << where;
                break;
            default: break;
        }
    }

    static void expect_same(vrkblock* a, vrkblock* b, const std::string& name) {
        EXPECT_EQ(a->parent, b->parent) << name;
        EXPECT_EQ(a->code_text, b->code_text) << name;
        EXPECT_EQ(a->full_source, b->full_source) << name;
        EXPECT_EQ(a->names, b->names) << name;
        EXPECT_EQ(a->names_shared, b->names_shared) << name;
        EXPECT_EQ(a->mode, b->mode) << name;
        EXPECT_EQ(a->kind, b->kind) << name;
        EXPECT_EQ(a->options, b->options) << name;
        EXPECT_EQ(a->native, b->native) << name;
        EXPECT_EQ(a->plain_args, b->plain_args) << name;
        EXPECT_EQ(a->is_function, b->is_function) << name;
        EXPECT_EQ(a->is_loop_body, b->is_loop_body) << name;
        EXPECT_EQ(a->param_count, b->param_count) << name;
        EXPECT_EQ(a->this_index, b->this_index) << name;
        EXPECT_EQ(a->self_index, b->self_index) << name;
        EXPECT_EQ(a->compiled, b->compiled) << name;
        EXPECT_EQ(a->code.size(), b->code.size()) << name;
        EXPECT_EQ(a->children == nullptr, b->children == nullptr) << name;
        EXPECT_EQ(a->die_blocks == nullptr, b->die_blocks == nullptr) << name;
        EXPECT_EQ(a->class_data == nullptr, b->class_data == nullptr) << name;
        ASSERT_EQ(a->scoped == nullptr, b->scoped == nullptr) << name;
        if (a->scoped) {
            EXPECT_EQ(*a->scoped, *b->scoped) << name;
        }
        ASSERT_EQ(a->captures == nullptr, b->captures == nullptr) << name;
        if (a->captures) {
            EXPECT_EQ(*a->captures, *b->captures) << name;
        }
        ASSERT_EQ(a->line_table == nullptr, b->line_table == nullptr) << name;
        ASSERT_EQ(a->file_table == nullptr, b->file_table == nullptr) << name;
        ASSERT_EQ(a->vars.size(), b->vars.size()) << name;
        for (std::size_t i = 0; i < a->vars.size(); ++i)
            expect_same_cell(a->vars[i], b->vars[i],
                             name + " variable " + std::to_string(i) + " '" +
                                 a->var_name_at(static_cast<uint32_t>(i)) + "'");
    }

    // Copies every class of the script both ways and compares the copies.
    // Returns how many of the classes took the direct way.
    int compare_all(const std::string& text) {
        vrkblock* root = parse(text);
        EXPECT_NE(root, nullptr);
        if (!root) return 0;
        std::vector<vrkblock*> classes;
        blueprints(root, classes);
        EXPECT_FALSE(classes.empty());
        int direct = 0;
        for (std::size_t n = 0; n < classes.size(); ++n) {
            vrkblock* blueprint = classes[n];
            const std::string name = "class #" + std::to_string(n);
            vrkblock* fast = clone_block(blueprint, kNoOwner, false, CopyPath::direct);
            vrkblock* slow = clone_block(blueprint, kNoOwner, false, CopyPath::record_only);
            EXPECT_TRUE(fast && slow);
            if (fast && slow) expect_same(fast, slow, name);
            vrkblock* probe = block_new(engine.get());
            if (copy_data_directly(blueprint, probe)) ++direct;
            block_delete(probe);
            if (fast) block_delete(fast);
            if (slow) block_delete(slow);
        }
        return direct;
    }
};

TEST_F(InstanceCopyTest, DirectInstancesEqualTheRecordsOnes) {
    const int direct = compare_all(R"(
outer = 4;
class Shape = {
    width = 640;
    height = width * 2 + 1;
    name = "sh" + "ape";
    ratio = 1.5;
    tags = [1, 2, "three"];
    int amount = 3.7;
    float scale = 2;
    string label = 12;
    nothing = none;
    constructor(x, y = 5, z = "zed") {
        this.width = x + y;
        this.name = z;
    }
    area() {
        local = width * height;
        return local + 0.25;
    }
    grow(step = 2) {
        this.height = height + step;
        add = [step](v) {
            return v + step;
        };
        return add(height);
    }
    opadd(other) {
        return width + other.width;
    }
    opstring() {
        return "shape " + width;
    }
    class Inner = {
        depth = 3;
        deeper() {
            return depth * 2;
        }
    };
};
class Empty = {
};
class Counter = {
    value = 0;
    constructor(start) {
        this.value = start;
    }
    add(step) {
        this.value = this.value + step;
    }
};
s = Shape(1);
c = Counter(2);
)");
    EXPECT_GE(direct, 3) << "the plain classes take the direct way";
}

TEST_F(InstanceCopyTest, ClassesTheRecordCarriesStillCompareEqual) {
    // A struct layout, a static buffer, text with a zero byte and a lambda
    // that captured a value: what the direct way declines or carries in a
    // form of its own.
    compare_all(R"(
k = 7;
class Holder = {
    struct Pt = {
        int x = 1;
        int y = 2;
    };
    buffer = staticbuffer(16);
    text = "a\0b";
    f = [k](v) {
        return v + k;
    };
    run() {
        return f(1);
    }
};
h = Holder;
)");
}

TEST_F(InstanceCopyTest, InstancesBehaveTheSameAfterADirectCopy) {
    const test::Strings printed = run_script(R"(
class Shape = {
    width = 2;
    height = width * 3;
    label = "s";
    constructor(x, y = 5) {
        this.width = x + y;
    }
    area() {
        return width * height;
    }
};
a = Shape(1);
b = Shape(1, 1);
a.label = "changed";
print(a.area());
print(b.area());
print(b.label);
print(Shape.width);
)");
    EXPECT_EQ(printed, (test::Strings{"36", "12", "s", "2"}));
}

}  // namespace
}  // namespace vrk
