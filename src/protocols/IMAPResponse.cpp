#include "protocols/IMAPResponse.h"

#include "base/Text.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace velmo {

namespace {

using Kind = IMAPTree::Kind;
using Status = IMAPResponse::Status;

constexpr std::array<std::pair<std::string_view, Status>, 5> statusWords{{
    {"OK", Status::ok},
    {"NO", Status::no},
    {"BAD", Status::bad},
    {"BYE", Status::bye},
    {"PREAUTH", Status::preauth},
}};

std::optional<Status> statusFrom(std::string_view word) {
    for (const auto& [name, status] : statusWords) {
        if (text::equalsIgnoringCase(word, name)) return status;
    }
    return std::nullopt;
}

/// A good start for the items of a message.
constexpr std::size_t usualNodes = 256;

/// Nobody nests mail deeper, and each open list has to be remembered.
constexpr std::size_t deepestList = 10'000;

std::string readableText(BytesView bytes) {
    return std::string(text::trimmedUnicode(text::repairedUTF8(bytes)));
}

/// A position in the bytes of a response.
class Cursor {
  public:
    explicit Cursor(BytesView bytes, std::size_t position = 0) : bytes_(bytes), position_(position) {}

    std::size_t position() const { return position_; }
    bool atEnd() const { return position_ == bytes_.size(); }
    char peek() const { return bytes_[position_]; }
    bool at(char c) const { return !atEnd() && peek() == c; }
    bool atLineEnd() const { return atEnd() || peek() == '\r' || peek() == '\n'; }
    void advance(std::size_t count = 1) { position_ += count; }
    BytesView rest() const { return bytes_.substr(position_); }

    void skip(char c) {
        if (at(c)) ++position_;
    }
    void skipSpaces() {
        while (at(' ')) ++position_;
    }

    /// Empty when there is none. Inside square brackets nothing but the end of the input ends an atom.
    BytesView atomIfAny() {
        const std::size_t start = position_;
        std::size_t depth = 0;
        for (; position_ < bytes_.size(); ++position_) {
            const char c = bytes_[position_];
            if (c == '[') {
                ++depth;
            } else if (c == ']') {
                if (depth > 0) --depth;
            } else if (depth == 0 && (c == ' ' || c == '\r' || c == '\n' || c == '(' || c == ')')) {
                break;
            }
        }
        return bytes_.substr(start, position_ - start);
    }

    BytesView atom() {
        const BytesView result = atomIfAny();
        if (result.empty()) throw IMAPParseError::unexpected("empty atom");
        return result;
    }

    /// What stands in square brackets, when they come next; nested ones belong to it.
    std::optional<std::string> code() {
        if (!at('[')) return std::nullopt;
        const std::size_t start = position_ + 1;
        std::size_t depth = 0;
        for (; position_ < bytes_.size(); ++position_) {
            if (peek() == '[') ++depth;
            if (peek() == ']' && --depth == 0) break;
        }
        std::string result = text::repairedUTF8(bytes_.substr(start, position_ - start));
        skip(']');
        return result;
    }

  private:
    BytesView bytes_;
    std::size_t position_;
};

/// Reads values into the flat nodes of a tree. Open lists are kept on a stack of its own.
class ValueReader {
  public:
    ValueReader(IMAPTree& tree, std::size_t position) : tree_(tree), cursor_(tree.bytes, position) {}

    void readAll() {
        for (;;) {
            cursor_.skipSpaces();
            if (open_.empty() && cursor_.atLineEnd()) return;
            readNext();
        }
    }

  private:
    void readNext() {
        if (cursor_.atEnd()) throw IMAPParseError::unexpectedEnd();
        const char c = cursor_.peek();
        if (c == ')' && !open_.empty()) {
            closeList();
        } else if (c == '(') {
            if (open_.size() == deepestList) throw IMAPParseError::unexpected("lists in lists");
            open_.push_back(tree_.nodes.size());
            append(Kind::list, 0, 0);
            cursor_.advance();
        } else if (c == '"') {
            readQuoted();
        } else if (c == '{' || cursor_.rest().starts_with("~{")) {
            readLiteral();
        } else {
            readAtom();
        }
    }

    void append(Kind kind, std::size_t offset, std::size_t length) {
        IMAPTree::Node node;
        node.kind = kind;
        node.offset = static_cast<std::uint32_t>(offset);
        node.length = static_cast<std::uint32_t>(length) & IMAPTree::longest;
        tree_.nodes.push_back(node);
    }

    void closeList() {
        IMAPTree::Node& list = tree_.nodes[open_.back()];
        list.length = static_cast<std::uint32_t>(tree_.nodes.size() - open_.back() - 1) & IMAPTree::longest;
        open_.pop_back();
        cursor_.advance();
    }

    void readAtom() {
        const std::size_t start = cursor_.position();
        const BytesView atom = cursor_.atom();
        append(text::equalsIgnoringCase(atom, "NIL") ? Kind::nil : Kind::atom, start, atom.size());
    }

    void readQuoted() {
        cursor_.advance();
        const std::size_t start = cursor_.position();
        const std::size_t end = tree_.bytes.find('"', start);
        if (end == Bytes::npos) throw IMAPParseError::unexpectedEnd();
        if (BytesView(tree_.bytes).substr(start, end - start).find('\\') != BytesView::npos) return readEscaped();
        append(Kind::string, start, end - start);
        cursor_.advance(end + 1 - start);
    }

    void readEscaped() {
        const std::size_t start = tree_.unescaped.size();
        for (;; cursor_.advance()) {
            if (cursor_.at('"')) break;
            cursor_.skip('\\');
            if (cursor_.atEnd()) throw IMAPParseError::unexpectedEnd();
            tree_.unescaped += cursor_.peek();
        }
        cursor_.advance();
        append(Kind::unescapedString, start, tree_.unescaped.size() - start);
    }

    void readLiteral() {
        cursor_.skip('~');
        cursor_.advance();
        const BytesView rest = cursor_.rest();
        const std::size_t end = rest.find('}');
        if (end == BytesView::npos) throw IMAPParseError::unexpectedEnd();
        std::string digits(rest.substr(0, end));
        std::erase(digits, '+');
        const auto length = text::parseUnsigned64(digits);
        if (!length) throw IMAPParseError::unexpected("literal length");
        cursor_.advance(end + 1);
        cursor_.skip('\r');
        cursor_.skip('\n');
        if (cursor_.rest().size() < *length) throw IMAPParseError::unexpectedEnd();
        append(Kind::string, cursor_.position(), *length);
        cursor_.advance(*length);
    }

    IMAPTree& tree_;
    Cursor cursor_;
    std::vector<std::size_t> open_;
};

}

IMAPValues IMAPResponse::values() const {
    return tree_ ? IMAPValues(*tree_, 0, tree_->nodes.size()) : IMAPValues{};
}

IMAPResponse parseResponse(Bytes bytes) {
    if (bytes.size() > IMAPTree::longest) throw IMAPParseError::unexpected("a response without end");
    IMAPResponse response;
    Cursor cursor(bytes);
    const auto readStatus = [&](IMAPResponse::Kind kind, Status status) {
        response.kind_ = kind;
        response.status_ = status;
        cursor.skipSpaces();
        response.code_ = cursor.code();
        response.text_ = readableText(cursor.rest());
    };
    if (cursor.at('+')) {
        cursor.advance();
        response.kind_ = IMAPResponse::Kind::continuation;
        response.text_ = readableText(cursor.rest());
        return response;
    }
    const BytesView tag = cursor.atom();
    cursor.skipSpaces();
    const std::size_t start = cursor.position();
    if (tag != "*") {
        response.tag_ = text::repairedUTF8(tag);
        const BytesView word = cursor.atom();
        const auto status = statusFrom(word);
        if (!status) throw IMAPParseError::unexpected("status " + text::raised(text::repairedUTF8(word)));
        readStatus(IMAPResponse::Kind::tagged, *status);
        return response;
    }
    if (const auto status = statusFrom(cursor.atomIfAny())) {
        readStatus(IMAPResponse::Kind::untaggedStatus, *status);
        return response;
    }
    auto tree = std::make_shared<IMAPTree>();
    tree->bytes = std::move(bytes);
    tree->nodes.reserve(std::min(usualNodes, tree->bytes.size() / 8));
    ValueReader(*tree, start).readAll();
    response.kind_ = IMAPResponse::Kind::untagged;
    response.tree_ = std::move(tree);
    return response;
}

std::optional<std::int64_t> literalLength(BytesView line) {
    if (!line.ends_with('}')) return std::nullopt;
    line.remove_suffix(1);
    while (line.ends_with('+')) line.remove_suffix(1);
    const std::size_t brace = line.find_last_not_of("0123456789");
    if (brace == BytesView::npos || line[brace] != '{') return std::nullopt;
    const BytesView digits = line.substr(brace + 1);
    if (digits.empty()) return std::nullopt;
    return text::parseSigned64(digits);
}

}
