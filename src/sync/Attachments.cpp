#include "sync/Attachments.h"

#include "base/Localisation.h"
#include "formats/HeaderWords.h"

namespace velmo {

namespace {

/// The name of a part, decoded; empty when it has none.
std::string nameOf(const IMAPBodyPart& part) {
    if (const auto found = part.dispositionParameters.find("filename"); found != part.dispositionParameters.end())
        return decodeHeaderWords(found->second);
    if (const auto found = part.parameters.find("name"); found != part.parameters.end())
        return decodeHeaderWords(found->second);
    return {};
}

}

bool isAttachment(const IMAPBodyPart& part) {
    if (part.disposition == "attachment") return true;
    if (part.type == "multipart") return false;
    // A picture that the text refers to belongs to the text.
    if (part.contentID && part.type == "image") return false;
    if (part.type == "text") return !nameOf(part).empty();
    return true;
}

std::vector<AttachmentInfo> attachments(const IMAPBodyStructure& structure) {
    std::vector<AttachmentInfo> found;
    // The nodes stand in document order.
    for (const auto& node : structure.nodes()) {
        const auto* part = std::get_if<IMAPBodyPart>(&node.content);
        if (part == nullptr || !isAttachment(*part)) continue;
        auto name = nameOf(*part);
        if (name.empty()) name = trNoted("Name for an attachment that has none", "attachment");
        found.push_back(
            {std::move(name), part->type + "/" + part->subtype, part->size, part->section, part->contentID});
    }
    return found;
}

}
