#pragma once

#include "base/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// The values of one response, flat: a list is followed by all that is below it. Atoms and strings are stretches of
/// the response's own bytes. So nothing about a value needs recursion, however deep a server nests.
struct IMAPTree {
    enum class Kind : std::uint8_t { atom, string, unescapedString, list, nil };

    /// The longest response that is read.
    static constexpr std::size_t longest = (std::size_t{1} << 29) - 1;

    /// Eight bytes, since a list needs but two of a response.
    struct Node {
        /// Into `bytes`; for an unescaped string into `unescaped`; unused for a list.
        std::uint32_t offset = 0;
        /// Of the bytes; of a list the number of the nodes below it, which follow it.
        std::uint32_t length : 29 = 0;
        Kind kind : 3 = Kind::nil;

        std::size_t descendants() const { return kind == Kind::list ? length : 0; }
    };

    Bytes bytes;
    /// Quoted strings that held a backslash, without it.
    Bytes unescaped;
    std::vector<Node> nodes;
};

class IMAPValue;

/// A sequence of values, in the order sent. A view into an IMAPResponse, valid as long as that lives.
class IMAPValues {
  public:
    class Iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = IMAPValue;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = IMAPValue;

        Iterator() = default;
        Iterator(const IMAPTree* tree, std::size_t index) : tree_(tree), index_(index) {}

        IMAPValue operator*() const;
        Iterator& operator++() {
            index_ += tree_->nodes[index_].descendants() + 1;
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const Iterator&, const Iterator&) = default;

      private:
        const IMAPTree* tree_ = nullptr;
        std::size_t index_ = 0;
    };

    IMAPValues() = default;
    /// The siblings among the nodes from `first` up to `last`.
    IMAPValues(const IMAPTree& tree, std::size_t first, std::size_t last) : tree_(&tree), first_(first), last_(last) {}

    Iterator begin() const { return {tree_, first_}; }
    Iterator end() const { return {tree_, last_}; }
    bool empty() const { return first_ == last_; }

    /// Up to `limit` values, for access by position.
    std::vector<IMAPValue> taken(std::size_t limit) const;

  private:
    const IMAPTree* tree_ = nullptr;
    std::size_t first_ = 0;
    std::size_t last_ = 0;
};

/// One value of a response (RFC 3501 §4). A view into an IMAPResponse, valid as long as that lives.
class IMAPValue {
  public:
    enum class Kind {
        atom,   ///< a bare token; numbers are atoms
        string, ///< quoted or literal, undecoded
        list,   ///< in parentheses
        nil,    ///< the word NIL in any case
    };

    IMAPValue(const IMAPTree& tree, std::size_t index) : tree_(&tree), index_(index) {}

    Kind kind() const;
    bool isAtom() const { return kind() == Kind::atom; }
    bool isList() const { return kind() == Kind::list; }

    /// The bytes of an atom or a string; empty for the others.
    BytesView bytes() const;

    /// The values in a list; none for the others.
    IMAPValues children() const;

    /// True for an atom that equals `word` in any case.
    bool isAtom(std::string_view word) const;

    /// Equal kinds, bytes and shapes.
    friend bool operator==(const IMAPValue& a, const IMAPValue& b);

  private:
    const IMAPTree::Node& node() const { return tree_->nodes[index_]; }

    const IMAPTree* tree_;
    std::size_t index_;
};

inline IMAPValue IMAPValues::Iterator::operator*() const {
    return {*tree_, index_};
}

/// The text of an atom or a string, ill-formed UTF-8 repaired; absent for NIL and lists.
std::optional<std::string> imapText(IMAPValue value);

/// The decimal number that an atom or a string spells; absent otherwise.
std::optional<std::int64_t> imapInteger(IMAPValue value);

}
