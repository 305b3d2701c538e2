// String builtins that remove or replace bytes, measure and make indentation,
// strip blanks and take the quoted part of a text.
#include <string>

#include "base/log.h"
#include "builtins/strings.h"
#include "builtins/strings_support.h"

namespace vrk::lib {

using strings::answer_int;
using strings::answer_text;
using strings::text_of;
using strings::wrong_params;

namespace {

// Most tabulators `indent` makes: a count beyond it is a mistake in the script,
// not a wish for gigabytes of tabs.
constexpr int64_t kMaxIndent = int64_t{1} << 24;

// The bytes of `text` for which `keep` is true.
template <class Keep>
std::string kept(const std::string& text, Keep keep) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        if (keep(static_cast<unsigned char>(c))) out += c;
    }
    return out;
}

bool is_trail(char c) { return c == '\n' || c == '\r' || c == ' ' || c == '\t'; }

}  // namespace

VRK_BUILTIN(removebadchars) {
    // One argument, whatever the description says about a second.
    if (args.size() != 1) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    std::string scratch;
    return answer_text(result, kept(text_of(args[0], scratch), [](unsigned char c) {
                           return c == '\t' || c == '\n' || (c > 31 && c != 127);
                       }));
}

VRK_BUILTIN(removechars) {
    if (args.size() != 2) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    std::string scratch;
    const std::string set = to_string(args[1]);
    return answer_text(result, kept(text_of(args[0], scratch), [&set](unsigned char c) {
                           return set.find(static_cast<char>(c)) == std::string::npos;
                       }));
}

VRK_BUILTIN(removecharsexcept) {
    if (args.size() != 2) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    std::string scratch;
    const std::string set = to_string(args[1]);
    return answer_text(result, kept(text_of(args[0], scratch), [&set](unsigned char c) {
                           return set.find(static_cast<char>(c)) != std::string::npos;
                       }));
}

VRK_BUILTIN(replace_except) {
    if (args.size() != 3) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    std::string text = to_string(args[0]);
    const std::string set = to_string(args[1]);
    const std::string replacement = to_string(args[2]);
    if (replacement.size() != 1) {
        report_error(block, "external_function", "replace_char must be a single char.");
        return answer_text(result, text);
    }
    for (char& c : text) {
        if (set.find(c) == std::string::npos) c = replacement[0];
    }
    return answer_text(result, text);
}

VRK_BUILTIN(removetrails) {
    if (args.size() != 1) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    std::string scratch;
    const std::string& text = text_of(args[0], scratch);
    // First every control byte, blank and DEL in front, then blanks and line
    // ends at both ends.
    std::size_t begin = 0;
    while (begin < text.size()) {
        const auto c = static_cast<unsigned char>(text[begin]);
        if (c >= 33 && c != 127) break;
        ++begin;
    }
    std::size_t end = text.size();
    while (end > begin && is_trail(text[end - 1])) --end;
    return answer_text(result, text.substr(begin, end - begin));
}

VRK_BUILTIN(removespaces) {
    if (args.empty()) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    std::string scratch;
    return answer_text(result,
                       kept(text_of(args[0], scratch), [](unsigned char c) { return c != ' '; }));
}

VRK_BUILTIN(indent) {
    if (args.size() != 1) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    const int64_t count = to_int(args[0]);
    if (count > kMaxIndent) {
        log().error("indent: %lld tabulators is more than the %lld allowed",
                    static_cast<long long>(count), static_cast<long long>(kMaxIndent));
        return answer_text(result, std::string());
    }
    return answer_text(result, std::string(count > 0 ? static_cast<std::size_t>(count) : 0, '\t'));
}

VRK_BUILTIN(indentation) {
    if (args.size() != 1) {
        wrong_params(block);
        return answer_int(result, 0);
    }
    std::string scratch;
    int64_t width = 0;
    for (const char c : text_of(args[0], scratch)) {
        if (c == '\t') {
            width += 4;
        } else if (c == ' ') {
            width += 1;
        } else {
            break;
        }
    }
    return answer_int(result, width);
}

VRK_BUILTIN(stripstring) {
    if (args.empty()) {
        wrong_params(block, "stripstring");
        return answer_text(result, std::string());
    }
    std::string scratch;
    const std::string& text = text_of(args[0], scratch);
    // Every double quote opens or closes a quoted stretch; a backslash does not
    // protect one here.
    std::string out;
    out.reserve(text.size());
    bool quoted = false;
    for (const char c : text) {
        if (c == '"') quoted = !quoted;
        if (!quoted && (c == ' ' || c == '\n')) continue;
        out += c;
    }
    return answer_text(result, out);
}

VRK_BUILTIN(quotation) {
    if (args.size() != 1) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    std::string scratch;
    const std::string& text = text_of(args[0], scratch);
    const std::size_t first = text.find('"');
    if (first == std::string::npos) return answer_text(result, text);
    // With a single quote mark the first is also the last: nothing between.
    const std::size_t last = text.rfind('"');
    return answer_text(result, text.substr(first + 1, last > first ? last - first - 1 : 0));
}

VRK_BUILTIN(quotation_strict) {
    if (args.size() != 1) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    std::string scratch;
    const std::string& text = text_of(args[0], scratch);
    const std::size_t first = text.find('"');
    const std::size_t second = first == std::string::npos ? first : text.find('"', first + 1);
    if (second == std::string::npos) return answer_text(result, text);
    return answer_text(result, text.substr(first + 1, second - first - 1));
}

}  // namespace vrk::lib
