// String builtins that search and test text: substr, replace, find and rfind,
// contains, the byte-set searches, case changes, starts, is_utf8, empty_str
// and the regex_search stub.
#include "builtins/strings.h"

#include <string>

#include "builtins/strings_support.h"
#include "builtins/utf8.h"
#include "values/json.h"

namespace vrk::lib {

using strings::answer_int;
using strings::answer_text;
using strings::int_arg;
using strings::offset_value;
using strings::start_offset;
using strings::text_arg;
using strings::text_of;
using strings::wrong_params;
using strings::wrong_params_raised;

namespace {

// The element test of find and rfind on a JSON array: a number key (INT)
// compares by value, any other key by text, exact in length and bytes.
struct element_matcher {
    explicit element_matcher(const vrkvar* key)
        : by_number(key->type == Tag::INT),
          number(to_float(key)),
          text(by_number ? std::string() : to_string(key)) {}

    bool operator()(const vrkvar* element) const {
        if (by_number) return to_float(element) == number;
        std::string scratch;
        return text_of(element, scratch) == text;
    }

    bool by_number;    // compare numbers, not texts
    double number;     // the key as a number
    std::string text;  // the key as a text
};

// Maps every byte through `change`.
template <class Change>
std::string mapped(std::string text, Change change) {
    for (char& c : text) c = change(c);
    return text;
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

VRK_BUILTIN(regex_search) {
    if (args.size() != 2) {
        wrong_params_raised(block, "regex_search");
        return answer_int(result, 0);
    }
    // There is no regular expression engine: the call is reported and the
    // result stays as it is.
    report_error(block, "external_function", "IMPLEMENT ME LATER!!");
    return &result;
}

VRK_BUILTIN(substr) {
    if (args.size() < 2) {
        wrong_params_raised(block, "substr");
        return answer_text(result, std::string());
    }
    std::string scratch;
    const std::string& text = text_of(args[0], scratch);
    const std::size_t start = start_offset(to_int(args[1]));
    if (start >= text.size()) return answer_text(result, std::string());
    const int64_t length = int_arg(args, 2, -1);
    // A negative length, like a missing one, means the rest; a length past the
    // end is cut there.
    const std::size_t rest = text.size() - start;
    const bool to_end = length < 0 || static_cast<uint64_t>(length) > rest;
    const std::size_t count = to_end ? rest : static_cast<std::size_t>(length);
    if (std::string* out = strings::result_text(result)) {
        out->assign(text, start, count);
        return &result;
    }
    return answer_text(result, text.substr(start, count));
}

VRK_BUILTIN(replace) {
    if (args.size() != 3) {
        wrong_params_raised(block, "replace");
        return answer_text(result, std::string());
    }
    // Read in place: the answer is complete in `out` before the result cell,
    // which may be one of the arguments, is written.
    std::string text_scratch;
    std::string from_scratch;
    std::string to_scratch;
    const std::string& text = text_of(args[0], text_scratch);
    const std::string& from = text_of(args[1], from_scratch);
    const std::string& to = text_of(args[2], to_scratch);
    if (from.empty()) {
        const std::string copy = text;
        return answer_text(result, copy);
    }
    // Into the result's own text when the result holds none of the inputs.
    std::string built;
    std::string* direct = strings::result_text(result);
    std::string& out = direct ? *direct : built;
    out.reserve(text.size());
    std::size_t pos = 0;
    for (;;) {
        const std::size_t hit = text.find(from, pos);
        if (hit == std::string::npos) break;
        out.append(text, pos, hit - pos);
        out += to;
        pos = hit + from.size();
    }
    out.append(text, pos, std::string::npos);
    return direct ? &result : answer_text(result, out);
}

VRK_BUILTIN(find) {
    if (args.size() < 2) {
        wrong_params_raised(block, "find");
        return answer_int(result, -1);
    }
    const std::size_t start = start_offset(int_arg(args, 2, 0));
    if (args[0]->type == Tag::JSON) {
        const auto& elements = args[0]->value.json->elements;
        const element_matcher matches(args[1]);
        for (std::size_t i = start; i < elements.size(); ++i) {
            if (matches(elements[i])) return answer_int(result, static_cast<int64_t>(i));
        }
        return answer_int(result, -1);
    }
    std::string text_scratch;
    std::string key_scratch;
    const std::string& text = text_of(args[0], text_scratch);
    const std::string& key = text_of(args[1], key_scratch);
    return answer_int(result, offset_value(text.find(key, start)));
}

VRK_BUILTIN(rfind) {
    if (args.size() < 2) {
        wrong_params_raised(block, "rfind");
        return answer_int(result, -1);
    }
    if (args[0]->type == Tag::JSON) {
        // From the last element down; the start argument plays no part here.
        const auto& elements = args[0]->value.json->elements;
        const element_matcher matches(args[1]);
        for (std::size_t i = elements.size(); i-- > 0;) {
            if (matches(elements[i])) return answer_int(result, static_cast<int64_t>(i));
        }
        return answer_int(result, -1);
    }
    std::string text_scratch;
    std::string key_scratch;
    const std::string& text = text_of(args[0], text_scratch);
    const std::string& key = text_of(args[1], key_scratch);
    // The start is where the last match may begin at the latest; a negative
    // one, like a missing one, allows the whole text.
    const int64_t from = int_arg(args, 2, -1);
    const std::size_t pos = from < 0 ? std::string::npos : static_cast<std::size_t>(from);
    return answer_int(result, offset_value(text.rfind(key, pos)));
}

VRK_BUILTIN(contains) {
    if (args.size() < 2) {
        wrong_params_raised(block, "contains");
        return answer_int(result, 0);
    }
    std::string text_scratch;
    std::string key_scratch;
    const std::string& text = text_of(args[0], text_scratch);
    const std::string& key = text_of(args[1], key_scratch);
    return answer_int(result, text.find(key) != std::string::npos ? 1 : 0);
}

VRK_BUILTIN(contains_any) {
    if (args.size() < 2) {
        wrong_params(block);
        return answer_int(result, 0);
    }
    const std::string text = to_string(args[0]);
    const std::string keys = to_string(args[1]);
    // The keys are separated by single spaces; the empty key between two
    // spaces is no key at all.
    std::size_t pos = 0;
    while (pos <= keys.size()) {
        std::size_t end = keys.find(' ', pos);
        if (end == std::string::npos) end = keys.size();
        if (end > pos && text.find(keys.data() + pos, 0, end - pos) != std::string::npos)
            return answer_int(result, 1);
        pos = end + 1;
    }
    return answer_int(result, 0);
}

VRK_BUILTIN(is_utf8) {
    if (args.size() != 1) {
        wrong_params(block);
        return answer_int(result, 0);
    }
    std::string scratch;
    const std::string& text = text_of(args[0], scratch);
    return answer_int(result, is_valid_utf8(text.c_str(), text.size()) ? 1 : 0);
}

VRK_BUILTIN(empty_str) {
    // A wrong call answers as `empty` does: nothing passed counts as empty.
    if (args.size() != 1) {
        report_error(block, "external_function", "no argument passed");
        return answer_int(result, 1);
    }
    std::string scratch;
    return answer_int(result, text_of(args[0], scratch).empty() ? 1 : 0);
}

VRK_BUILTIN(lowercase) {
    if (args.size() != 1) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    return answer_text(result, mapped(to_string(args[0]), lower));
}

VRK_BUILTIN(uppercase) {
    if (args.size() != 1) {
        wrong_params(block);
        return answer_text(result, std::string());
    }
    return answer_text(result, mapped(to_string(args[0]), upper));
}

VRK_BUILTIN(starts) {
    if (args.size() != 2) {
        wrong_params(block);
        return answer_int(result, 0);
    }
    std::string text_scratch;
    std::string prefix_scratch;
    const std::string& text = text_of(args[0], text_scratch);
    const std::string& prefix = text_of(args[1], prefix_scratch);
    return answer_int(
        result,
        text.compare(0, prefix.size(), prefix) == 0 && prefix.size() <= text.size() ? 1 : 0);
}

VRK_BUILTIN(find_first) {
    if (args.size() != 2) {
        wrong_params(block);
        return answer_int(result, 0);
    }
    const std::string text = to_string(args[0]);
    return answer_int(result, offset_value(text.find_first_of(to_string(args[1]))));
}

VRK_BUILTIN(find_any) {
    if (args.size() < 2) {
        wrong_params(block);
        return answer_int(result, 0);
    }
    const std::string text = to_string(args[0]);
    const std::size_t start = start_offset(int_arg(args, 2, 0));
    return answer_int(result, offset_value(text.find_first_of(to_string(args[1]), start)));
}

VRK_BUILTIN(find_any_not_of) {
    if (args.size() != 2) {
        wrong_params(block);
        return answer_int(result, 0);
    }
    const std::string text = to_string(args[0]);
    return answer_int(result, offset_value(text.find_first_not_of(to_string(args[1]))));
}

VRK_BUILTIN(find_last) {
    if (args.size() != 2) {
        wrong_params(block);
        return answer_int(result, 0);
    }
    const std::string text = to_string(args[0]);
    return answer_int(result, offset_value(text.find_last_of(to_string(args[1]))));
}

}  // namespace vrk::lib
