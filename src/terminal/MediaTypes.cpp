#include "terminal/MediaTypes.h"

#include "base/Text.h"

#include <array>
#include <string>

namespace velmo {

std::string_view mediaTypeOf(std::string_view name) {
    struct Type {
        std::string_view ending, type;
    };
    constexpr std::array types{Type{"txt", "text/plain"},
                               Type{"csv", "text/csv"},
                               Type{"html", "text/html"},
                               Type{"ics", "text/calendar"},
                               Type{"md", "text/markdown"},
                               Type{"pdf", "application/pdf"},
                               Type{"zip", "application/zip"},
                               Type{"gz", "application/gzip"},
                               Type{"json", "application/json"},
                               Type{"xml", "application/xml"},
                               Type{"png", "image/png"},
                               Type{"jpg", "image/jpeg"},
                               Type{"jpeg", "image/jpeg"},
                               Type{"gif", "image/gif"},
                               Type{"webp", "image/webp"},
                               Type{"svg", "image/svg+xml"},
                               Type{"mp3", "audio/mpeg"},
                               Type{"mp4", "video/mp4"},
                               Type{"eml", "message/rfc822"},
                               Type{"odt", "application/vnd.oasis.opendocument.text"},
                               Type{"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
                               Type{"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"}};
    const auto dot = name.rfind('.');
    const std::string ending = dot == std::string_view::npos ? std::string() : text::lowered(name.substr(dot + 1));
    for (const auto& one : types)
        if (one.ending == ending) return one.type;
    return "application/octet-stream";
}

}
