#pragma once

#include "protocols/IMAPValue.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace velmo {

/// One part of a message that is no multipart (RFC 3501 §7.4.2).
struct IMAPBodyPart {
    /// The part number, "2.1".
    std::string section;
    /// Type, subtype, encoding, disposition and the names of parameters are in lower case.
    std::string type, subtype;
    std::map<std::string, std::string> parameters;
    /// Without angle brackets.
    std::optional<std::string> contentID;
    std::string encoding;
    /// In octets, as encoded.
    std::int64_t size = 0;
    std::optional<std::string> disposition;
    std::map<std::string, std::string> dispositionParameters;

    friend bool operator==(const IMAPBodyPart&, const IMAPBodyPart&) = default;
};

/// The tree of a message's parts, stored flat: a node is followed by all that is below it. So a tree of any shape is
/// copied, compared and dropped without recursion.
class IMAPBodyStructure {
  public:
    /// Multiparts below this level are left out, since part numbers grow with each level.
    static constexpr std::size_t maximumDepth = 100;

    struct Node {
        /// A part, or the lower-cased subtype of a multipart.
        std::variant<IMAPBodyPart, std::string> content;
        /// Number of the nodes below this one, which follow it.
        std::size_t descendants = 0;

        friend bool operator==(const Node&, const Node&) = default;
    };

    static IMAPBodyStructure single(IMAPBodyPart part);
    static IMAPBodyStructure multipart(std::string subtype, const std::vector<IMAPBodyStructure>& parts);

    bool isMultipart() const;
    /// At least one; the first is the root.
    const std::vector<Node>& nodes() const { return nodes_; }

    friend bool operator==(const IMAPBodyStructure&, const IMAPBodyStructure&) = default;

  private:
    friend std::optional<IMAPBodyStructure> readBodyStructure(IMAPValue value);
    IMAPBodyStructure() = default;

    std::vector<Node> nodes_;
};

/// Reads the value of BODYSTRUCTURE. A part that cannot be read is dropped, and its siblings keep their numbers;
/// absent when that leaves nothing.
std::optional<IMAPBodyStructure> readBodyStructure(IMAPValue value);

/// The parts that are no multipart, in document order.
std::vector<IMAPBodyPart> flattenedParts(const IMAPBodyStructure& structure);

/// True when a part is a calendar by its type, or by a file name that ends in ".ics".
bool hasCalendarPart(const IMAPBodyStructure& structure);

}
