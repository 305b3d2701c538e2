// The front end's text stages: the line preprocessor with includes, the
// parser's line reader, multi-line literals, inferred braces, the script
// arguments and the cutting of source text into child blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/compile_context.h"
#include "frontend/parser.h"
#include "frontend/preprocess.h"
#include "frontend/text.h"
#include "host/engine.h"
#include "platform/file_access.h"
#include "values/cell.h"
#include "values/json.h"
#include "vm/block.h"

namespace vrk {
namespace {

namespace fs = std::filesystem;

class ParserTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        compile_context().current_compiling_block = nullptr;
        install_source_splitter();
        std::random_device random;
        dir = fs::temp_directory_path() / ("vorka_parser_test_" + std::to_string(random()));
        fs::create_directories(dir);
        listener = log().addListener([this](ScriptLogType type, const char* text) {
            messages.emplace_back(type, text);
            return true;
        });
    }
    void TearDown() override {
        log().removeListener(listener);
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }

    // Writes `content` to the file `name` under the test folder; returns its path.
    std::string write(const std::string& name, const std::string& content) {
        const fs::path path = dir / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path.generic_string();
    }
    std::string folder() const { return dir.generic_string() + "/"; }

    // How many log messages are exactly `text`.
    long count(const std::string& text) const {
        return std::count_if(messages.begin(), messages.end(),
                             [&](const auto& m) { return m.second == text; });
    }
    // How many times `needle` occurs in `text`.
    static long occurrences(const std::string& text, const std::string& needle) {
        long n = 0;
        for (std::size_t p = text.find(needle); p != std::string::npos;
             p = text.find(needle, p + 1))
            ++n;
        return n;
    }

    fs::path dir;
    uint32_t listener = 0;
    std::vector<std::pair<ScriptLogType, std::string>> messages;
};

std::string preprocessed(std::string line, vrkparser* parser = nullptr, uint32_t number = 1) {
    preprocess_line(line, "", "", parser, number, nullptr);
    return line;
}

TEST_F(ParserTest, LineCommentsWhiteSpaceAndMarkers) {
    // The comment is seen outside the string, but the cut falls on the first
    // "//" of the line, which is inside the string.
    EXPECT_EQ(preprocessed("x = \"a//b\"; // c"), "x = \"a");
    EXPECT_EQ(preprocessed("x = \"a//b\""), "x = \"a//b\"");
    EXPECT_EQ(preprocessed("a = 1; // note"), "a = 1;");
    EXPECT_EQ(preprocessed("s = \"a\tb\";\r"), "s = \"a    b\";");
    EXPECT_EQ(preprocessed("\tx;"), "    x;");
    EXPECT_EQ(preprocessed("##LN=5  \t"), "##LN=5  \t") << "marker lines are left alone";

    vrkparser parser(nullptr, "x;", false, false);
    EXPECT_EQ(preprocessed("y = 2;  ", &parser, 7), "\n##LN=7\ny = 2;");
    EXPECT_EQ(preprocessed("// only a comment", &parser, 8), "\n##LN=8\n");
    EXPECT_EQ(preprocess_text("a; // x\n\tb;\n", "", ""), "a;\n    b;\n");
}

TEST_F(ParserTest, IncludeOfTheSameFileTwiceExpandsItOnce) {
    const std::string inc = write("inc.vrs", "y = 2;\n");
    const std::string main = write("main.vrs", "#include \"inc\"\n#include \"inc.vrs\"\nx = 1;\n");
    vrkparser parser(nullptr, main, true, false);
    ASSERT_NE(parser.root_block, nullptr);
    EXPECT_EQ(*parser.root_block->full_source, "\n##PUSHN=" + main +
                                                   "\n\n##LN=1\n\n##PUSHN=" + inc +
                                                   "\n\n##LN=1\ny = 2;\n##POPN\n"
                                                   "\n##LN=2\n\n##LN=3\nx = 1;\n##POPN\n;");
    EXPECT_EQ(parser.included_files, std::vector<std::string>{inc});
    EXPECT_EQ(parser.source_folder, folder());
    EXPECT_EQ(parser.parse_ok, 1);
    EXPECT_EQ(count("include loading inc"), 1);
    EXPECT_EQ(count("found file " + inc), 1);
    EXPECT_EQ(count("file " + inc + " already included."), 1);
    EXPECT_EQ(count("opened " + main), 1);
}

TEST_F(ParserTest, RecursiveIncludesEnd) {
    const std::string a = write("a.vrs", "#include \"b\"\na = 1;\n");
    const std::string b = write("b.vrs", "#include \"a\"\nb = 1;\n");
    vrkparser parser(nullptr, a, true, false);
    ASSERT_NE(parser.root_block, nullptr);
    const std::string& text = *parser.root_block->full_source;
    // The main file is not on the list, so it comes in once more through b.
    EXPECT_EQ(parser.included_files, (std::vector<std::string>{b, a}));
    EXPECT_EQ(occurrences(text, "##PUSHN=" + a), 2);
    EXPECT_EQ(occurrences(text, "##PUSHN=" + b), 1);
    EXPECT_EQ(count("file " + b + " already included."), 1);

    // Without a parser nothing stops a file that includes itself but the
    // nesting limit.
    write("self.vrs", "#include \"self\"\n");
    const std::string out = preprocess_text("#include \"self\"", folder(), "");
    EXPECT_GT(occurrences(out, "##PUSHN="), 10);
    EXPECT_TRUE(std::any_of(messages.begin(), messages.end(), [](const auto& m) {
        return m.first == ScriptLogType::error &&
               m.second.find("nested deeper") != std::string::npos;
    }));
}

TEST_F(ParserTest, WildcardIncludeTakesEveryFileOfTheFolder) {
    const std::string one = write("lib/one.vrs", "a = 1;\n");
    write("lib/two.txt", "b = 2;\n");
    write("lib/..odd.vrs", "c = 3;\n");
    write("lib/deeper/three.vrs", "d = 4;\n");
    const std::string main = write("main.vrs", "#include \"lib/*.vrs\"\n#include \"nope/*\"\n");
    vrkparser parser(nullptr, main, true, false);
    ASSERT_NE(parser.root_block, nullptr);
    const std::string& text = *parser.root_block->full_source;
    EXPECT_NE(text.find("##PUSHN=" + one + "\n\n##LN=1\na = 1;\n##POPN\n"), std::string::npos);
    EXPECT_EQ(text.find("b = 2;"), std::string::npos);
    EXPECT_EQ(text.find("c = 3;"), std::string::npos);
    EXPECT_EQ(text.find("d = 4;"), std::string::npos);
    // Every entry goes through the normal include: the text file gets ".vrs".
    EXPECT_EQ(count("error include on line 1, file " + main +
                    " : cannot find include file lib/two.txt.vrs!"),
              1);
    EXPECT_EQ(count("cannot open files in folder nope/!"), 1);
    EXPECT_EQ(parser.included_files, std::vector<std::string>{one});
}

TEST_F(ParserTest, IncludeErrorsLeaveTheLineEmpty) {
    vrkparser parser(nullptr, "x;", false, false);
    EXPECT_EQ(preprocessed("#include", &parser, 3), "") << "no marker either";
    EXPECT_EQ(count("syntax error for include on line 3, file (null)"), 1);
    EXPECT_EQ(preprocessed("#include \"x", &parser, 4), "\n##LN=4\n");
    EXPECT_EQ(count("syntax error for include (missing \") on line 4, file (null)"), 1);
    EXPECT_EQ(preprocessed("#include \"missing_file_xyz\"", &parser, 5), "\n##LN=5\n");
    EXPECT_EQ(
        count(
            "error include on line 5, file (null) : cannot find include file missing_file_xyz.vrs!"),
        1);
    EXPECT_EQ(preprocessed("x = \"#include\";", &parser, 6), "\n##LN=6\nx = \"#include\";");
}

TEST_F(ParserTest, MultiLineLiterals) {
    auto rewritten = [](std::string text) {
        rewrite_multiline_literals(text);
        return text;
    };
    EXPECT_EQ(rewritten("x = '''abc''';"), "x = f\"abc\";");
    EXPECT_EQ(rewritten("x = '''ab\n##LN=2\ncd\n''';"), "x = f\"ab\"+nl()+f\"cd\";");
    // Text that starts on the line after the opening quotes comes out empty.
    EXPECT_EQ(rewritten("x = '''\n##LN=2\nabc''';"), "x = f\"\";");
    // A leading blank drops every character from the end.
    EXPECT_EQ(rewritten("x = ''' abc''';"), "x = f\"\";");
    // The backslash put before a quote is itself rewritten afterwards.
    EXPECT_EQ(rewritten("x = '''say \"hi\"''';"), "x = f\"say \"+bsl()+f\"\"hi\"+bsl()+f\"\"\";");
    EXPECT_EQ(rewritten("x = '''a\\b''';"), "x = f\"a\"+bsl()+f\"b\";");
    EXPECT_EQ(rewritten("a = '''x'''; b = '''y''';"), "a = f\"x\"; b = f\"y\";");
    EXPECT_EQ(rewritten("x = '''abc;"), "x = '''abc;");

    vrkparser parser(nullptr, "x = '''hello\n  world''';", false, false);
    ASSERT_NE(parser.root_block, nullptr);
    EXPECT_EQ(*parser.root_block->full_source,
              "\n##PUSHN=MODULE\n\n##LN=1\nx = f\"hello\"+nl()+f\"  world\";\n##POPN\n;");
}

TEST_F(ParserTest, InferredBraces) {
    auto braced = [](std::string text) {
        infer_braces(text);
        return text;
    };
    EXPECT_EQ(braced("if (x)\n    a = 1;\nb = 2;"), "if (x){\n    a = 1;\n}b = 2;");
    EXPECT_EQ(braced("if (x) {\n    a;\n}"), "if (x) {\n    a;\n}");
    EXPECT_EQ(braced("if (x)\n##LN=2\n{\n  a;\n}"), "if (x)\n##LN=2\n{\n  a;\n}")
        << "a brace behind a marker line counts";
    EXPECT_EQ(braced("if (x)\n    a;\nelse\n    b;\nc;"), "if (x){\n    a;\n}else{\n    b;\n}c;");
    EXPECT_EQ(braced("if (x)\n    a;\nelse if (y)\n    b;\nc;"),
              "if (x){\n    a;\n}else{ if (y)\n    b;\n}c;");
    EXPECT_EQ(braced("for (i=0;i<3;i=i+1)\n    if (i)\n        a;\nb;"),
              "for (i=0;i<3;i=i+1){\n    if (i){\n        a;\n}}b;");
    EXPECT_EQ(braced("if (x)\n    a;\n\n    \n    b;\nc;"), "if (x){\n    a;\n\n    \n    b;\n}c;")
        << "blank lines do not end a body";
    EXPECT_EQ(braced("if (x)\n##LN=2\n    a;\n##LN=3\nb;"), "if (x){\n##LN=2\n    a;\n##LN=3\n}b;");
    EXPECT_EQ(braced("if (x)\n    a;"), "if (x){\n    a;}") << "open bodies close at the end";
    // The keyword test is a prefix test: a word that begins with "if" is taken
    // as an `if`, and its parenthesis receives the brace.
    EXPECT_EQ(braced("iffy(x)\n    a;\nb;"), "iffy(x){\n    a;\n}b;");
    EXPECT_EQ(braced("elsewhere = 1;\nx;"), "else{where = 1;\n}x;");
    EXPECT_EQ(braced("while (x)\n    a;\nb;"), "while (x)\n    a;\nb;");

    EXPECT_EQ(braced("if (x)\n    if (y\n    a;"), "if (x){\n    if (y\n    a;}");
    EXPECT_EQ(count("missing closing bracket for if statement."), 1);

    // Through the parser the final ";" stands on a line of its own; a body
    // still open at the end of the file closes behind it.
    vrkparser parser(nullptr, "if (x)\n    a = 1;", false, false);
    ASSERT_NE(parser.root_block, nullptr);
    EXPECT_EQ(*parser.root_block->full_source,
              "\n##PUSHN=MODULE\n\n##LN=1\nif (x){\n##LN=2\n    a = 1;\n##POPN\n;}");
}

TEST_F(ParserTest, LineReaderFollowsMarkersInTheSource) {
    vrkparser parser(nullptr, "a;\n##LN=10\nb;\n##PUSHN=x\nc;\n##POPN\nd;", false, false);
    ASSERT_NE(parser.root_block, nullptr);
    EXPECT_EQ(parser.from_file, 0);
    EXPECT_EQ(parser.source_folder, "");
    EXPECT_EQ(*parser.root_block->full_source,
              "\n##PUSHN=MODULE\n\n##LN=1\na;\n##LN=10\nb;\n##LN=1\nc;\n##LN=12\nd;\n##POPN\n;");

    // Parsing again without reset keeps the root block and its variables.
    vrkblock* root = parser.root_block;
    vrkvar* kept = root->declare_var("kept");
    EXPECT_TRUE(parser.parse("e;", false));
    EXPECT_EQ(parser.root_block, root);
    EXPECT_EQ(root->find_var("kept"), kept);
    EXPECT_EQ(*root->full_source, "\n##PUSHN=MODULE\n\n##LN=1\ne;\n##POPN\n;");
    EXPECT_TRUE(parser.parse("f;", true));
    EXPECT_EQ(parser.root_block->find_var("kept"), nullptr) << "reset builds a new root";
}

TEST_F(ParserTest, ScriptFileNamesArgumentsAndSearchFolder) {
    EXPECT_EQ(split_script_arguments("a-b -c"), std::vector<std::string>{"a-b -c"});
    EXPECT_EQ(split_script_arguments("--x=1 -y=2"), (std::vector<std::string>{"x=1", "y=2"}));
    EXPECT_EQ(split_script_arguments(" x - y"), (std::vector<std::string>{"x", " y"}));
    EXPECT_TRUE(split_script_arguments("--").empty());

    const std::string main = write("main.vrs", "x = 1;\n");
    vrkparser quoted(nullptr, "\"" + main + "\"  --alpha - beta -gamma", true, false);
    EXPECT_EQ(quoted.script_arguments, "--alpha - beta -gamma");
    EXPECT_EQ(quoted.source_filename, main);
    ASSERT_NE(quoted.root_block, nullptr);
    vrkvar* args = quoted.root_block->find_var("args");
    ASSERT_NE(args, nullptr);
    ASSERT_EQ(args->type, Tag::JSON);
    std::vector<std::string> elements;
    for (vrkelement* e : as_json(args)->elements) elements.push_back(to_string(e));
    EXPECT_EQ(elements, (std::vector<std::string>{"alpha", "beta", "gamma"}));

    vrkparser lone_quote(nullptr, "\"" + main, true, false);
    EXPECT_EQ(count("file syntax error! \"" + main + "\n"), 1);

    // A relative name found under the engine's search path keeps that prefix.
    vrkscript engine;
    engine.scriptSearchPath = dir.generic_string();
    vrkparser relative(&engine, "main.vrs", true, false);
    EXPECT_EQ(relative.search_folder, folder());
    ASSERT_NE(relative.root_block, nullptr);
    EXPECT_EQ(relative.root_block->full_source->rfind("\n##PUSHN=" + main + "\n", 0), 0u);

    // A file that does not open still gives a program: the two markers.
    const std::string missing = folder() + "missing.vrs";
    vrkparser absent(nullptr, missing, true, false);
    ASSERT_NE(absent.root_block, nullptr);
    EXPECT_EQ(*absent.root_block->full_source, "\n##PUSHN=" + missing + "\n\n##POPN\n;");
    EXPECT_EQ(count("opened " + missing), 1);
    // The reason is the system's own text, which differs between platforms.
    const std::string missing_reason = platform::unreadable_reason(missing);
    EXPECT_FALSE(missing_reason.empty());
    EXPECT_EQ(count("cannot read file " + missing + ": " + missing_reason), 1);
    // A folder named as the file: the same, with the system's reason.
    fs::create_directories(dir / "folder.vrs");
    const std::string folder_name = folder() + "folder.vrs";
    vrkparser directory(nullptr, folder_name, true, false);
    EXPECT_EQ(count("opened " + folder_name), 1);
    const std::string folder_reason = platform::unreadable_reason(folder_name);
    EXPECT_FALSE(folder_reason.empty());
    EXPECT_EQ(count("cannot read file " + folder_name + ": " + folder_reason), 1);
    // A file that reads gets no such report.
    EXPECT_EQ(platform::unreadable_reason(main), "");
    EXPECT_EQ(count("cannot read file " + main + ":"), 0);
}

TEST_F(ParserTest, SetSourceCutsBodiesIntoChildren) {
    vrkblock* b = block_new(nullptr, "a; {b; {c}} d; {e}");
    EXPECT_EQ(*b->code_text, "a; {##BLK0} d; {##BLK1}");
    EXPECT_EQ(*b->full_source, "a; {b; {c}} d; {e}");
    ASSERT_EQ(b->get_children().size(), 2u);
    vrkblock* first = b->get_children()[0];
    EXPECT_EQ(first->parent, b);
    EXPECT_EQ(*first->code_text, "b; {##BLK0}");
    ASSERT_EQ(first->get_children().size(), 1u);
    EXPECT_EQ(*first->get_children()[0]->code_text, "c");
    EXPECT_EQ(first->get_children()[0]->parent, first);
    EXPECT_EQ(*b->get_children()[1]->code_text, "e");

    // Replacing the source replaces the children.
    b->compiled = 1;
    b->set_source("{z}");
    EXPECT_EQ(b->compiled, 0);
    EXPECT_EQ(*b->code_text, "{##BLK0}");
    ASSERT_EQ(b->get_children().size(), 1u);
    EXPECT_EQ(*b->get_children()[0]->code_text, "z");

    // Braces inside brackets or strings stay in the text.
    b->set_source("x = [{a:1}, {b:2}]; s = \"{\"; {y}");
    EXPECT_EQ(*b->code_text, "x = [{a:1}, {b:2}]; s = \"{\"; {##BLK0}");
    EXPECT_EQ(*b->get_children()[0]->code_text, "y");
    // A "[" that never closes keeps every later body in the text.
    b->set_source("x = [1; {y}");
    EXPECT_EQ(*b->code_text, "x = [1; {y}");
    EXPECT_TRUE(b->get_children().empty());
    // The scan for bodies counts every double quote, escaped or not...
    b->set_source("s = \"\\\"\"; {y}");
    EXPECT_EQ(*b->code_text, "s = \"\\\"\"; {y}");
    EXPECT_TRUE(b->get_children().empty());
    // ...while the search for the closing brace respects the escape.
    b->set_source("{a = \"\\\"}\"}");
    EXPECT_EQ(*b->code_text, "{##BLK0}");
    ASSERT_EQ(b->get_children().size(), 1u);
    EXPECT_EQ(*b->get_children()[0]->code_text, "a = \"\\\"}\"");

    // A body that never closes: reported, and the rest of the text dropped.
    messages.clear();
    b->set_source("a; {b} c; {d");
    EXPECT_EQ(*b->code_text, "a; {##BLK0} c; {##BLK1}");
    EXPECT_EQ(b->get_children().size(), 1u);
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].second,
              "\n\nINTERNAL FAILURE! syntax error in string (missing closing bracket '}')\n");
    EXPECT_EQ(messages[1].second, " c; {d");
    block_delete(b);
}

TEST_F(ParserTest, NestingPastTheLimitIsCutAtTheLimit) {
    // kMaxBlockDepth levels are fine; one more is reported once, and the block
    // at the limit keeps only what stands in front of the deeper body. The
    // statements behind the nest, in the outer blocks, stay.
    const int n = kMaxBlockDepth + 500;
    std::string text;
    for (int i = 0; i < n; ++i) text += "a" + std::to_string(i) + "; {";
    for (int i = 0; i < n; ++i) text += "} z" + std::to_string(n - 1 - i) + ";";
    messages.clear();
    vrkblock* root = block_new(nullptr, text);
    int depth = 0;
    vrkblock* b = root;
    while (b->children && !b->children->empty()) {
        ASSERT_EQ(b->children->size(), 1u);
        b = (*b->children)[0];
        ++depth;
    }
    EXPECT_EQ(depth, kMaxBlockDepth);
    EXPECT_EQ(*b->code_text, "a" + std::to_string(kMaxBlockDepth) + "; ");
    EXPECT_EQ(*b->parent->code_text, "a" + std::to_string(kMaxBlockDepth - 1) + "; {##BLK0} z" +
                                         std::to_string(kMaxBlockDepth - 1) + ";");
    EXPECT_EQ(*root->code_text, "a0; {##BLK0} z0;");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_NE(messages[0].second.find("blocks are nested deeper than 1000 levels"),
              std::string::npos);
    // The deep text was not copied into every level above the limit.
    EXPECT_LT(b->full_source->size(), 64u);
    block_delete(root);

    // A nest within the limit is cut in full, with no report.
    messages.clear();
    std::string fine;
    for (int i = 0; i < kMaxBlockDepth; ++i) fine += "{";
    fine += "x";
    for (int i = 0; i < kMaxBlockDepth; ++i) fine += "}";
    root = block_new(nullptr, fine);
    depth = 0;
    for (b = root; b->children && !b->children->empty(); b = (*b->children)[0]) ++depth;
    EXPECT_EQ(depth, kMaxBlockDepth);
    EXPECT_EQ(*b->code_text, "x");
    EXPECT_TRUE(messages.empty());
    block_delete(root);
}

}  // namespace
}  // namespace vrk
