// Member tables of native types: look-up by name with and without an INDEX
// site's cache, by position, the catch-all record, function members that
// refuse assignment, and the member wrapper's chaining result.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "objects/members.h"
#include "objects/object_ext.h"
#include "objects/type_registry.h"
#include "support/saved_support.h"
#include "vm/block.h"
#include "vm/instruction.h"

namespace vrk::test {
namespace {

class member_probe : public vrkobject_ext<member_probe, vrkobject> {
public:
    static constexpr const char* script_type_name = "member_probe";
    double level = 0;      // reached through the property `level`
    std::string last_key;  // what the catch-all saw last
    int calls = 0;         // runs of the function member `poke`
};

class MemberTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        register_native_types();
        if (find_type("member_probe")) return;
        registerType<member_probe>("member_probe");
        registerScriptFunction<member_probe>("level",
                                             [](member_probe* p, vrkvar* v, vrkvar*, bool set) {
                                                 if (set)
                                                     p->level = to_float(v);
                                                 else
                                                     set_float(v, p->level);
                                             });
        scriptFunction<member_probe>(
            "poke", [](member_probe* p, vrkblock*, std::vector<vrkvar*>&, vrkvar&) { ++p->calls; },
            0, true, false, "counts its calls");
        registerScriptFunction<member_probe>("", [](member_probe* p, vrkvar* v, vrkvar* k, bool) {
            p->last_key = to_string(k);
            set_int(v, 99);
        });
    }

    static vrkinstr index_site() { return vrkinstr{static_cast<uint8_t>(Op::INDEX), 0, 0}; }
    static void free_site(vrkinstr& site) {
        std::vector<vrkinstr> code{site};
        free_code_operands(code);
    }
};

TEST_F(MemberTest, NameLookupStopsAtTheFirstMatchOrTheCatchAll) {
    const vrkmember_table& table = *find_members("member_probe");
    ASSERT_EQ(table.size(), 3u);
    EXPECT_EQ(find_member_index(table, "level", nullptr), 0);
    EXPECT_EQ(find_member_index(table, "poke", nullptr), 1);
    EXPECT_EQ(find_member_index(table, "anything", nullptr), 2) << "the catch-all takes the rest";
    vrkmember_table no_catch_all(table.begin(), table.begin() + 2);
    EXPECT_EQ(find_member_index(no_catch_all, "anything", nullptr), -1);
}

TEST_F(MemberTest, SiteCacheAnswersWithoutSearchingAndTracksItsTable) {
    vrkmember_table table(*find_members("member_probe"));
    vrkinstr site = index_site();
    const std::string key = "poke";
    EXPECT_EQ(find_member_index(table, key, &site), 1);
    ASSERT_NE(site.ref, 0u) << "the first look-up makes the site's cache";
    // Renaming the record behind the cache's back shows whether it is used.
    table[1].name = "renamed";
    const std::string same_text = "poke";
    EXPECT_EQ(find_member_index(table, same_text, &site), 1) << "equal text hits the cache";
    EXPECT_EQ(find_member_index(table, "poke", nullptr), 2) << "without a cache: a search";
    // Another table (another type) at the same site searches again.
    vrkmember_table other(table);
    EXPECT_EQ(find_member_index(other, "poke", &site), 2);
    // A class member look-up at the site (block set) makes object look-ups search.
    auto* cache = reinterpret_cast<vrkindex_cache*>(site.ref);
    cache->block = reinterpret_cast<vrkblock*>(&other);
    EXPECT_EQ(find_member_index(other, "poke", &site), 2);
    EXPECT_EQ(cache->block, nullptr);
    free_site(site);
}

TEST_F(MemberTest, AccessByPositionPropertyAndFunction) {
    auto p = std::make_unique<member_probe>();
    OwnedCell result;
    OwnedCell key;
    set_int(key.get(), 0);
    p->level = 2.5;
    EXPECT_EQ(p->arrayGet(nullptr, result.get(), key.get()).status, 0);
    EXPECT_EQ(result->type, Tag::FLOAT);
    EXPECT_DOUBLE_EQ(result->value.f, 2.5) << "position 0 is the property";

    set_int(key.get(), 1);
    p->arrayGet(nullptr, result.get(), key.get());
    EXPECT_EQ(result->type, Tag::FUNCTION) << "position 1 is the function member";

    set_int(key.get(), 7);
    set_int(result.get(), 5);
    p->arrayGet(nullptr, result.get(), key.get());
    EXPECT_EQ(result->value.i, 5) << "a position past the table leaves the result";

    set_float(key.get(), 1.5);
    p->arrayGet(nullptr, result.get(), key.get());
    EXPECT_EQ(p->last_key, "1.500000") << "another tag is looked up as text";
    EXPECT_EQ(result->value.i, 99);
}

TEST_F(MemberTest, FunctionMembersRefuseAssignment) {
    auto p = std::make_unique<member_probe>();
    OwnedCell value;
    OwnedCell key;
    set_string(key.get(), "poke");
    set_int(value.get(), 3);
    LogRecorder log;
    p->arraySet(nullptr, value.get(), key.get());
    EXPECT_TRUE(log.saw("cannot overide function member poke!"));
    EXPECT_EQ(value->type, Tag::INT) << "the script's value is left alone";
    EXPECT_NE(find_members("member_probe")->at(1).function_cell, nullptr);

    set_string(key.get(), "level");
    p->arraySet(nullptr, value.get(), key.get());
    EXPECT_DOUBLE_EQ(p->level, 3.0);
}

TEST_F(MemberTest, WrapperAnswersTheObjectSoCallsChain) {
    auto p = std::make_unique<member_probe>();
    p->object_flags |= object_flag::DETACHED;  // the test owns it, not its handles
    const vrkmember& poke = find_members("member_probe")->at(1);
    vrknative* native = poke.function_cell->value.native;
    vrkblock* caller = block_new(nullptr);
    OwnedCell result;
    std::vector<vrkvar*> args;
    {
        LogRecorder log;
        native->fn(caller, args, nullptr, *result.get());
        EXPECT_TRUE(log.saw("invalid vrkobject!")) << "no object on the stack";
        EXPECT_EQ(p->calls, 0);
    }
    caller->get_object_stack().push_back(p.get());
    native->fn(caller, args, nullptr, *result.get());
    EXPECT_EQ(p->calls, 1);
    EXPECT_EQ(object_of(result.get()), p.get());
    reset(result.get(), Tag::INT);  // lets the reference go
    EXPECT_EQ(p->ref_count, 0);
    block_delete(caller);
}

}  // namespace
}  // namespace vrk::test
