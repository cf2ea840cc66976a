#include "compose/MailtoURL.h"
#include "base/Text.h"
#include "platform/CaseFolding.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>

using namespace velmo;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

void requireOneLine(std::string_view text) {
    require(text::isValidUTF8(text));
    for (const char c : text) require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
}

/// The bytes of a list whose addresses are whole, of one line, and each there once.
std::size_t checkedSize(const std::vector<IMAPAddress>& addresses) {
    std::size_t size = 0;
    std::set<std::string> seen;
    for (const auto& address : addresses) {
        require(domainOf(address.email).has_value());
        require(seen.insert(foldedCase(address.email)).second);
        requireOneLine(address.formatted());
        size += address.email.size() + address.name.value_or("").size();
    }
    return size;
}

}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string rest(reinterpret_cast<const char*>(data), size);
    const auto url = MailtoURL::parse("mailto:" + rest);
    require(url.has_value());
    const std::size_t taken = checkedSize(url->to) + checkedSize(url->cc) + checkedSize(url->bcc);
    requireOneLine(url->subject);
    require(text::isValidUTF8(url->body) && url->body.find_first_of(std::string_view("\r\0", 2)) == std::string::npos);
    // A byte that is no UTF-8 becomes a character of three.
    require(taken + url->subject.size() + url->body.size() <= 3 * size);
    return 0;
}
