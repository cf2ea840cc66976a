#pragma once

#include "base/Bytes.h"

#include <cstddef>
#include <string>
#include <vector>

namespace velmo {

/// Keeps secrets out of what a server's words are shown as, since a server may repeat what it got.
class SecretMask {
  public:
    /// Every form in which a secret goes out; empty ones count for nothing.
    explicit SecretMask(std::vector<std::string> secrets);

    /// The beginning of the text, up to `limit` bytes of it, with asterisks for each secret that begins there.
    std::string masked(BytesView text, std::size_t limit = Bytes::npos) const;

    /// Bytes of the longest secret.
    std::size_t longest() const { return longest_; }

  private:
    std::size_t secretLengthAt(BytesView text) const;

    std::vector<std::string> secrets_;
    std::size_t longest_ = 0;
};

}
