#include "formats/Addresses.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view value(reinterpret_cast<const char*>(data), size);
    std::size_t emailBytes = 0;
    for (const velmo::MailAddress& address : velmo::parseAddressList(value)) {
        if (address.email.empty() || (address.name && address.name->empty())) std::abort();
        if (address.email.find_first_of("\r\n") != std::string::npos) std::abort();
        if (address.name && address.name->find_first_of("\r\n") != std::string::npos) std::abort();
        emailBytes += address.email.size();
    }
    if (emailBytes > size) std::abort();
    return 0;
}
