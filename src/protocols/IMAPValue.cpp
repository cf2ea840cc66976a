#include "protocols/IMAPValue.h"

#include "base/Text.h"

#include <algorithm>

namespace velmo {

namespace {

BytesView bytesOf(const IMAPTree& tree, const IMAPTree::Node& node) {
    const Bytes& source = node.kind == IMAPTree::Kind::unescapedString ? tree.unescaped : tree.bytes;
    return BytesView(source).substr(node.offset, node.length);
}

IMAPValue::Kind publicKind(IMAPTree::Kind kind) {
    switch (kind) {
    case IMAPTree::Kind::atom: return IMAPValue::Kind::atom;
    case IMAPTree::Kind::string:
    case IMAPTree::Kind::unescapedString: return IMAPValue::Kind::string;
    case IMAPTree::Kind::list: return IMAPValue::Kind::list;
    case IMAPTree::Kind::nil: break;
    }
    return IMAPValue::Kind::nil;
}

bool hasBytes(IMAPTree::Kind kind) {
    return kind != IMAPTree::Kind::list && kind != IMAPTree::Kind::nil;
}

}

std::vector<IMAPValue> IMAPValues::taken(std::size_t limit) const {
    constexpr std::size_t usual = 12;
    std::vector<IMAPValue> result;
    result.reserve(std::min(limit, usual));
    for (Iterator at = begin(); at != end() && result.size() < limit; ++at) result.push_back(*at);
    return result;
}

IMAPValue::Kind IMAPValue::kind() const {
    return publicKind(node().kind);
}

BytesView IMAPValue::bytes() const {
    return hasBytes(node().kind) ? bytesOf(*tree_, node()) : BytesView{};
}

IMAPValues IMAPValue::children() const {
    return {*tree_, index_ + 1, index_ + 1 + node().descendants()};
}

bool IMAPValue::isAtom(std::string_view word) const {
    return node().kind == IMAPTree::Kind::atom && text::equalsIgnoringCase(bytes(), word);
}

bool operator==(const IMAPValue& a, const IMAPValue& b) {
    const std::size_t count = a.node().descendants();
    if (b.node().descendants() != count) return false;
    for (std::size_t i = 0; i <= count; ++i) {
        const IMAPTree::Node& left = a.tree_->nodes[a.index_ + i];
        const IMAPTree::Node& right = b.tree_->nodes[b.index_ + i];
        if (publicKind(left.kind) != publicKind(right.kind) || left.descendants() != right.descendants()) return false;
        if (hasBytes(left.kind) && bytesOf(*a.tree_, left) != bytesOf(*b.tree_, right)) return false;
    }
    return true;
}

std::optional<std::string> imapText(IMAPValue value) {
    if (value.kind() == IMAPValue::Kind::list || value.kind() == IMAPValue::Kind::nil) return std::nullopt;
    return text::repairedUTF8(value.bytes());
}

std::optional<std::int64_t> imapInteger(IMAPValue value) {
    return text::parseSigned64(value.bytes());
}

}
