#include "bench/SearchBenchmark.h"

#include "bench/GeneratedMail.h"
#include "bench/Home.h"
#include "bench/Process.h"
#include "bench/Timing.h"
#include "store/ReadBody.h"

#include <fmt/format.h>
#include <map>
#include <stdexcept>

namespace velmo::bench {

namespace {

constexpr int messageCount = 200'000;
constexpr std::size_t fewestWords = 20;
constexpr std::size_t mostWords = 300;
constexpr std::size_t queryCount = 50;
constexpr std::size_t mostWordsOfQuery = 3;
constexpr std::size_t pageSize = 50;
constexpr std::size_t indexedAtOnce = 200;
constexpr std::size_t filesOfDirectory = 10'000;

/// The peer: a tree of files with its index.
class Peer {
  public:
    Peer() { test::writeFile(configuration(), settings()); }

    void add(const GeneratedMessage& message, std::string_view source) {
        const auto place = static_cast<std::size_t>(message.number);
        const auto directory = mail() / std::to_string(place / filesOfDirectory) / "cur";
        std::filesystem::create_directories(directory);
        test::writeFile(directory / fmt::format("{}:2,S", message.number), source);
    }

    void index() const { runProgram({"notmuch", "new", "--quiet"}); }

    static std::string search(const std::string& query) {
        return outputOf({"notmuch", "search", fmt::format("--limit={}", pageSize), query});
    }

  private:
    std::filesystem::path mail() const { return directory_ / "mail"; }
    std::filesystem::path configuration() const { return directory_ / "configuration"; }
    std::string settings() const {
        return fmt::format("[database]\npath={}\n[user]\nname=Someone\nprimary_email=someone@example.org\n"
                           "[new]\ntags=new\n[maildir]\nsynchronize_flags=false\n",
                           mail().string());
    }

    test::TemporaryDirectory directory_;
    test::EnvironmentGuard guard_{"NOTMUCH_CONFIG", configuration().string()};
};

/// Texts on their way into the body index, as they are told from whole messages.
class Texts {
  public:
    explicit Texts(BodyIndex& index) : index_(index) {}

    void add(const UUID& account, const GeneratedMessage& message, BytesView source) {
        auto& waiting = waiting_[account];
        waiting.push_back({message.messageID(), readBody(source).indexText});
        if (waiting.size() >= indexedAtOnce) addWaiting(account);
    }

    void addRest() {
        for (const auto& [account, documents] : waiting_) index_.add(documents, account);
    }

  private:
    void addWaiting(const UUID& account) {
        index_.add(waiting_[account], account);
        waiting_[account].clear();
    }

    BodyIndex& index_;
    std::map<UUID, std::vector<BodyIndex::Document>> waiting_;
};

/// Both stores hold the same messages; gives what is searched for in them.
std::vector<std::string> fill(Home& home, Peer& peer) {
    MailGenerator generator(fewestWords, mostWords);
    auto accounts = home.addAccounts(1);
    home.use([&](Runtime& runtime, Application& application) {
        StoreFiller filler(application.mail(), std::move(accounts));
        Texts texts(application.store().bodyIndex());
        for (int i = 0; i < messageCount; ++i) {
            const auto message = generator.next();
            const auto source = message.source();
            peer.add(message, source);
            texts.add(filler.add(message), message, source);
        }
        filler.commit();
        texts.addRest();
        indexTexts(runtime, application.store().environment().writer);
    });
    std::vector<std::string> queries;
    for (std::size_t i = 0; i < queryCount; ++i) {
        std::string query = generator.words().word();
        for (std::size_t more = i % mostWordsOfQuery; more > 0; --more) query += ' ' + generator.words().word();
        queries.push_back(std::move(query));
    }
    return queries;
}

Row told(std::string name, double ours, std::optional<double> peer = {}, std::optional<double> bar = {}) {
    return {std::move(name), ours, peer, "ms", bar, Row::Better::lower};
}

void timePrograms(const Home& home, const std::vector<std::string>& queries, std::vector<double>& ours,
                  std::vector<double>& peers) {
    std::size_t found = 0;
    for (const auto& query : queries) {
        const auto words = home.call("velmo", {"search", query, "--limit", std::to_string(pageSize)});
        ours.push_back(millisecondsOf([&] { found += outputOf(words).size(); }));
        peers.push_back(millisecondsOf([&] { found += Peer::search(query).size(); }));
    }
    if (found == 0) throw std::runtime_error("no search found anything");
}

void timeInside(Home& home, const std::vector<std::string>& queries, std::vector<double>& pages,
                std::vector<double>& bodies) {
    home.use([&](Runtime&, Application& application) {
        auto& lists = application.store().lists();
        MessagePageRequest request(lists.resolve(UnifiedMailbox::mailbox(MailboxRole::inbox)), pageSize);
        for (const auto& query : queries) {
            request.search = query;
            pages.push_back(millisecondsOf([&] { lists.page(request); }));
        }
        // Searched anew: the index remembers its last answer only.
        auto& index = application.store().bodyIndex();
        for (const auto& query : queries) bodies.push_back(millisecondsOf([&] { index.search(query); }));
    });
}

}

std::vector<Row> benchSearch(const std::filesystem::path& programs) {
    Home home(programs);
    Peer peer;
    const auto queries = fill(home, peer);
    peer.index();
    std::vector<double> ours, peers, pages, bodies;
    timePrograms(home, queries, ours, peers);
    timeInside(home, queries, pages, bodies);
    return {told("search of 200,000 in the running application, median", median(pages), median(peers), 1.0),
            told("the same, p99", percentile(pages, 99), percentile(peers, 99), 1.0),
            told("velmo search, a process each time, median", median(ours), median(peers)),
            told("the same, p99", percentile(ours, 99), percentile(peers, 99)),
            told("its part in the body index, median", median(bodies)),
            told("its part in the body index, p99", percentile(bodies, 99))};
}

}
