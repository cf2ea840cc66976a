#include "base/Text.h"
#include "protocols/IMAPClient.h"
#include "protocols/IMAPSyntax.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace velmo {

namespace {

std::optional<IMAPMailbox> readMailbox(IMAPValues response) {
    const std::vector<IMAPValue> words = response.taken(4);
    if (words.size() < 4) return std::nullopt;
    auto path = imapText(words[3]);
    if (!path) return std::nullopt;
    IMAPMailbox mailbox;
    mailbox.path = std::move(*path);
    mailbox.delimiter = imapText(words[2]);
    for (const IMAPValue attribute : words[1].children()) {
        if (attribute.isAtom()) mailbox.attributes.insert(*imapText(attribute));
    }
    return mailbox;
}

/// Of one command to move.
constexpr std::size_t mostCopied = 200'000;

/// What a status code such as "UIDNEXT 4392" tells.
void readSelectCode(std::string_view code, IMAPSelectedState& state) {
    const std::vector<std::string_view> words = text::split(code, ' ');
    if (words.size() < 2) return;
    if (text::equalsIgnoringCase(words[0], "UIDVALIDITY"))
        state.uidValidity = text::parseUnsigned32(words[1]).value_or(0);
    if (text::equalsIgnoringCase(words[0], "UIDNEXT")) state.uidNext = text::parseUnsigned32(words[1]).value_or(0);
    if (text::equalsIgnoringCase(words[0], "HIGHESTMODSEQ")) state.highestModSeq = text::parseUnsigned64(words[1]);
}

IMAPSelectedState readSelectedState(const std::vector<IMAPResponse>& responses) {
    IMAPSelectedState state;
    for (const IMAPResponse& response : responses) {
        if (response.kind() == IMAPResponse::Kind::untaggedStatus && response.code())
            readSelectCode(*response.code(), state);
        const std::vector<IMAPValue> words = response.values().taken(2);
        if (words.size() == 2 && words[1].isAtom("EXISTS")) state.exists = imapInteger(words[0]).value_or(state.exists);
    }
    return state;
}

void readStatusItems(IMAPValues response, IMAPClient::MailboxStatus& status) {
    std::optional<IMAPValue> last;
    for (const IMAPValue word : response) last = word;
    const IMAPValues items = last->children();
    for (auto at = items.begin(); at != items.end(); ++at) {
        const IMAPValue name = *at;
        if (++at == items.end()) return;
        const std::int64_t number = std::max<std::int64_t>(imapInteger(*at).value_or(0), 0);
        if (name.isAtom("MESSAGES")) status.messages = number;
        if (name.isAtom("UNSEEN")) status.unseen = number;
        if (name.isAtom("UIDNEXT")) status.uidNext = text::parseUnsigned32((*at).bytes()).value_or(0);
    }
}

std::string statusCommand(const std::string& path) {
    return "STATUS " + imapQuoted(path) + " (MESSAGES UNSEEN UIDNEXT)";
}

IMAPClient::MailboxStatus readStatus(const std::vector<IMAPResponse>& responses) {
    IMAPClient::MailboxStatus status;
    for (const IMAPValues& response : untagged(responses, "STATUS")) readStatusItems(response, status);
    return status;
}

std::string joined(const std::vector<std::string>& words) {
    return fmt::format("{}", fmt::join(words, " "));
}

bool isASCII(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 128; });
}

std::optional<std::uint32_t> appendedUID(const std::vector<IMAPResponse>& responses) {
    for (const IMAPResponse& response : responses) {
        if (response.kind() != IMAPResponse::Kind::tagged || !response.code()) continue;
        const std::vector<std::string_view> words = text::split(*response.code(), ' ');
        if (words.size() >= 3 && text::equalsIgnoringCase(words[0], "APPENDUID"))
            return text::parseUnsigned32(words[2]);
    }
    return std::nullopt;
}

}

Async<std::vector<IMAPMailbox>> IMAPClient::listMailboxes() {
    return runOn(executor_, [this]() -> Async<std::vector<IMAPMailbox>> {
        const bool tellsUses = has("SPECIAL-USE") && has("LIST-EXTENDED");
        const auto responses = co_await execute(tellsUses ? R"(LIST "" "*" RETURN (SPECIAL-USE))" : R"(LIST "" "*")");
        std::vector<IMAPMailbox> mailboxes;
        for (const IMAPValues& response : untagged(responses, "LIST")) {
            if (auto mailbox = readMailbox(response)) mailboxes.push_back(std::move(*mailbox));
        }
        assignRoles(mailboxes);
        co_return mailboxes;
    });
}

Async<IMAPSelectedState> IMAPClient::select(std::string path, Access access) {
    return runOn(executor_, [this, access, path = std::move(path)]() -> Async<IMAPSelectedState> {
        std::string command = access == Access::readOnly ? "EXAMINE " : "SELECT ";
        command += imapQuoted(path);
        if (has("CONDSTORE")) command += " (CONDSTORE)";
        refuseLineBreaks({command});
        // A failed SELECT leaves nothing selected (RFC 3501 §6.3.1).
        selectedPath_.reset();
        selectedState_.reset();
        const auto responses = co_await execute(std::move(command));
        const IMAPSelectedState state = readSelectedState(responses);
        selectedPath_ = path;
        selectedState_ = state;
        co_return state;
    });
}

Async<void> IMAPClient::ensureSelected(const std::string& path) {
    if (selectedPath_ != path) co_await select(path);
}

Async<IMAPClient::MailboxStatus> IMAPClient::status(std::string path) {
    return runOn(executor_, [this, path = std::move(path)]() -> Async<MailboxStatus> {
        const auto responses = co_await execute(statusCommand(path));
        co_return readStatus(responses);
    });
}

Async<std::vector<std::optional<IMAPClient::MailboxStatus>>> IMAPClient::statuses(std::vector<std::string> paths) {
    return runOn(executor_, [this, paths = std::move(paths)]() -> Async<std::vector<std::optional<MailboxStatus>>> {
        std::vector<std::string> commands;
        std::vector<std::size_t> places;
        for (std::size_t i = 0; i < paths.size(); ++i) {
            if (hasLineBreak(paths[i])) continue;
            commands.push_back(statusCommand(paths[i]));
            places.push_back(i);
        }
        std::vector<std::optional<MailboxStatus>> found(paths.size());
        const std::function<void(std::size_t, const Answer&)> answered = [&](std::size_t number, const Answer& answer) {
            if (answer) found[places[number]] = readStatus(*answer);
        };
        co_await converseInTurn(commands, keepUntagged, answered);
        co_return found;
    });
}

Async<std::vector<std::uint32_t>> IMAPClient::search(std::string path, std::string criteria) {
    return runOn(executor_,
                 [this, path = std::move(path), criteria = std::move(criteria)]() -> Async<std::vector<std::uint32_t>> {
                     refuseLineBreaks({path, criteria});
                     co_await ensureSelected(path);
                     const auto responses =
                         co_await execute((isASCII(criteria) ? "UID SEARCH " : "UID SEARCH CHARSET UTF-8 ") + criteria);
                     std::vector<std::uint32_t> uids;
                     for (const IMAPValues& response : untagged(responses, "SEARCH")) {
                         for (const IMAPValue word : response) {
                             const auto uid = word.isAtom() ? text::parseUnsigned32(word.bytes()) : std::nullopt;
                             if (uid) uids.push_back(*uid);
                         }
                     }
                     co_return uids;
                 });
}

Async<std::vector<IMAPFetchResult>> IMAPClient::fetchResults(std::string path, std::string command) {
    refuseLineBreaks({path, command});
    co_await ensureSelected(path);
    // Read while the server is still sending, and without holding large messages twice.
    std::vector<IMAPFetchResult> results;
    const UntaggedHandler take = [&results](const IMAPResponse& response) {
        if (auto result = IMAPFetchResult::read(response.values())) results.push_back(std::move(*result));
    };
    const ContinuationHandler none;
    co_await converse(command, Sensitivity::open, none, take);
    co_return results;
}

Async<std::vector<IMAPFetchResult>> IMAPClient::uidFetch(std::string path, std::string set, std::string items,
                                                         std::optional<std::uint64_t> changedSince) {
    return runOn(executor_,
                 [this, changedSince, path = std::move(path), set = std::move(set),
                  items = std::move(items)]() -> Async<std::vector<IMAPFetchResult>> {
                     std::vector<IMAPFetchResult> results;
                     for (const auto& piece : setPieces(set)) {
                         std::string command = fmt::format("UID FETCH {} ({})", piece, items);
                         if (changedSince && has("CONDSTORE"))
                             command += fmt::format(" (CHANGEDSINCE {})", *changedSince);
                         auto more = co_await fetchResults(path, std::move(command));
                         results.insert(results.end(), std::move_iterator(more.begin()),
                                        std::move_iterator(more.end()));
                     }
                     co_return results;
                 });
}

Async<void> IMAPClient::uidFetchEach(std::string path, std::vector<IMAPFetchRequest> requests,
                                     std::function<void(std::size_t, std::vector<IMAPFetchResult>)> onResults) {
    return runOn(executor_,
                 [this, path = std::move(path), requests = std::move(requests),
                  onResults = std::move(onResults)]() -> Async<void> {
                     refuseLineBreaks({path});
                     co_await ensureSelected(path);
                     std::vector<std::string> commands;
                     for (const auto& [set, items] : requests)
                         commands.push_back(fmt::format("UID FETCH {} ({})", set, items));
                     std::vector<IMAPFetchResult> results;
                     const UntaggedHandler take = [&results](const IMAPResponse& response) {
                         if (auto result = IMAPFetchResult::read(response.values()))
                             results.push_back(std::move(*result));
                     };
                     std::optional<IMAPError> refusal;
                     const std::function<void(std::size_t, const Answer&)> answered = [&](std::size_t number,
                                                                                          const Answer& answer) {
                         // What comes behind a refusal is read all the same, so that the session goes on.
                         if (!answer && !refusal) refusal = answer.error();
                         auto read = std::exchange(results, {});
                         if (!refusal) onResults(number, std::move(read));
                     };
                     co_await converseInTurn(commands, take, answered);
                     if (refusal) throw std::move(*refusal);
                 });
}

Async<std::vector<IMAPFetchResult>> IMAPClient::fetch(std::string path, std::string set, std::string items) {
    return runOn(executor_,
                 [this, path = std::move(path), set = std::move(set),
                  items = std::move(items)]() -> Async<std::vector<IMAPFetchResult>> {
                     return fetchResults(path, fmt::format("FETCH {} ({})", set, items));
                 });
}

Async<void> IMAPClient::store(std::string path, std::string set, FlagChange change, std::vector<std::string> flags) {
    return runOn(executor_,
                 [this, change, path = std::move(path), set = std::move(set), flags = joined(flags)]() -> Async<void> {
                     refuseLineBreaks({path, set, flags});
                     co_await ensureSelected(path);
                     const char sign = change == FlagChange::add ? '+' : '-';
                     for (const auto& piece : setPieces(set))
                         co_await execute(fmt::format("UID STORE {} {}FLAGS.SILENT ({})", piece, sign, flags));
                 });
}

Async<void> IMAPClient::deleteMessages(std::string path, std::string set) {
    return runOn(executor_, [this, path = std::move(path), set = std::move(set)]() -> Async<void> {
        const std::vector<std::string> flags{"\\Deleted"};
        std::optional<IMAPError> refusal;
        try {
            co_await store(path, set, FlagChange::add, flags);
            co_await ensureSelected(path);
            if (has("UIDPLUS")) {
                for (const auto& piece : setPieces(set)) co_await execute("UID EXPUNGE " + piece);
            } else {
                co_await execute("EXPUNGE");
            }
        } catch (const IMAPError& error) {
            if (error.kind() != IMAPError::Kind::commandFailed) throw;
            refusal = error;
        }
        if (!refusal) co_return;
        // Still flagged, they would go with the next EXPUNGE of anybody.
        co_await detail::caught([&] { return store(path, set, FlagChange::remove, flags); });
        throw std::move(*refusal);
    });
}

Async<IMAPCopiedUIDs> IMAPClient::moveMessages(std::string path, std::string set, std::string destination) {
    return runOn(executor_,
                 [this, path = std::move(path), set = std::move(set),
                  destination = std::move(destination)]() -> Async<IMAPCopiedUIDs> {
                     refuseLineBreaks({path, set, destination});
                     co_await ensureSelected(path);
                     IMAPCopiedUIDs copied;
                     for (const auto& piece : setPieces(set)) {
                         const std::string command = has("MOVE") ? "UID MOVE " : "UID COPY ";
                         const auto responses = co_await execute(command + piece + " " + imapQuoted(destination));
                         for (const IMAPResponse& response : responses)
                             if (response.code()) addCopiedUIDs(*response.code(), mostCopied, copied);
                         if (!has("MOVE")) co_await deleteMessages(path, piece);
                     }
                     co_return copied;
                 });
}

Async<void> IMAPClient::createMailbox(std::string path) {
    return runOn(executor_, [this, path = std::move(path)]() -> Async<void> {
        try {
            co_await execute("CREATE " + imapQuoted(path));
        } catch (const IMAPError& error) {
            const bool exists = text::containsIgnoringCase(error.response(), "exist") ||
                                text::equalsIgnoringCase(error.code(), "ALREADYEXISTS");
            if (error.kind() != IMAPError::Kind::commandFailed || !exists) throw;
        }
    });
}

Async<std::optional<std::uint32_t>> IMAPClient::append(std::string path, std::optional<std::vector<std::string>> flags,
                                                       Bytes message) {
    return runOn(executor_,
                 [this, path = std::move(path), flags = std::move(flags),
                  message = std::move(message)]() -> Async<std::optional<std::uint32_t>> {
                     std::string command = "APPEND " + imapQuoted(path);
                     if (flags) command += " (" + joined(*flags) + ")";
                     command += fmt::format(" {{{}}}", message.size());
                     ContinuationHandler sendMessage = [&message](const std::string&) { return message + "\r\n"; };
                     const auto responses =
                         co_await execute(std::move(command), Sensitivity::open, std::move(sendMessage));
                     co_return appendedUID(responses);
                 });
}

}
