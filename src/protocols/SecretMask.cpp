#include "protocols/SecretMask.h"

#include <algorithm>
#include <utility>

namespace velmo {

SecretMask::SecretMask(std::vector<std::string> secrets) : secrets_(std::move(secrets)) {
    std::erase(secrets_, "");
    for (const std::string& secret : secrets_) longest_ = std::max(longest_, secret.size());
}

std::string SecretMask::masked(BytesView text, std::size_t limit) const {
    std::string result;
    for (std::size_t i = 0; i < std::min(limit, text.size());) {
        const std::size_t length = secretLengthAt(text.substr(i));
        if (length > 0) {
            result += "***";
            i += length;
        } else {
            result += text[i++];
        }
    }
    return result;
}

/// The length of the longest secret that the text begins with; 0 when it begins with none.
std::size_t SecretMask::secretLengthAt(BytesView text) const {
    std::size_t length = 0;
    for (const std::string& secret : secrets_) {
        if (text.starts_with(secret)) length = std::max(length, secret.size());
    }
    return length;
}

}
