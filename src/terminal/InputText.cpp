#include "terminal/InputText.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/AtomicFile.h"

namespace velmo {

std::string shownWord(const std::string& word) {
    return printable(text::repairedUTF8(word));
}

Async<Bytes> fileContents(Session& session, std::string name) {
    const auto file = session.directory / name;
    auto bytes = co_await callOn(session.executors.background, [&] { return readFile(file); });
    if (!bytes) throw CommandError(tr("There is no file {}.", shownWord(name)));
    co_return *std::move(bytes);
}

Async<std::string> inputText(Session& session, std::string name) {
    std::string given;
    if (name != "-") {
        given = co_await fileContents(session, std::move(name));
    } else {
        while (true) {
            auto line = co_await session.console.readLineFromInput();
            if (!line) break;
            given += *line + "\n";
        }
    }
    given = text::replacedAll(text::repairedUTF8(given), "\r\n", "\n");
    while (given.ends_with('\n')) given.pop_back();
    co_return given;
}

}
