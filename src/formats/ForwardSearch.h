#pragma once

#include <cstddef>
#include <string_view>

namespace velmo {

/// Finds the same thing again and again, from places that never go back, in linear time together.
class ForwardSearch {
  public:
    /// `search(from)` gives the first place from there on, or npos.
    template <class Search>
    std::size_t from(std::size_t position, Search search) {
        if (!searched_ || (found_ != std::string_view::npos && found_ < position)) found_ = search(position);
        searched_ = true;
        return found_;
    }

  private:
    bool searched_ = false;
    std::size_t found_ = 0;
};

}
