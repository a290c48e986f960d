// The command lines of vrn-exec and vrn-server: options as --name VALUE or --name=VALUE.
#pragma once

#include <optional>
#include <string>

namespace vrn::exec {

class CommandLine {
public:
    CommandLine(int argc, char** argv) : argc_(argc), argv_(argv) {}
    // Moves to the next argument; false after the last.
    bool Next() {
        missing_ = false;
        if (++at_ >= argc_) return false;
        arg_ = argv_[at_];
        return true;
    }
    [[nodiscard]] const std::string& arg() const { return arg_; }
    // The value when the argument is option; nullopt when it isn't. A value
    // missing at the end of the line is empty and sets missing().
    std::optional<std::string> Value(const std::string& option) {
        if (arg_.rfind(option + "=", 0) == 0) return arg_.substr(option.size() + 1);
        if (arg_ != option) return std::nullopt;
        if (at_ + 1 < argc_) return std::string(argv_[++at_]);
        missing_ = true;
        return std::string();
    }
    [[nodiscard]] bool missing() const { return missing_; }

private:
    int argc_;
    char** argv_;
    int at_ = 0;
    std::string arg_;
    bool missing_ = false;
};

}  // namespace vrn::exec
