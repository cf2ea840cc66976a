// The application.

#include "base/Localisation.h"
#include "platform/Memory.h"
#include "terminal/LocalConsole.h"
#include "terminal/MailProgram.h"

#include <cstdio>
#include <string>
#include <vector>

int main(int count, char** arguments) {
    velmo::returnFreedMemory();
    velmo::startLocalisation("/usr/share/locale");
    velmo::LocalConsole console(stdout, stderr);
    return velmo::runMailProgram(std::vector<std::string>(arguments, arguments + count), console);
}
