#pragma once

#include "protocols/IMAPBodyStructure.h"
#include "records/AttachmentInfo.h"

#include <vector>

namespace velmo {

/// True for a part that a person would call an attachment, rather than a piece of the text.
bool isAttachment(const IMAPBodyPart& part);

/// The attachments in document order. One without a name is called "attachment" in the person's language.
std::vector<AttachmentInfo> attachments(const IMAPBodyStructure& structure);

}
