#pragma once

#include "protocols/IMAPClient.h"
#include "store/StoreHome.h"

#include <map>
#include <memory>
#include <string>
#include <utility>

namespace velmo::test {

/// A further client of the account, with its session on the I/O thread of the runtime; not connected yet.
std::shared_ptr<IMAPClient> anotherClient(Runtime& runtime, Clock& clock, const StoreHome& home);

/// The mailboxes of an account and the messages in them as a text with a line for each: the same text when the same
/// mail is there, and meant for the eyes of whoever has to find out why it is not. Mailboxes come by path, their
/// messages by UID.
Async<std::string> mailOnServer(std::shared_ptr<IMAPClient> client);
std::string mailInStore(OpenStore& store);

/// Every message on the server, by its mailbox and UID.
using Sources = std::map<std::pair<std::string, std::uint32_t>, Bytes>;
Async<Sources> sourcesOnServer(std::shared_ptr<IMAPClient> client);

/// What there is beside the records, in lines: the messages with a body, the body files, and the texts in the index.
std::string bodiesInStore(OpenStore& store, const StoreHome& home);

/// What is wrong with a store at any moment, also right after a crash: a damaged database, a file with half a body, a
/// body that is marked and not there, a message in the index without its text. Empty when all is well.
std::string damageIn(OpenStore& store, const StoreHome& home, const Sources& sources);

}
