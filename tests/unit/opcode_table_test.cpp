// The opcode table: numbers that saved programs depend on, names, sub-codes
// and the listing built from it.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "support/program.h"
#include "vm/dump_code.h"
#include "vm/instruction.h"

namespace vrk::test {
namespace {

TEST(OpcodeTable, NumbersNamesAndSubCodesStayPut) {
    // Saved programs store these numbers.
    EXPECT_EQ(static_cast<int>(Op::SET), 0);
    EXPECT_EQ(static_cast<int>(Op::EXTERNAL), 20);
    EXPECT_EQ(static_cast<int>(Op::LOAD), 31);
    EXPECT_EQ(static_cast<int>(Op::CMP), 33);
    EXPECT_EQ(static_cast<int>(Op::CLASS_ACCESS), 43);
    std::set<std::string> names;
    for (int op = 0; op < kOpcodeCount; ++op) names.insert(op_info(static_cast<uint8_t>(op)).name);
    EXPECT_EQ(names.size(), static_cast<std::size_t>(kOpcodeCount))
        << "every opcode has its own name";
    EXPECT_STREQ(op_info(31).name, "LOAD");
    EXPECT_STREQ(op_info(kOpcodeCount).name, "?");
    EXPECT_STREQ(load_code_name(load_code::RETURN), "RETURN");
    EXPECT_EQ(load_code::CALL_START, 4);
    EXPECT_STREQ(cmp_code_name(5), "LESS");
    EXPECT_EQ(cmp_code_name(9), nullptr);
}

TEST(OpcodeTable, DumpCodeListsTheBlocksCode) {
    workshop w;
    program p = w.block();
    p.emit(Op::LOAD, load_code::TRUE, 0)
        .emit(Op::LOAD, 2, p.ref())
        .emit(Op::CMP, cmp_code::LESS, p.ref());
    p.emit(Op::POP, 1, kRefMinusOne).emit(Op::PUSH, 1, 3);
    EXPECT_EQ(dump_code(p.block(), "; "), "LOAD 1; LOAD 2 B; CMP 5 B; POP 1 -1; PUSH 1 3");
    const auto three = [](uint64_t ref, std::string& out) {
        if (ref != 3) return false;
        out = "three";
        return true;
    };
    EXPECT_EQ(dump_code(p.block(), "\n", three),
              "LOAD 1\nLOAD 2 B\nCMP 5 B\nPOP 1 -1\nPUSH 1 three");
}

}  // namespace
}  // namespace vrk::test
