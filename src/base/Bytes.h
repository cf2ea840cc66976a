#pragma once

#include <string>
#include <string_view>

namespace velmo {

/// Octets that are owned. Mail mixes text and binary freely, so bytes and UTF-8 text share one representation;
/// a declaration says which of the two it means.
using Bytes = std::string;

/// Octets that someone else owns.
using BytesView = std::string_view;

}
