#pragma once

#include "formats/ParsedMessage.h"

#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// Puts the texts and attachments of a message together as its parts are read, in the order of the message.
///
/// Alternatives and embedded messages are scopes, which are opened and closed around what they hold. What a scope does
/// with its texts is known when it opens, so that each text is copied to its place once, however deep it is nested.
class MessageAssembler {
  public:
    explicit MessageAssembler(ParsedMessage& message) : message_(message) {}

    /// Until the close: a text counts only where the scope around has none of its kind yet.
    void openAlternative();
    /// Until the close: texts are set off from those of the scope around.
    void openEmbedded();
    void close();

    void addPlainText(std::string text);
    void addHTML(std::string text);
    void addAttachment(MIMEAttachment attachment);

  private:
    /// One kind of text in one scope.
    struct Texts {
        bool present = false;
        bool discarded = false;
        std::string_view separator; // goes before the first text
    };
    struct Scope {
        Texts plain, html;
    };

    static void add(std::optional<std::string>& target, Texts& texts, std::string text);

    ParsedMessage& message_;
    std::vector<Scope> scopes_{Scope{}};
};

}
