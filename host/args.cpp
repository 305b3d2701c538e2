// Sorting of the argument vector into values, flags and positional arguments.
#include "host/args.h"

#include <sstream>

namespace vrk {

ArgumentParser::ArgumentParser(int argc, const char* const* argv) {
    for (int i = 0; i < argc; ++i) args.emplace_back(argv[i] ? argv[i] : "");
}

bool ArgumentParser::is_number(const std::string& argument) {
    std::istringstream stream(argument);
    double number = 0;
    stream >> number;
    return !stream.fail();
}

bool ArgumentParser::is_option(const std::string& argument) {
    return !argument.empty() && argument[0] == '-' && !is_number(argument);
}

void ArgumentParser::parse() {
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& argument = args[i];
        if (!is_option(argument)) {
            positional.push_back(argument);
            continue;
        }

        // All leading dashes go; an argument made of dashes only is kept whole.
        std::string name = argument;
        const std::size_t start = name.find_first_not_of('-');
        if (start != std::string::npos) name.erase(0, start);

        const std::size_t equals = name.find('=');
        if (equals != std::string::npos) {
            params.emplace(name.substr(0, equals), name.substr(equals + 1));
            continue;
        }

        const bool last = i + 1 >= args.size();
        if (last || is_option(args[i + 1])) {
            flags.insert(name);
        } else if (registeredParams.count(name) != 0) {
            params.emplace(name, args[i + 1]);
            ++i;
        } else {
            // The next argument is looked at again on its own, as positional.
            flags.insert(name);
        }
    }
}

const std::string* ArgumentParser::value(const std::string& name) const {
    auto found = params.find(name);
    return found == params.end() ? nullptr : &found->second;
}

bool ArgumentParser::has_flag(const std::string& name) const { return flags.count(name) != 0; }

}  // namespace vrk
