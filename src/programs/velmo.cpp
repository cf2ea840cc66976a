// The terminal front end.

#include "base/Localisation.h"
#include "terminal/CommandLine.h"

#include <cstdio>
#include <string>
#include <vector>

int main(int count, char** words) {
    velmo::startLocalisation("/usr/share/locale");
    velmo::LocalConsole console(stdout, stderr);
    return velmo::runCommandLine(std::vector<std::string>(words + 1, words + count), console);
}
