// Catching what the log reports while a test runs.
//
// A `LogCapture` listens to the log from its construction to its end and keeps
// every message: the errors apart from the other lines, and all of them in
// order of arrival with their kind. The listener swallows the messages, so a
// test that expects errors does not fill the test output with them.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"

namespace vrk::test {

class LogCapture {
public:
    LogCapture() {
        id = log().addListener([this](ScriptLogType type, const char* text) {
            (type == ScriptLogType::error ? errors : lines).emplace_back(text);
            entries.emplace_back(type, text);
            return true;
        });
    }
    ~LogCapture() { log().removeListener(id); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // True when one of `texts` contains `part`.
    static bool has(const std::vector<std::string>& texts, const std::string& part) {
        for (const std::string& t : texts)
            if (t.find(part) != std::string::npos) return true;
        return false;
    }

    // True when any message contains `part`.
    bool saw(const std::string& part) const { return has(errors, part) || has(lines, part); }

    // The messages of one kind, in order of arrival.
    std::vector<std::string> of(ScriptLogType type) const {
        std::vector<std::string> out;
        for (const auto& [t, text] : entries)
            if (t == type) out.push_back(text);
        return out;
    }

    std::vector<std::string> errors;                             // error messages
    std::vector<std::string> lines;                              // every other message
    std::vector<std::pair<ScriptLogType, std::string>> entries;  // all, in order of arrival

private:
    uint32_t id = 0;  // the listener's handle
};

}  // namespace vrk::test
