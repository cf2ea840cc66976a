#pragma once

#include "base/Clock.h"
#include "store/AccountPass.h"
#include "store/BodyStore.h"
#include "store/StoreRig.h"

#include <memory>
#include <optional>
#include <string>

namespace velmo::test {

/// Alice's account on real servers, with what loads bodies.
struct BodyRig {
    BodyRig() : servers({}, MailServers::RawLog::yes), rig(servers, std::make_shared<SystemClock>()) {}
    ~BodyRig() {
        rig.run([this] { return rig.engines.disconnectAll(); });
    }
    BodyRig(const BodyRig&) = delete;
    BodyRig& operator=(const BodyRig&) = delete;

    void pass() {
        rig.run([this]() -> Async<void> {
            const auto engine = rig.engines.engine(rig.account);
            co_await passOver(*engine, rig.environment.writer, rig.account.id, LabelNewMail::no, {});
        });
    }

    MessageRecord message(std::int64_t uid, const std::string& path = "INBOX") {
        return *rig.context->messages.find({rig.account.id, path}, static_cast<std::uint32_t>(uid));
    }

    std::optional<Bytes> file(const MessageRecord& record) {
        return rig.environment.files.loadBody(BodyKey::of(record));
    }

    void setHasBody(const MessageRecord& record, bool hasBody) {
        MessageChange change;
        change.hasBody = hasBody;
        rig.context->messages.change(record.id, change);
    }

    /// How often clients have asked for whole messages.
    std::size_t fetches() const {
        std::size_t count = 0;
        for (const auto& session : servers.clientSessions()) {
            for (auto at = session.find("BODY.PEEK[]"); at != std::string::npos;
                 at = session.find("BODY.PEEK[]", at + 1))
                ++count;
        }
        return count;
    }

    MailServers servers;
    StoreRig rig;
};

}
