#pragma once

#include "formats/IMAPAddress.h"

#include <initializer_list>
#include <span>
#include <string>
#include <vector>

/// The addresses of a field: finished ones, and the text that is still being typed.
namespace velmo {

/// Adds the addresses that the list does not hold yet, compared without regard to case; the first spelling stays.
void addAddresses(std::vector<IMAPAddress>& chips, std::span<const IMAPAddress> addresses);

/// Turns what was typed into chips and clears it. Text without any whole address stays, and then this is false.
bool commitTyped(std::string& typed, std::vector<IMAPAddress>& chips);

/// Leaves each address, in whatever case, where it stands first.
void dropRepeats(std::initializer_list<std::vector<IMAPAddress>*> lists);

/// The addresses of the lists that are not whole (`domainOf`), in order.
std::vector<std::string> invalidAddresses(std::initializer_list<std::span<const IMAPAddress>> lists);

}
