// Helpers shared by the tests of the saved forms: a log recorder, an owned
// cell, and JSON building.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "values/json.h"

namespace vrk::test {

// Records every log message (without its prefix) while it exists.
class LogRecorder {
public:
    LogRecorder() {
        id_ = log().addListener([this](ScriptLogType type, const char* text) {
            entries.push_back({type, text});
            return true;
        });
    }
    ~LogRecorder() { log().removeListener(id_); }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    struct entry {
        ScriptLogType type;  // error, warning or log
        std::string text;    // the message as formatted
    };
    std::vector<entry> entries;  // in order of arrival

    // True when some message contains `part`.
    bool saw(const std::string& part) const {
        for (const entry& e : entries) {
            if (e.text.find(part) != std::string::npos) return true;
        }
        return false;
    }
    std::size_t errors() const {
        std::size_t n = 0;
        for (const entry& e : entries) n += e.type == ScriptLogType::error;
        return n;
    }

private:
    uint32_t id_ = 0;
};

// A cell that frees itself.
class OwnedCell {
public:
    explicit OwnedCell(Tag tag = Tag::INT) : cell_(cell_new(tag)) {}
    ~OwnedCell() {
        cell_->constant = 0;
        cell_free(cell_);
    }
    OwnedCell(const OwnedCell&) = delete;
    OwnedCell& operator=(const OwnedCell&) = delete;
    vrkvar* get() const { return cell_; }
    vrkvar* operator->() const { return cell_; }

private:
    vrkvar* cell_;
};

// Appends an element to a JSON cell (keyless when key is null).
inline vrkelement* add_element(vrkvar* json_cell, const char* key) {
    vrkelement* e = key ? element_new_keyed(key) : element_new();
    as_json(json_cell)->elements.push_back(e);
    return e;
}

// Base of the saved-form tests: the test thread owns the pools.
class SavedTest : public ::testing::Test {
protected:
    void SetUp() override { context().main_thread = current_thread_id(); }
};

}  // namespace vrk::test
