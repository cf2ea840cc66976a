#pragma once

#include "formats/IMAPAddress.h"
#include "records/AttachmentInfo.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Lists in one column of a table, as JSON (RFC 8259). Reading never fails: a broken cell reads as an empty list, and
/// an element of the wrong shape is left out.
namespace velmo::cells {

std::string encode(std::span<const std::string> texts);
std::string encode(std::span<const IMAPAddress> addresses);
std::string encode(std::span<const AttachmentInfo> attachments);

std::vector<std::string> texts(std::string_view cell);
std::vector<IMAPAddress> addresses(std::string_view cell);
std::vector<AttachmentInfo> attachments(std::string_view cell);

}
