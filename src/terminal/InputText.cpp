#include "terminal/InputText.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace velmo {

std::string shownWord(const std::string& word) {
    return printable(text::repairedUTF8(word));
}

namespace {

CommandError unreadable(const std::string& name) {
    if (errno == ENOENT) return CommandError(tr("There is no file {}.", shownWord(name)));
    return CommandError(
        tr("{} can't be read: {}.", shownWord(name), std::error_code(errno, std::generic_category()).message()));
}

CommandError tooLarge(const std::string& name, std::size_t most) {
    return CommandError(
        tr("{} is larger than {} MB, which is the most that is read.", shownWord(name), most / 1'000'000));
}

/// A file may grow while it is read, and some have no size.
Bytes readUpTo(const FileDescriptor& descriptor, const std::string& name, std::size_t most) {
    Bytes bytes;
    std::array<char, 1 << 16> chunk{};
    for (;;) {
        const ssize_t count = read(descriptor.get(), chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw unreadable(name);
        if (count == 0) return bytes;
        bytes.append(chunk.data(), static_cast<std::size_t>(count));
        if (bytes.size() > most) throw tooLarge(name, most);
    }
}

}

Bytes regularFile(const std::filesystem::path& file, const std::string& name, std::size_t most) {
    const FileDescriptor descriptor(open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!descriptor || fstat(descriptor.get(), &status) != 0) throw unreadable(name);
    if (S_ISDIR(status.st_mode)) throw CommandError(tr("{} is a folder, and no file.", shownWord(name)));
    if (!S_ISREG(status.st_mode))
        throw CommandError(tr("{} is no regular file, such as a message can hold.", shownWord(name)));
    if (std::cmp_greater(status.st_size, most)) throw tooLarge(name, most);
    return readUpTo(descriptor, name, most);
}

Async<Bytes> fileContents(Session& session, std::string name, std::size_t most) {
    const auto file = session.directory / name;
    co_return co_await callOn(session.executors.background, [&] { return regularFile(file, name, most); });
}

Async<std::string> inputText(Session& session, std::string name) {
    std::string given;
    if (name != "-") {
        given = co_await fileContents(session, std::move(name), longestText);
    } else {
        while (true) {
            auto line = co_await session.console.readLineFromInput();
            if (!line) break;
            given += *line + "\n";
            if (given.size() > longestText) throw tooLarge(tr("Standard input"), longestText);
        }
    }
    given = text::replacedAll(text::repairedUTF8(given), "\r\n", "\n");
    while (given.ends_with('\n')) given.pop_back();
    co_return given;
}

}
