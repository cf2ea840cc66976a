#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// An HTML text whose links are marked with numbers.
struct NumberedLinks {
    std::string html;              ///< " [1]" stands before the end of each link
    std::vector<std::string> urls; ///< of the numbers from 1 on, each once, as UTF-8
};

/// Says where the links of an HTML text lead: a link's text says nothing about that. Those within the page, and those
/// whose text is their address, stay unmarked. Linear in its input.
NumberedLinks numberedLinks(std::string_view html);

}
