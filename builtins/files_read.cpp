// Reading and writing whole files, appending, lines and file hashes.
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "base/script_lock.h"
#include "builtins/data.h"
#include "builtins/files.h"
#include "builtins/files_support.h"
#include "platform/files.h"
#include "saved/value_form.h"
#include "values/json.h"
#include "vm/errors.h"

namespace vrk::lib {

using file_support::make_folders;
using file_support::run_job;
using file_support::text_arg;

namespace {

// The bytes of a file; false when it does not open. Read in pieces, so that
// files whose size the system does not know read as well.
bool read_bytes(const std::string& name, std::vector<uint8_t>& bytes) {
    std::ifstream file(vrk::platform::file_path(name), std::ios::binary);
    if (!file) return false;
    // The size the file reports is only a first guess: the reading goes on in
    // pieces to the real end.
    file.seekg(0, std::ios::end);
    const std::streamoff reported = file.tellg();
    file.seekg(0, std::ios::beg);
    constexpr std::size_t kPiece = 1 << 20;
    std::size_t used = 0;
    if (reported > 0) {
        bytes.resize(static_cast<std::size_t>(reported));
        file.read(reinterpret_cast<char*>(bytes.data()), reported);
        used = static_cast<std::size_t>(file.gcount());
    }
    while (file) {
        bytes.resize(used + kPiece);
        file.read(reinterpret_cast<char*>(bytes.data() + used), kPiece);
        used += static_cast<std::size_t>(file.gcount());
    }
    bytes.resize(used);
    return true;
}

// The bytes a value writes to a file: DATA as it is, JSON in its binary list
// form, text as it is, anything else as its text after a report.
std::vector<uint8_t> bytes_to_write(vrkvar* value, vrkblock* block, const char* const* name) {
    std::vector<uint8_t> bytes;
    switch (value->type) {
        case Tag::DATA:
            if (value->value.data) bytes = *value->value.data;
            break;
        case Tag::JSON:
            if (value->value.json) jsonToData(value->value.json, bytes, block);
            break;
        case Tag::STRING:
            if (value->value.str) bytes.assign(value->value.str->begin(), value->value.str->end());
            break;
        default: {
            log().errorNamed(name, "datatype not supported! assume string...");
            const std::string text = to_string(value);
            bytes.assign(text.begin(), text.end());
            break;
        }
    }
    return bytes;
}

vrkvar* write_file(std::vector<vrkvar*>& args, vrkblock* block, vrkvar& result,
                   const char* const* name, bool append) {
    set_int(&result, 0);
    if (args.size() != 2) {
        log().errorNamed(name, "invalid parameter count");
        return &result;
    }
    const std::string path = text_arg(args, 0);
    const std::size_t slash = path.rfind('/');
    if (slash != std::string::npos) make_folders(path.substr(0, slash));
    vrkvar* value = is_marker(args[1], 11) ? void_value() : args[1];
    const std::vector<uint8_t> bytes = bytes_to_write(value, block, name);
    std::ofstream file(vrk::platform::file_path(path),
                       std::ios::binary | (append ? std::ios::app : std::ios::trunc));
    if (!file) {
        log().errorNamed(name, "cannot open file!");
        return &result;
    }
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    file.flush();
    if (file) set_int(&result, 1);
    return &result;
}

const char* const kStringfromfile = "stringfromfile";
const char* const kFileread = "fileread";
const char* const kFilereadthread = "filereadthread";
const char* const kFilewrite = "filewrite";
const char* const kFileappend = "fileappend";
const char* const kFilehash = "filehash";
const char* const kFilehashthread = "filehashthread";

}  // namespace

VRK_BUILTIN(stringfromfile) {
    if (args.size() != 1) {
        log().errorNamed(&kStringfromfile, "invalid parameter count");
        set_int(&result, 0);
        return &result;
    }
    std::ifstream file(vrk::platform::file_path(text_arg(args, 0)));
    if (!file) return &result;
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    set_string(&result, text);
    return &result;
}

VRK_BUILTIN(fileread) {
    if (args.size() != 1) {
        log().errorNamed(&kFileread, "invalid parameter count");
        set_int(&result, 0);
        return &result;
    }
    reset(&result, Tag::DATA);
    std::vector<uint8_t>* data = as_data(&result);
    if (!data) return &result;
    data->clear();
    if (!read_bytes(text_arg(args, 0), *data)) log().errorNamed(&kFileread, "cannot open file!");
    return &result;
}

VRK_BUILTIN(filereadthread) {
    if (args.size() != 1) {
        log().errorNamed(&kFilereadthread, "invalid parameter count");
        set_int(&result, 0);
        return &result;
    }
    return run_job(engine, block, result, [name = text_arg(args, 0)](vrkvar* cell) {
        auto bytes = std::make_unique<std::vector<uint8_t>>();
        const bool opened = read_bytes(name, *bytes);
        ScriptLock lock;
        if (!opened) log().errorNamed(&kFilereadthread, "cannot open file!");
        reset(cell, Tag::DATA);
        if (std::vector<uint8_t>* data = as_data(cell)) *data = std::move(*bytes);
    });
}

VRK_BUILTIN(filewrite) { return write_file(args, block, result, &kFilewrite, false); }

VRK_BUILTIN(fileappend) { return write_file(args, block, result, &kFileappend, true); }

VRK_BUILTIN(fappend) {
    if (args.size() != 2) return &result;
    std::ofstream file(vrk::platform::file_path(text_arg(args, 0)), std::ios::app);
    if (!file) return &result;
    const std::string text = text_arg(args, 1);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    return &result;
}

VRK_BUILTIN(linesfromfile) {
    if (args.size() != 1) return &result;
    reset(&result, Tag::JSON);
    vrkjson* json = as_json(&result);
    if (!json) return &result;
    json_clear(json);
    std::ifstream file(vrk::platform::file_path(text_arg(args, 0)));
    vrkvar* line_cell = cell_new(Tag::STRING);
    std::string line;
    while (std::getline(file, line)) {
        set_string(line_cell, line);
        json_append(json, line_cell, block);
    }
    cell_free(line_cell);
    return &result;
}

VRK_BUILTIN(filehash) {
    set_int(&result, 0);
    if (args.size() != 1) {
        log().errorNamed(&kFilehash, "invalid parameter count");
        return &result;
    }
    try {
        std::vector<uint8_t> bytes;
        if (!read_bytes(text_arg(args, 0), bytes)) {
            log().errorNamed(&kFilehash, "cannot open file.");
            return &result;
        }
        set_int(&result, static_cast<int32_t>(data_hash(bytes.data(), bytes.size())));
    } catch (const std::exception& e) {
        report_errorf(block, "external_function", "file hash exception: %s\n", e.what());
    }
    return &result;
}

VRK_BUILTIN(filehashthread) {
    if (args.size() != 1) {
        log().errorNamed(&kFilehashthread, "invalid parameter count");
        set_int(&result, 0);
        return &result;
    }
    return run_job(engine, block, result, [name = text_arg(args, 0)](vrkvar* cell) {
        int64_t hash = 0;
        bool opened = false;
        try {
            std::vector<uint8_t> bytes;
            opened = read_bytes(name, bytes);
            if (opened) hash = static_cast<int32_t>(data_hash(bytes.data(), bytes.size()));
        } catch (const std::exception& e) {
            log().error("file hash exception: %s", e.what());
        }
        ScriptLock lock;
        if (!opened) log().errorNamed(&kFilehashthread, "cannot open file.");
        set_int(cell, hash);
    });
}

}  // namespace vrk::lib
