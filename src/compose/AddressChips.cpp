#include "compose/AddressChips.h"

#include "formats/OutgoingMessage.h"
#include "platform/CaseFolding.h"

#include <unordered_set>

namespace velmo {

void addAddresses(std::vector<IMAPAddress>& chips, std::span<const IMAPAddress> addresses) {
    std::unordered_set<std::string> present;
    for (const auto& chip : chips) present.insert(foldedCase(chip.email));
    for (const auto& address : addresses) {
        if (present.insert(foldedCase(address.email)).second) chips.push_back(address);
    }
}

bool commitTyped(std::string& typed, std::vector<IMAPAddress>& chips) {
    const auto addresses = OutgoingMessage::parseAddressList(typed);
    if (addresses.empty()) return false;
    addAddresses(chips, addresses);
    typed.clear();
    return true;
}

void dropRepeats(std::initializer_list<std::vector<IMAPAddress>*> lists) {
    std::unordered_set<std::string> present;
    for (auto* list : lists)
        std::erase_if(*list, [&present](const auto& each) { return !present.insert(foldedCase(each.email)).second; });
}

std::vector<std::string> invalidAddresses(std::initializer_list<std::span<const IMAPAddress>> lists) {
    std::vector<std::string> invalid;
    for (const auto list : lists) {
        for (const auto& address : list) {
            if (!domainOf(address.email)) invalid.push_back(address.email);
        }
    }
    return invalid;
}

}
