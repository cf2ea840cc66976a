#include "records/ModelContainer.h"

#include "base/Localisation.h"
#include "platform/Directories.h"
#include "platform/FileDescriptor.h"
#include "platform/FileError.h"
#include "platform/SQLite.h"
#include "records/ModelContext.h"
#include "records/Schema.h"

#include <boost/asio/post.hpp>
#include <cerrno>
#include <fcntl.h>
#include <mutex>
#include <sigc++/signal.h>
#include <sys/file.h>

namespace velmo {

namespace {

std::string sentence(ModelStoreError::Kind kind) {
    switch (kind) {
    case ModelStoreError::Kind::inUse:
        return tr("Velmo-Mail is running already and has the mail store open. Quit it and try again.");
    case ModelStoreError::Kind::tooNew:
        return tr("The mail store was written by a newer version of Velmo-Mail. Update Velmo-Mail to open it.");
    case ModelStoreError::Kind::brokenRecord: break;
    }
    return tr("The mail store holds a damaged record.");
}

/// The lock ends with the descriptor, so also when the process dies.
FileDescriptor lockBeside(const std::filesystem::path& file) {
    auto path = file;
    path += ".lock";
    FileDescriptor lock(::open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock) throw FileError(path, std::error_code(errno, std::generic_category()));
    if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) throw ModelStoreError(ModelStoreError::Kind::inUse);
        throw FileError(path, std::error_code(errno, std::generic_category()));
    }
    return lock;
}

/// Makes a directory that nobody else can guess or read.
std::filesystem::path makeTemporaryDirectory() {
    auto pattern = (std::filesystem::temp_directory_path() / "velmo-store-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw FileError(pattern, std::error_code(errno, std::generic_category()));
    return pattern;
}

/// Removes the directory of a temporary store, after everything in it is closed.
struct RemovedAtEnd {
    std::filesystem::path directory;
    RemovedAtEnd() = default;
    RemovedAtEnd(const RemovedAtEnd&) = delete;
    RemovedAtEnd& operator=(const RemovedAtEnd&) = delete;
    ~RemovedAtEnd() {
        std::error_code ignored;
        if (!directory.empty()) std::filesystem::remove_all(directory, ignored);
    }
};

}

ModelStoreError::ModelStoreError(Kind kind) : UserError(velmo::sentence(kind)), kind_(kind) {}

struct ModelContainer::State {
    RemovedAtEnd removed;
    std::filesystem::path file;
    FileDescriptor lock;
    sqlite::DatabaseOptions options;
    Executor main;
    sigc::signal<void(const ModelChanges&)> changed; // on the main executor
    std::mutex mutex;                                // guards what follows
    ModelChanges untold;
    bool isTelling = false;
};

ModelContainer::ModelContainer(std::unique_ptr<State> state) : state_(std::move(state)) {
    sqlite::Database database(state_->file, state_->options);
    schema::migrate(database);
}

ModelContainer::~ModelContainer() = default;

std::shared_ptr<ModelContainer> ModelContainer::open(const std::filesystem::path& file, Executor main) {
    makePrivateDirectory(file.parent_path());
    auto state = std::make_unique<State>();
    state->file = file;
    state->lock = lockBeside(file);
    state->main = std::move(main);
    return std::shared_ptr<ModelContainer>(new ModelContainer(std::move(state)));
}

std::shared_ptr<ModelContainer> ModelContainer::temporary(Executor main) {
    auto state = std::make_unique<State>();
    state->removed.directory = makeTemporaryDirectory();
    state->file = state->removed.directory / "Mail.sqlite";
    state->options.durability = sqlite::DatabaseOptions::Durability::off;
    state->main = std::move(main);
    return std::shared_ptr<ModelContainer>(new ModelContainer(std::move(state)));
}

std::unique_ptr<ModelContext> ModelContainer::makeContext() {
    return std::make_unique<ModelContext>(shared_from_this(), state_->options);
}

sigc::connection ModelContainer::onChange(std::function<void(const ModelChanges&)> observer) {
    return state_->changed.connect(observer);
}

void ModelContainer::committed(ModelChanges changes) {
    if (changes.isEmpty()) return;
    const std::lock_guard guard(state_->mutex);
    state_->untold.add(std::move(changes));
    if (std::exchange(state_->isTelling, true)) return;
    boost::asio::post(state_->main, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->tellObservers();
    });
}

void ModelContainer::tellObservers() {
    ModelChanges changes;
    {
        const std::lock_guard guard(state_->mutex);
        changes = std::exchange(state_->untold, {});
        state_->isTelling = false;
    }
    state_->changed.emit(changes);
}

const std::filesystem::path& ModelContainer::file() const {
    return state_->file;
}

int ModelContainer::schemaVersion() {
    return schema::version();
}

void ModelChanges::add(ModelChanges other) {
    mailboxes.merge(other.mailboxes);
    mailboxLists.merge(other.mailboxLists);
    labels = labels || other.labels;
}

}
