#include "formats/MessageAssembler.h"

#include <utility>

namespace velmo {

void MessageAssembler::openAlternative() {
    Scope scope = scopes_.back();
    for (Texts* texts : {&scope.plain, &scope.html}) {
        texts->discarded = texts->discarded || texts->present;
        texts->present = false;
    }
    scopes_.push_back(scope);
}

void MessageAssembler::openEmbedded() {
    Scope scope = scopes_.back();
    if (scope.plain.present) scope.plain.separator = "\n\n";
    if (scope.html.present) scope.html.separator = "<hr>";
    scope.plain.present = scope.html.present = false;
    scopes_.push_back(scope);
}

void MessageAssembler::close() {
    const Scope closed = scopes_.back();
    scopes_.pop_back();
    scopes_.back().plain.present |= closed.plain.present;
    scopes_.back().html.present |= closed.html.present;
}

void MessageAssembler::add(std::optional<std::string>& target, Texts& texts, std::string text) {
    const auto separator = texts.present ? "\n" : texts.separator;
    texts.present = true;
    if (texts.discarded) return;
    if (!target) {
        target = std::move(text);
        return;
    }
    *target += separator;
    *target += text;
}

void MessageAssembler::addPlainText(std::string text) {
    add(message_.plainText, scopes_.back().plain, std::move(text));
}

void MessageAssembler::addHTML(std::string text) {
    add(message_.html, scopes_.back().html, std::move(text));
}

void MessageAssembler::addAttachment(MIMEAttachment attachment) {
    message_.attachments.push_back(std::move(attachment));
}

}
