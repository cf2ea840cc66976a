#pragma once

#include "terminal/LocalConsole.h"

#include <cstdio>
#include <memory>
#include <string>

namespace velmo::test {

struct Outcome {
    int code = 0;
    std::string out;
    std::string err;

    friend bool operator==(const Outcome&, const Outcome&) = default;
};

inline void PrintTo(const Outcome& outcome, std::ostream* stream) {
    *stream << "exit " << outcome.code << "\n--- out\n"
            << outcome.out.substr(0, 2000) << "--- err\n"
            << outcome.err.substr(0, 2000);
}

/// A console over two files.
class ConsoleStreams {
  public:
    LocalConsole& console() { return console_; }

    /// What was written since the beginning.
    Outcome outcome(int code) { return {code, written(out_.get()), written(err_.get())}; }

  private:
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

    static std::string written(std::FILE* file) {
        std::fflush(file);
        std::string text(static_cast<std::size_t>(std::ftell(file)), '\0');
        std::rewind(file);
        text.resize(std::fread(text.data(), 1, text.size(), file));
        return text;
    }

    File out_{std::tmpfile(), std::fclose};
    File err_{std::tmpfile(), std::fclose};
    LocalConsole console_{out_.get(), err_.get()};
};

}
