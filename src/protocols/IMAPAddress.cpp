#include "protocols/IMAPAddress.h"

#include "base/Text.h"

namespace velmo {

std::string IMAPAddress::formatted() const {
    if (!name || name->empty()) return email;
    if (name->find_first_of(",;:<>@\"()[]\\.") == std::string::npos) return *name + " <" + email + ">";
    return "\"" + text::replacedAll(*name, "\"", "\\\"") + "\" <" + email + ">";
}

}
