#include "protocols/IMAPBodyStructure.h"

#include "base/Text.h"
#include "formats/HeaderWords.h"
#include "formats/StructuredValue.h"

#include <algorithm>

namespace velmo {

namespace {

std::string loweredText(IMAPValue value, std::string_view otherwise) {
    const auto text = imapText(value);
    return text ? text::lowered(*text) : std::string(otherwise);
}

std::map<std::string, std::string> readParameters(IMAPValue value) {
    std::map<std::string, std::string> parameters;
    const IMAPValues words = value.children();
    for (auto at = words.begin(); at != words.end(); ++at) {
        const auto name = imapText(*at);
        if (++at == words.end()) break;
        const auto text = imapText(*at);
        if (name && text) parameters[text::lowered(*name)] = *text;
    }
    // Servers hand on what the sender wrote, in pieces and with charsets (RFC 2231).
    const bool isCoded = std::ranges::any_of(parameters, [](const auto& one) { return one.first.contains('*'); });
    if (!isCoded) return parameters;
    const auto joined = joinedParameters(parameters);
    return {joined.begin(), joined.end()};
}

/// The place of the disposition depends on the type, which decides what extension data comes before it.
std::size_t dispositionIndex(const IMAPBodyPart& part) {
    if (part.type == "text") return 9;
    if (part.type == "message" && part.subtype == "rfc822") return 11;
    return 8;
}

void readDisposition(IMAPValue value, IMAPBodyPart& part) {
    const std::vector<IMAPValue> words = value.children().taken(2);
    if (words.empty()) return;
    const auto name = imapText(words[0]);
    if (!name) return;
    part.disposition = text::lowered(*name);
    if (words.size() > 1) part.dispositionParameters = readParameters(words[1]);
}

std::optional<IMAPBodyPart> readPart(IMAPValue value, std::string section) {
    const std::vector<IMAPValue> fields = value.children().taken(12);
    if (fields.size() < 7) return std::nullopt;
    IMAPBodyPart part;
    part.section = section.empty() ? "1" : std::move(section);
    part.type = loweredText(fields[0], "text");
    part.subtype = loweredText(fields[1], "plain");
    part.parameters = readParameters(fields[2]);
    if (const auto id = imapText(fields[3])) part.contentID = std::string(text::trimmed(*id, "<>"));
    part.encoding = loweredText(fields[5], "7bit");
    part.size = imapInteger(fields[6]).value_or(0);
    const std::size_t place = dispositionIndex(part);
    if (place < fields.size()) readDisposition(fields[place], part);
    return part;
}

bool isMultipartValue(IMAPValue value) {
    const IMAPValues children = value.children();
    return !children.empty() && (*children.begin()).isList();
}

/// Walks a tree of lists with a stack of its own.
class StructureReader {
  public:
    explicit StructureReader(std::vector<IMAPBodyStructure::Node>& nodes) : nodes_(nodes) {}

    void read(IMAPValue root) {
        enter(root, {});
        while (!open_.empty()) {
            Multipart& multipart = open_.back();
            if (multipart.next != multipart.end && (*multipart.next).isList()) {
                const IMAPValue child = *multipart.next++;
                enter(child, multipart.childSection());
            } else {
                close();
            }
        }
    }

  private:
    struct Multipart {
        std::size_t node;
        std::string section;
        IMAPValues::Iterator next, end;
        std::size_t number = 0;

        std::string childSection() {
            const std::string own = std::to_string(++number);
            return section.empty() ? own : section + "." + own;
        }
    };

    void enter(IMAPValue value, std::string section) {
        if (!value.isList()) return;
        IMAPBodyStructure::Node node;
        if (!isMultipartValue(value)) {
            if (auto part = readPart(value, std::move(section))) {
                node.content = std::move(*part);
                nodes_.push_back(std::move(node));
            }
            return;
        }
        if (open_.size() == IMAPBodyStructure::maximumDepth) return;
        Multipart multipart{nodes_.size(), std::move(section), value.children().begin(), value.children().end()};
        open_.push_back(std::move(multipart));
        node.content = std::string();
        nodes_.push_back(std::move(node));
    }

    void close() {
        const Multipart& multipart = open_.back();
        IMAPBodyStructure::Node& node = nodes_[multipart.node];
        node.content = multipart.next == multipart.end ? "mixed" : loweredText(*multipart.next, "mixed");
        node.descendants = nodes_.size() - multipart.node - 1;
        open_.pop_back();
    }

    std::vector<IMAPBodyStructure::Node>& nodes_;
    std::vector<Multipart> open_;
};

/// The value of the first map that has the name, with encoded words decoded.
std::optional<std::string> fileName(const IMAPBodyPart& part) {
    const auto inDisposition = part.dispositionParameters.find("filename");
    if (inDisposition != part.dispositionParameters.end()) return decodeHeaderWords(inDisposition->second);
    const auto inType = part.parameters.find("name");
    if (inType != part.parameters.end()) return decodeHeaderWords(inType->second);
    return std::nullopt;
}

bool isCalendarPart(const IMAPBodyPart& part) {
    const std::string type = part.type + "/" + part.subtype;
    if (type == "text/calendar" || type == "application/ics") return true;
    const auto name = fileName(part);
    return name && text::lowered(*name).ends_with(".ics");
}

}

IMAPBodyStructure IMAPBodyStructure::single(IMAPBodyPart part) {
    IMAPBodyStructure structure;
    Node node;
    node.content = std::move(part);
    structure.nodes_.push_back(std::move(node));
    return structure;
}

IMAPBodyStructure IMAPBodyStructure::multipart(std::string subtype, const std::vector<IMAPBodyStructure>& parts) {
    IMAPBodyStructure structure;
    Node node;
    node.content = std::move(subtype);
    structure.nodes_.push_back(std::move(node));
    for (const IMAPBodyStructure& part : parts)
        structure.nodes_.insert(structure.nodes_.end(), part.nodes_.begin(), part.nodes_.end());
    structure.nodes_.front().descendants = structure.nodes_.size() - 1;
    return structure;
}

bool IMAPBodyStructure::isMultipart() const {
    return std::holds_alternative<std::string>(nodes_.front().content);
}

std::optional<IMAPBodyStructure> readBodyStructure(IMAPValue value) {
    IMAPBodyStructure structure;
    StructureReader(structure.nodes_).read(value);
    if (structure.nodes_.empty()) return std::nullopt;
    return structure;
}

std::vector<IMAPBodyPart> flattenedParts(const IMAPBodyStructure& structure) {
    std::vector<IMAPBodyPart> parts;
    for (const IMAPBodyStructure::Node& node : structure.nodes()) {
        if (const auto* part = std::get_if<IMAPBodyPart>(&node.content)) parts.push_back(*part);
    }
    return parts;
}

bool hasCalendarPart(const IMAPBodyStructure& structure) {
    for (const IMAPBodyStructure::Node& node : structure.nodes()) {
        const auto* part = std::get_if<IMAPBodyPart>(&node.content);
        if (part && isCalendarPart(*part)) return true;
    }
    return false;
}

}
