// String builtins that split text into JSON arrays, and the scoped search
// `specialfind`.
#include <string>
#include <vector>

#include "builtins/strings.h"
#include "builtins/strings_support.h"
#include "builtins/text_split.h"
#include "frontend/text.h"

namespace vrk::lib {

using strings::answer_int;
using strings::answer_pieces;
using strings::int_arg;
using strings::offset_value;
using strings::start_offset;
using strings::text_of;
using strings::wrong_params;
using strings::wrong_params_raised;

namespace {

// The cut limit of `split` and `specialsplit`: a maximum number of pieces, so
// one cut fewer; no third argument, or a maximum below 1, means no limit.
int64_t cut_limit(const std::vector<vrkvar*>& args) {
    if (args.size() < 3) return -1;
    const int64_t pieces = to_int(args[2]);
    return pieces < 1 ? -1 : pieces - 1;
}

// The two pieces around the byte of `text` at `pos` that belongs to `token`:
// the text before it, and the text after the whole token's width from there.
// Not found: the text and the empty string.
std::vector<std::string> halves(const std::string& text, std::size_t pos, std::size_t width) {
    if (pos == std::string::npos) return {text, std::string()};
    const std::size_t after = pos + width;
    return {text.substr(0, pos), after < text.size() ? text.substr(after) : std::string()};
}

}  // namespace

VRK_BUILTIN(specialfind) {
    if (args.size() < 2) {
        wrong_params_raised(block, "specialfind");
        return answer_int(result, -1);
    }
    std::string text_scratch;
    std::string token_scratch;
    const std::string& text = text_of(args[0], text_scratch);
    const std::string& token = text_of(args[1], token_scratch);
    const std::size_t start = start_offset(int_arg(args, 2, 0));
    const bool last = int_arg(args, 3, 0) != 0;
    if (start >= text.size()) return answer_int(result, -1);
    return answer_int(result, offset_value(find_scoped_text(text, token, start, last)));
}

VRK_BUILTIN(split) {
    if (args.size() < 2) {
        wrong_params(block);
        return answer_pieces(result, {});
    }
    std::string text_scratch;
    std::string token_scratch;
    const std::string& text = text_of(args[0], text_scratch);
    const std::string& token = text_of(args[1], token_scratch);
    const int64_t limit = cut_limit(args);
    // A result that holds a plain integer (as every call hands it over) holds
    // none of the texts: the pieces go straight into its elements.
    if (result.type != Tag::INT || result.constant)
        return answer_pieces(result, split_plain(text, token, limit));
    reset(&result, Tag::JSON);
    if (result.type != Tag::JSON) return &result;
    std::vector<vrkelement*>& elements = result.value.json->elements;
    each_plain_piece(text, token, limit, [&](std::size_t at, std::size_t size) {
        vrkelement* element = element_new();
        elements.push_back(element);
        strings::put_text(element, text.data() + at, size);
    });
    return &result;
}

VRK_BUILTIN(specialsplit) {
    if (args.size() < 2) {
        wrong_params(block);
        return answer_pieces(result, {});
    }
    std::string text_scratch;
    std::string token_scratch;
    const std::string& text = text_of(args[0], text_scratch);
    const std::string& token = text_of(args[1], token_scratch);
    return answer_pieces(result, split_scoped_word(text, token, cut_limit(args)));
}

VRK_BUILTIN(splitf) {
    if (args.size() != 2) {
        wrong_params(block);
        return answer_pieces(result, {});
    }
    std::string text_scratch;
    const std::string& text = text_of(args[0], text_scratch);
    // Only the first byte of the token counts; no token means a space.
    const std::string token = to_string(args[1]);
    const char ch = token.empty() ? ' ' : token[0];
    return answer_pieces(result, split_scoped_char(text, ch));
}

VRK_BUILTIN(splitfirst) {
    if (args.size() != 2) {
        wrong_params(block);
        return answer_pieces(result, {});
    }
    const std::string text = to_string(args[0]);
    const std::string token = to_string(args[1]);
    return answer_pieces(result, halves(text, text.find_first_of(token), token.size()));
}

VRK_BUILTIN(splitlast) {
    if (args.size() != 2) {
        wrong_params(block);
        return answer_pieces(result, {});
    }
    const std::string text = to_string(args[0]);
    const std::string token = to_string(args[1]);
    return answer_pieces(result, halves(text, text.find_last_of(token), token.size()));
}

}  // namespace vrk::lib
