#include "records/Schema.h"

#include "records/ModelContainer.h"

#include <array>
#include <string>

namespace velmo::schema {

namespace {

// Step n brings a store of version n to n + 1. A step that was released is never edited; a change is a new step.
//
// Account ids are blobs of 16 octets, dates milliseconds since 1970, lists JSON. What lists and flag comparisons read
// stands in front of the texts that can be long, so that it is on the row's first page. AUTOINCREMENT keeps the id of
// a deleted message from being given to another one.
constexpr std::array migrations{
    R"sql(
CREATE TABLE mailboxes (
    accountID BLOB NOT NULL,
    path TEXT NOT NULL,
    name TEXT NOT NULL,
    delimiter TEXT,
    roleRaw TEXT NOT NULL,
    isSelectable INTEGER NOT NULL,
    unreadCount INTEGER NOT NULL,
    totalCount INTEGER NOT NULL,
    uidValidity INTEGER NOT NULL,
    uidNext INTEGER NOT NULL,
    highestModSeq INTEGER NOT NULL,
    oldestSyncedUID INTEGER NOT NULL,
    lastSynced INTEGER,
    PRIMARY KEY (accountID, path)
) WITHOUT ROWID;

CREATE TABLE messages (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    accountID BLOB NOT NULL,
    mailboxPath TEXT NOT NULL,
    uid INTEGER NOT NULL,
    uidValidity INTEGER NOT NULL,
    isSeen INTEGER NOT NULL,
    isFlagged INTEGER NOT NULL,
    isAnswered INTEGER NOT NULL,
    isDraft INTEGER NOT NULL,
    otherFlags TEXT NOT NULL,
    date INTEGER NOT NULL,
    size INTEGER NOT NULL,
    hasAttachments INTEGER NOT NULL,
    hasInvite INTEGER NOT NULL,
    hasBody INTEGER NOT NULL,
    categoryRaw TEXT NOT NULL,
    labelsJoined TEXT NOT NULL,
    fromName TEXT NOT NULL,
    fromEmail TEXT NOT NULL,
    subject TEXT NOT NULL,
    snippet TEXT NOT NULL,
    messageID TEXT,
    inReplyTo TEXT,
    threadKey TEXT NOT NULL,
    "references" TEXT NOT NULL,
    "to" TEXT NOT NULL,
    cc TEXT NOT NULL,
    replyTo TEXT NOT NULL,
    attachments TEXT NOT NULL,
    summary TEXT,
    translation TEXT,
    translationLanguage TEXT
);
CREATE UNIQUE INDEX messagesByUID ON messages (accountID, mailboxPath, uid);
CREATE INDEX messagesByDate ON messages (accountID, mailboxPath, date);
CREATE INDEX messagesByThread ON messages (accountID, threadKey);
-- Few rows of a large mailbox are unread or lack their body; finding and counting them must not read the others.
CREATE INDEX unreadMessages ON messages (accountID, mailboxPath, isSeen, date) WHERE isSeen = 0;
CREATE INDEX messagesWithoutBody ON messages (accountID, mailboxPath, hasBody, date) WHERE hasBody = 0;

CREATE TABLE labels (
    key TEXT PRIMARY KEY,
    name TEXT NOT NULL,
    colorRaw INTEGER NOT NULL,
    isDefault INTEGER NOT NULL,
    sortOrder INTEGER NOT NULL
) WITHOUT ROWID;
)sql",
    R"sql(
-- The other half of a divided inbox: every category but security. In front of the date, each half has its own order.
-- Not by IN, which would fill a table with the five words for each row that is inserted.
ALTER TABLE messages ADD COLUMN isOther INTEGER
    GENERATED ALWAYS AS (CASE categoryRaw WHEN 'receipts' THEN 1 WHEN 'promotions' THEN 1 WHEN 'social' THEN 1
                         WHEN 'updates' THEN 1 WHEN 'newsletters' THEN 1 ELSE 0 END) VIRTUAL;
DROP INDEX messagesByDate;
CREATE INDEX messagesByDate ON messages (accountID, mailboxPath, isOther, date);
DROP INDEX unreadMessages;
CREATE INDEX unreadMessages ON messages (accountID, mailboxPath, isSeen, isOther, date) WHERE isSeen = 0;
DROP INDEX messagesByThread;
CREATE INDEX messagesByThread ON messages (accountID, threadKey, date);
CREATE INDEX labelledMessages ON messages (accountID, mailboxPath, labelsJoined, isSeen, date) WHERE labelsJoined <> '';
CREATE INDEX messagesByMessageID ON messages (messageID) WHERE messageID IS NOT NULL;

-- Filled step by step behind the writer: messages up to an id are in it, and those that are deleted stay. The reader
-- looks at each hit, so positions are not kept. Columns are, though nobody asks for them: only with them does FTS5 merge
-- the lists of a prefix many at a time, which makes common words four times as fast.
CREATE VIRTUAL TABLE messageTexts USING fts5(fromName, fromEmail, subject, snippet, content='messages',
    content_rowid='id', detail=column, columnsize=0, tokenize='unicode61 remove_diacritics 2');
CREATE TABLE messageTextsState (upTo INTEGER NOT NULL, entries INTEGER NOT NULL);
INSERT INTO messageTextsState VALUES (0, 0);
CREATE TRIGGER messageTextsChanged AFTER UPDATE OF fromName, fromEmail, subject, snippet ON messages
WHEN OLD.id <= (SELECT upTo FROM messageTextsState)
BEGIN
    INSERT INTO messageTexts (messageTexts, rowid, fromName, fromEmail, subject, snippet)
        VALUES ('delete', OLD.id, OLD.fromName, OLD.fromEmail, OLD.subject, OLD.snippet);
    INSERT INTO messageTexts (rowid, fromName, fromEmail, subject, snippet)
        VALUES (NEW.id, NEW.fromName, NEW.fromEmail, NEW.subject, NEW.snippet);
END;
)sql",
    R"sql(
-- Messages that the server would not tell about, which are asked for again.
CREATE INDEX messagesWithoutHead ON messages (accountID, mailboxPath, uid)
    WHERE size = 0 AND messageID IS NULL AND fromEmail = '' AND subject = '';
)sql",
    R"sql(
-- Flags that were changed here and that the server has not heard of. They go with the message.
CREATE TABLE unsentFlags (
    message INTEGER NOT NULL,
    flag INTEGER NOT NULL,
    value INTEGER NOT NULL,
    serverValue INTEGER NOT NULL,
    PRIMARY KEY (message, flag)
) WITHOUT ROWID;
CREATE TRIGGER unsentFlagsGo AFTER DELETE ON messages BEGIN DELETE FROM unsentFlags WHERE message = OLD.id; END;

-- What only this machine knows of messages that have left their mailbox, until they are met again.
CREATE TABLE keepsakes (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    accountID BLOB NOT NULL,
    mailboxPath TEXT NOT NULL,
    uid INTEGER NOT NULL,
    uidValidity INTEGER NOT NULL,
    messageID TEXT NOT NULL,
    date INTEGER NOT NULL,
    size INTEGER NOT NULL,
    fromEmail TEXT NOT NULL,
    subject TEXT NOT NULL,
    hasBody INTEGER NOT NULL,
    snippet TEXT NOT NULL,
    categoryRaw TEXT NOT NULL,
    labelsJoined TEXT NOT NULL,
    summary TEXT,
    translation TEXT,
    translationLanguage TEXT,
    isSeen INTEGER,
    isFlagged INTEGER,
    targetPath TEXT,
    targetUIDValidity INTEGER,
    targetUID INTEGER,
    targetFrom INTEGER,
    keptAt INTEGER NOT NULL
);
CREATE INDEX keepsakesByMessageID ON keepsakes (accountID, messageID);
CREATE INDEX keepsakesByTarget ON keepsakes (accountID, targetPath, targetUID) WHERE targetPath IS NOT NULL;
CREATE INDEX keepsakesByTime ON keepsakes (keptAt);

-- A store without messages holds nothing that an older version wrote, and never will.
CREATE TABLE origin (isOlder INTEGER NOT NULL);
INSERT INTO origin SELECT EXISTS (SELECT 1 FROM messages);
)sql"};

}

int version() {
    return static_cast<int>(migrations.size());
}

void migrate(sqlite::Database& database) {
    const int found = database.userVersion();
    if (found < 0 || found > version()) throw ModelStoreError(ModelStoreError::Kind::tooNew);
    for (int step = found; step < version(); ++step) {
        sqlite::Transaction transaction(database);
        database.execute(migrations.at(static_cast<std::size_t>(step)));
        database.setUserVersion(step + 1);
        transaction.commit();
    }
}

}
