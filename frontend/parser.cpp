// The parser: from a script file or a source text to the text of the root
// block, through the preprocessor and the parser's own text rewrites.
#include "frontend/parser.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "base/log.h"
#include "frontend/compile.h"
#include "frontend/preprocess.h"
#include "frontend/text.h"
#include "values/cell.h"
#include "values/json.h"
#include "vm/block.h"
#include "vm/engine.h"

namespace vrk {

namespace {

bool has_prefix(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

// Every occurrence of `from` replaced by `to`, scanning on behind each
// replacement, so the inserted text is never looked at again.
void replace_all(std::string& text, const std::string& from, const std::string& to) {
    std::size_t pos = 0;
    while ((pos = text.find(from, pos)) != std::string::npos) {
        text.replace(pos, from.size(), to);
        pos += to.size();
    }
}

void trim_leading_blanks(std::string& text) {
    const std::size_t first = text.find_first_not_of(' ');
    text.erase(0, first == std::string::npos ? text.size() : first);
}

void trim_trailing_blanks(std::string& text) {
    const std::size_t last = text.find_last_not_of(' ');
    text.erase(last == std::string::npos ? 0 : last + 1);
}

// The text of one ''' literal (opening quotes included, closing ones not),
// turned into the body of a formatted string.
std::string literal_body(const std::string& span) {
    std::string literal;
    std::istringstream lines(span);
    std::string line;
    while (std::getline(lines, line)) {
        // Line markers inside the literal are not part of its text.
        if (line.size() > 2 && line[0] == '#' && line[1] == '#') continue;
        literal += line;
        literal += '\n';
    }
    replace_all(literal, "'''", "");

    // A literal whose text begins on the line after the opening quotes comes
    // out empty, and one that begins with a blank loses every character from
    // the end: both are the language's rule, not an accident to be repaired.
    if (!literal.empty()) {
        if (literal.front() == '\n') {
            literal.clear();
        } else {
            while (!literal.empty() && (literal.back() == '\n' || literal.front() == ' '))
                literal.pop_back();
        }
    }

    // The order matters: the second step also rewrites the backslashes the
    // first one put in front of each double quote.
    replace_all(literal, "\"", "\\\"");
    replace_all(literal, "\\", "\"+bsl()+f\"");
    replace_all(literal, "\n", "\"+nl()+f\"");
    return literal;
}

// From `pos`, the position of `ch` if only blanks, newlines and marker lines
// stand before it; npos as soon as anything else comes first.
std::size_t next_significant(const std::string& text, std::size_t pos, char ch) {
    for (std::size_t i = pos; i < text.size(); ++i) {
        const char c = text[i];
        if (c == ch) return i;
        if (c == '#' && i > 0 && text[i - 1] == '\n') {
            const std::size_t end = text.find('\n', i);
            if (end == std::string::npos) return npos;
            i = end - 1;  // the loop steps onto the newline, which is passed over
            continue;
        }
        if (c == ' ' || c == '\n') continue;
        return npos;
    }
    return npos;
}

// A plain prefix test at `pos`: "iffy" passes for "if", "format" for "for".
bool starts_with(const std::string& text, std::size_t pos, const char* word) {
    return pos <= text.size() && text.compare(pos, std::strlen(word), word) == 0;
}

}  // namespace

// ---- text passes ---------------------------------------------------------------------

void rewrite_multiline_literals(std::string& text) {
    std::size_t from = 0;
    for (;;) {
        // Plain searches: other quotes around or inside do not matter.
        const std::size_t start = text.find("'''", from);
        if (start == std::string::npos) return;
        const std::size_t close = text.find("'''", start + 3);
        if (close == std::string::npos) return;
        const std::string expression = "f\"" + literal_body(text.substr(start, close - start)) +
                                       "\"";
        text.replace(start, close + 3 - start, expression);
        from = start + expression.size();
    }
}

void infer_braces(std::string& text) {
    // Indentation of each head whose body got an opening brace here.
    std::vector<std::size_t> widths;
    std::size_t p = 0;
    for (;;) {
        if (p >= text.size()) break;
        std::size_t start = p;
        while (start < text.size() && text[start] == '\n') ++start;
        if (start >= text.size()) break;

        if (!starts_with(text, start, "##")) {
            std::size_t q = start;
            while (q < text.size() && text[q] == ' ') ++q;
            if (q < text.size() && text[q] == '\n') {
                p = q;  // a blank line changes nothing
                continue;
            }
            const std::size_t indentation = q - start;
            // The statement end that closes the whole text is no line of its own:
            // bodies still open are closed behind it.
            if (text.compare(q, std::string::npos, ";") == 0) break;
            while (!widths.empty() && indentation <= widths.back()) {
                text.insert(start, 1, '}');
                ++start;
                ++q;
                widths.pop_back();
            }

            const char* keyword = nullptr;
            for (const char* candidate : {"if", "else", "for"}) {
                if (starts_with(text, q, candidate)) {
                    keyword = candidate;
                    break;
                }
            }
            if (keyword) {
                const bool is_else = std::strcmp(keyword, "else") == 0;
                // The keyword test is a prefix test, so `iffy(x)` counts as an `if`:
                // its parenthesis is looked for behind the whole word.
                std::size_t word_end = q + std::strlen(keyword);
                if (!is_else) {
                    while (word_end < text.size() &&
                           (std::isalnum(static_cast<unsigned char>(text[word_end])) ||
                            text[word_end] == '_'))
                        ++word_end;
                }
                const std::size_t open = next_significant(text, word_end, '(');
                if (open != npos) {
                    const std::size_t close = find_closing(text, '(', ')', open + 1);
                    if (close == npos) {
                        log().error("missing closing bracket for if statement.");
                        break;
                    }
                    if (next_significant(text, close + 1, '{') == npos) {
                        text.insert(close + 1, 1, '{');
                        start = close + 2;
                        widths.push_back(indentation);
                    }
                } else if (is_else && next_significant(text, q + 4, '{') == npos) {
                    text.insert(q + 4, 1, '{');
                    start = q + 5;
                    widths.push_back(indentation);
                }
            }
        }

        if (start >= text.size()) break;
        p = text.find('\n', start);
        if (p == std::string::npos) break;
    }
    text.append(widths.size(), '}');
}

std::vector<std::string> split_script_arguments(const std::string& arguments) {
    std::vector<std::string> elements;
    std::string rest = arguments;
    while (!rest.empty() && rest.front() == '-') rest.erase(0, 1);
    for (;;) {
        const std::size_t dash = rest.find('-');
        // A dash in the first two places does not separate: "a-b -c" is one
        // element, as is everything from the first such dash on.
        if (dash == std::string::npos || dash <= 1) {
            if (!rest.empty()) elements.push_back(rest);
            return elements;
        }
        std::string piece = rest.substr(0, dash);
        trim_leading_blanks(piece);
        trim_trailing_blanks(piece);
        if (!piece.empty()) elements.push_back(piece);
        rest.erase(0, dash + 1);
    }
}

// ---- the parser ----------------------------------------------------------------------

vrkparser::vrkparser(vrkengine* eng, std::string name, bool is_file, bool compile_now)
    : engine(eng) {
    install_source_splitter();
    from_file = 1;
    if (engine) search_folder = engine->scriptSearchPath;
    if (!search_folder.empty() && search_folder.back() != '/') search_folder += '/';

    if (!is_file) {
        source_folder.clear();
        source_filename = name;
        // An empty text makes an empty parser, the shell a saved program is
        // constructed into: nothing is opened and nothing parsed.
        if (!name.empty()) parse(source_filename, true);
        from_file = 0;
    } else {
        // A relative name that exists under the search folder keeps the prefix;
        // every other name is taken as it stands.
        if (name.size() >= 2 && name[1] == ':') {
            search_folder.clear();
        } else if (!file_opens(search_folder + name)) {
            search_folder.clear();
        }

        // A quoted file name may be followed by the script's arguments.
        script_arguments.clear();
        std::string file = name;
        const std::size_t first_quote = name.find_first_of("\"'");
        const std::size_t last_quote = name.find_last_of("\"'");
        if (first_quote != std::string::npos && last_quote != first_quote) {
            file = name.substr(first_quote + 1, last_quote - first_quote - 1);
            script_arguments = name.substr(last_quote + 1);
            trim_leading_blanks(script_arguments);
        } else if (first_quote != std::string::npos) {
            log().error("file syntax error! %s\n", name.c_str());
        }

        std::string path = file;
        std::replace(path.begin(), path.end(), '\\', '/');
        const std::size_t slash = path.rfind('/');
        source_folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
        if (!path.empty()) {
            log().log("parsing file %s...", path.c_str());
            source_filename = path;
            if (!parse("", true)) log().error("failed to parse file %s.", path.c_str());
        }
        from_file = 1;
    }

    if (compile_now) {
        log().log("compiling...");
        if (root_block && compile_block(root_block)) parse_ok = 1;
    }
}

vrkparser::~vrkparser() {
    if (root_block) block_delete(root_block);
    root_block = nullptr;
}

bool vrkparser::parse(std::string source, bool reset) {
    if (reset && root_block) {
        block_delete(root_block);
        root_block = nullptr;
    }
    included_files.clear();

    std::string text;
    if (source.empty()) {
        text = load_file(source_filename, search_folder, this);
    } else {
        // Marker lines already in the source only steer the line numbers.
        text = "\n##PUSHN=MODULE\n";
        std::vector<uint32_t> counters{1};
        std::istringstream lines(source);
        std::string line;
        while (std::getline(lines, line)) {
            if (has_prefix(line, "##PUSHN")) {
                ++counters.back();
                counters.push_back(1);
                continue;
            }
            if (has_prefix(line, "##POPN")) {
                if (counters.size() > 1) counters.pop_back();
                continue;
            }
            if (has_prefix(line, "##LN=")) {
                // 64-bit on every platform, so a huge number wraps the same way.
                counters.back() = static_cast<uint32_t>(
                    std::strtoll(line.c_str() + 5, nullptr, 10));
                continue;
            }
            preprocess_line(line, source_folder, search_folder, this, counters.back(), nullptr);
            if (!line.empty()) text += line;
            ++counters.back();
        }
        text += "\n##POPN\n";
    }

    if (text.empty()) {
        log().warn("file is empty. (%s)", source.c_str());
        parse_ok = 0;
        return false;
    }

    rewrite_multiline_literals(text);
    text += ';';
    infer_braces(text);

    if (!reset && root_block) {
        root_block->set_source(text);
    } else {
        vrkblock* fresh = block_new(engine, text);
        if (root_block) block_delete(root_block);
        root_block = fresh;
    }

    if (!script_arguments.empty()) {
        vrkvar* args = root_block->declare_var("args");
        set_type(args, Tag::JSON);
        if (vrkjson* list = as_json(args)) {
            for (const std::string& element : split_script_arguments(script_arguments)) {
                set_string(json_append(list, nullptr, root_block), element);
            }
        }
    }

    parse_ok = 1;
    return true;
}

}  // namespace vrk
