// Data buffer builtins that read and write bytes of a DATA buffer, slice any
// flat buffer, and write a buffer to a file.
//
// Every index is checked against the buffer before memory is touched: an
// index outside it is reported ("index out of bounds! %i : %i") and the call
// goes on without effect. Buffers grow only up to the buffer limit.
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "builtins/data.h"
#include "builtins/data_support.h"
#include "platform/files.h"

namespace vrk::lib {

using data::arg;
using data::bytes_of;
using data::report;
using data::wrong_call;

namespace {

// Index arguments of the byte functions are read as unsigned 32-bit numbers,
// so -1 is 4294967295: always past the end of a buffer.
uint32_t byte_index(const vrkvar* cell) { return static_cast<uint32_t>(to_int(cell)); }

// `count` elements of `values` from `start` on, fewer at the end; nothing when
// `start` is at or past the end.
template <class E>
std::vector<E> slice(const std::vector<E>& values, uint64_t start, uint64_t count) {
    if (start >= values.size()) return {};
    const uint64_t room = values.size() - start;
    const uint64_t n = count < room ? count : room;
    const auto from = values.begin() + static_cast<std::ptrdiff_t>(start);
    return std::vector<E>(from, from + static_cast<std::ptrdiff_t>(n));
}

}  // namespace

VRK_BUILTIN(dsetb) {
    if (args.size() != 3) {
        wrong_call(block, "wrong params dsetb1! %s", "dsetb");
        return &result;
    }
    std::vector<uint8_t>* bytes = bytes_of(arg(args, 0));
    if (!bytes) {
        wrong_call(block, "wrong params dsetb2! %s", "dsetb");
        return &result;
    }
    const uint32_t index = byte_index(arg(args, 1));
    const auto byte = static_cast<uint8_t>(to_int(arg(args, 2)));
    if (index < bytes->size()) {
        (*bytes)[index] = byte;
    } else if (index == bytes->size() && bytes->size() < kMaxBufferBytes) {
        // One past the end appends.
        bytes->push_back(byte);
    } else {
        data::out_of_bounds(block, static_cast<int32_t>(index), bytes->size());
    }
    return &result;
}

VRK_BUILTIN(dgetb) {
    std::vector<uint8_t>* bytes = args.size() == 2 ? bytes_of(arg(args, 0)) : nullptr;
    if (!bytes) {
        wrong_call(block, "wrong params! %s", "dgetb");
        set_int(&result, 0);
        return &result;
    }
    const uint32_t index = byte_index(arg(args, 1));
    if (index >= bytes->size()) {
        data::out_of_bounds(block, static_cast<int32_t>(index), bytes->size());
        set_int(&result, 0);
        return &result;
    }
    set_int(&result, (*bytes)[index]);
    return &result;
}

VRK_BUILTIN(dsetcpy) {
    if (args.size() != 3) {
        wrong_call(block, "wrong params dsetb1! %s", "dsetcpy");
        return &result;
    }
    std::vector<uint8_t>* target = bytes_of(arg(args, 0));
    std::vector<uint8_t>* source = bytes_of(arg(args, 1));
    if (!target || !source) {
        wrong_call(block, "wrong params dsetb2! %s", "dsetcpy");
        return &result;
    }
    const int64_t offset = to_int(arg(args, 2));
    if (offset < 0) {
        data::out_of_bounds(block, offset, target->size());
        return &result;
    }
    // The copy must end below the buffer limit; past the end of the target it
    // grows the target, and the gap in between is zeros.
    const auto at = static_cast<uint64_t>(offset);
    const uint64_t length = source->size();
    if (at >= kMaxBufferBytes || at + length >= kMaxBufferBytes) {
        report(block, "dsetcpy: the buffer would reach 1000000000 bytes, nothing copied!");
        return &result;
    }
    // A buffer copied into itself is read from a copy taken before the growth.
    const std::vector<uint8_t> own = source == target ? *source : std::vector<uint8_t>();
    const uint8_t* from = source == target ? own.data() : source->data();
    if (at + length > target->size()) target->resize(static_cast<std::size_t>(at + length));
    if (length) std::memcpy(target->data() + at, from, static_cast<std::size_t>(length));
    return &result;
}

VRK_BUILTIN(subset) {
    if (args.size() != 3) {
        wrong_call(block, "wrong params subset! %s", "subset");
        if (std::vector<uint8_t>* out = as_data(&result)) out->clear();
        return &result;
    }
    vrkvar* source = arg(args, 0);
    // Both counts are read unsigned: a negative length (-1 above all) runs to
    // the end, a negative start lies past the end.
    const auto start = static_cast<uint64_t>(to_int(arg(args, 1)));
    const auto count = static_cast<uint64_t>(to_int(arg(args, 2)));
    bool done = false;
    // The slice is taken before the result is written: the source may be the result.
    arrays::with_vector(source, [&](const auto& values) {
        auto part = slice(values, start, count);
        using E = typename decltype(part)::value_type;
        if (std::vector<E>* out = data::buffer_of<E>(&result)) *out = std::move(part);
        done = true;
    });
    if (!done) {
        wrong_call(block, "wrong params subset! %s", "subset");
        if (std::vector<uint8_t>* out = as_data(&result)) out->clear();
    }
    return &result;
}

VRK_BUILTIN(dsize) {
    std::vector<uint8_t>* bytes = args.size() == 1 ? bytes_of(arg(args, 0)) : nullptr;
    if (!bytes) {
        wrong_call(block, "wrong params! %s", "dsize");
        return &result;
    }
    set_int(&result, static_cast<int64_t>(bytes->size()));
    return &result;
}

VRK_BUILTIN(dwritef) {
    std::vector<uint8_t>* bytes = args.size() == 2 ? bytes_of(arg(args, 0)) : nullptr;
    if (!bytes) {
        wrong_call(block, "wrong params! %s", "dwritef");
        return &result;
    }
    const std::string name = to_string(arg(args, 1));
    // Binary, replacing what the file held.
    std::ofstream file(vrk::platform::file_path(name), std::ios::binary | std::ios::trunc);
    if (!file) {
        report(block, "cannot open file!");
        return &result;
    }
    file.write(reinterpret_cast<const char*>(bytes->data()),
               static_cast<std::streamsize>(bytes->size()));
    if (!file) report(block, "cannot write file!");
    return &result;
}

}  // namespace vrk::lib
