#pragma once

#include "formats/OutgoingMessage.h"

#include <string>
#include <vector>

namespace velmo {

/// HTML and the pictures that it refers to by "cid:".
struct HTMLWithPictures {
    std::string html;
    std::vector<InlinePicture> pictures;
};

}
