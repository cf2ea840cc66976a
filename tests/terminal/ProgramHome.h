#pragma once

#include "app/Application.h"
#include "base/Runtime.h"
#include "store/SampleMail.h"
#include "support/EnvironmentGuard.h"
#include "support/TemporaryDirectory.h"
#include "terminal/CommandSocket.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace velmo::test {

/// A home of their own for the built programs.
class ProgramHome : public testing::Test {
  protected:
    /// ada@localhost, whose servers refuse, with the sample mail in its store and one body.
    void addAccount() {
        Runtime runtime;
        runtime.run([&]() -> Async<void> {
            Application application(runtime.executors());
            MailAccount account;
            account.id = sampleAccountID;
            account.email = "ada@localhost";
            account.incoming = account.outgoing = ServerConfig("127.0.0.1", 1, ServerConfig::Security::tls);
            co_await application.accounts().add(account, "secret");
            EXPECT_TRUE(application.keychain().notice()) << "is told once, which must not differ between two runs";
            co_await application.openMail();
            co_await fillWithSamples(application.store().environment().writer, application.clock().now());
            const auto record = application.mail().messages.find(1);
            const auto source =
                sampleSource(record->mailboxPath, static_cast<std::uint32_t>(record->uid), application.clock().now());
            application.store().environment().files.saveBody(
                "Content-Type: application/pdf; name=x.pdf\r\n\r\n" + *source, BodyKey::of(*record));
            co_await application.close();
        });
    }

    bool isListening() const { return connectTo(socket_).has_value(); }

    TemporaryDirectory home_;
    std::filesystem::path socket_ = home_ / "run/velmo-mail.sock";

  private:
    EnvironmentGuard homeGuard_{"VELMO_HOME", home_.path().string()};
    EnvironmentGuard displayGuard_{"DISPLAY", std::nullopt};
    EnvironmentGuard waylandGuard_{"WAYLAND_DISPLAY", std::nullopt};
};

}
