#pragma once

#include "base/Bytes.h"

#include <optional>
#include <string>
#include <string_view>

namespace velmo {

/// One way to write text as bytes, known by its names in the IANA registry and by those that mail programs use.
///
/// A label means what senders of mail mean by it, which is often a superset of what the registry says: "iso-8859-1" is
/// read as windows-1252, "gb2312" as gb18030, "shift_jis" as code page 932. A cheap value; may be used on any thread.
class Charset {
  public:
    /// The charset of a label, compared without regard to case; absent when no such charset is known.
    static std::optional<Charset> named(std::string_view label);

    static Charset utf8();
    /// Windows code page 1252 without its five unassigned bytes, so that decoding can fail.
    static Charset windows1252();

    /// The bytes as UTF-8 text; absent when they hold a sequence that the charset does not define.
    std::optional<std::string> decoded(BytesView bytes) const;

    friend bool operator==(const Charset&, const Charset&) = default;

  private:
    enum class Kind : unsigned char {
        ascii,
        utf8,
        latin,          // windows-1252, its unassigned bytes as C1 controls
        strictLatin,    // windows-1252, its unassigned bytes refused
        latin10,        // iso-8859-16, which the converter library does not know
        japaneseShifts, // iso-2022-jp, read by way of code page 932
        library,
    };
    Charset(Kind kind, const char* converter) : converter_(converter), kind_(kind) {}

    const char* converter_; // canonical name in the converter library; it lives as long as the process
    Kind kind_;
};

}
