#include "terminal/MailCommands.h"

#include "terminal/ActionCommands.h"
#include "terminal/ComposeCommands.h"
#include "terminal/ListCommands.h"
#include "terminal/OutboxCommands.h"
#include "terminal/StatusCommands.h"
#include "terminal/SyncCommands.h"

namespace velmo {

void addMailCommands(CLI::App& program, CommandBody& body) {
    addSyncCommands(program, body);
    addListCommands(program, body);
    addActionCommands(program, body);
    addStatusCommands(program, body);
    addComposeCommands(program, body);
    addOutboxCommands(program, body);
}

}
