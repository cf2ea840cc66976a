#include "formats/Addresses.h"

#include "base/Text.h"
#include "formats/HeaderWords.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace velmo {

namespace {

constexpr bool isControl(char c) {
    return (c >= 0 && c < ' ') || c == '\x7f';
}

constexpr bool endsAtom(char c) {
    return text::isSpace(c) || std::string_view("()<>,;:\"").find(c) != std::string_view::npos;
}

/// A run of characters with no white space between them.
struct Word {
    std::string shown; ///< without quotes, as part of a name
    std::string raw;   ///< as written, as part of an address
    bool holdsAt = false;
    bool isPlain = true; ///< holds neither quoted text nor an encoded word

    void extend(const Word& next) {
        shown += next.shown;
        raw += next.raw;
        holdsAt = holdsAt || next.holdsAt;
        isPlain = isPlain && next.isPlain;
    }
};

/// What has been read since the last separator.
struct Item {
    std::vector<Word> words;
    std::optional<std::size_t> wordsBeforeAngle; ///< set once an address in angle brackets was read
    std::string angle;
    std::string comment; ///< the first one that says something
};

std::optional<std::string> cleanedName(std::string_view raw) {
    const std::string decoded = decodeHeaderWords(raw);
    std::string name;
    name.reserve(decoded.size());
    for (const char c : decoded) {
        if (!isControl(c) && c != ' ') {
            name += c;
        } else if (!name.empty() && name.back() != ' ') {
            name += ' ';
        }
    }
    const std::string_view trimmed = text::trimmedUnicode(name);
    if (trimmed.empty()) return std::nullopt;
    return std::string(trimmed);
}

std::string phrase(const std::vector<Word>& words, std::size_t from, std::size_t to) {
    std::string joined;
    for (std::size_t i = from; i < to; ++i) {
        if (i > from) joined += ' ';
        joined += words[i].shown;
    }
    return joined;
}

/// Joins "john @ example.org" to one word (RFC 5322 §4.4 allows white space there).
std::vector<Word> joinedAroundAt(std::vector<Word> words) {
    std::vector<Word> joined;
    for (Word& word : words) {
        const bool continues = word.holdsAt && word.raw.front() == '@' && !joined.empty() && !joined.back().holdsAt;
        const bool isWantedBefore = !joined.empty() && joined.back().holdsAt && joined.back().raw.back() == '@';
        if (!continues && !isWantedBefore) {
            joined.push_back(std::move(word));
            continue;
        }
        joined.back().extend(word);
    }
    return joined;
}

bool isUsable(std::string_view email) {
    return !email.empty() && email.front() != '@' && email.back() != '@' && std::ranges::none_of(email, isControl);
}

class AddressListReader {
  public:
    explicit AddressListReader(std::string_view text) : text_(text) {}

    std::vector<MailAddress> read() {
        while (at_ < text_.size()) readNext();
        finishItem();
        return std::move(addresses_);
    }

  private:
    void readNext() {
        const char c = text_[at_];
        switch (c) {
        case '(': readComment(); break;
        case '"': readQuoted(); break;
        case '<': readAngle(); break;
        case ':': readColon(); break;
        case ',':
        case ';':
            ++at_;
            finishItem();
            break;
        default:
            if (isControl(c) || text::isSpace(c) || c == '>' || c == ')') {
                ++at_;
                gap_ = true;
            } else {
                readAtom();
            }
        }
    }

    // --- tokens: each takes at least one character ---

    /// The text of the comment that starts here; absent, with the position unchanged, when it never ends.
    std::optional<std::string> takeComment() {
        if (commentsNest_) {
            if (auto content = scannedComment()) return content;
            // Some parenthesis stands alone. From here on a comment ends before the next parenthesis, so that a flood
            // of them is read twice at most.
            commentsNest_ = false;
        }
        return scannedComment();
    }

    std::optional<std::string> scannedComment() {
        std::string content;
        std::size_t depth = 1;
        for (std::size_t i = at_ + 1; i < text_.size(); ++i) {
            char c = text_[i];
            if (c == '(' && !commentsNest_) return std::nullopt;
            if (c == '(') ++depth;
            if (c == ')' && --depth == 0) {
                at_ = i + 1;
                return content;
            }
            if (c == '\\' && commentsNest_ && i + 1 < text_.size()) c = text_[++i];
            content += c;
        }
        return std::nullopt;
    }

    void readComment() {
        gap_ = true;
        const auto content = takeComment();
        if (!content) {
            ++at_;
        } else if (item_.comment.empty()) {
            item_.comment = *content;
        }
    }

    /// The quoted string that starts here (RFC 5322 §3.2.4); absent, with the position behind the quote, when it never
    /// ends.
    std::optional<Word> takeQuoted() {
        const std::size_t start = at_++;
        if (!quotesEnd_) return std::nullopt;
        Word word;
        word.isPlain = false;
        for (std::size_t i = at_; i < text_.size(); ++i) {
            char c = text_[i];
            if (c == '"') {
                at_ = i + 1;
                word.raw = text_.substr(start, at_ - start);
                return word;
            }
            if (c == '\\' && i + 1 < text_.size()) c = text_[++i];
            word.shown += c;
        }
        quotesEnd_ = false;
        return std::nullopt;
    }

    void readQuoted() {
        if (auto word = takeQuoted()) append(std::move(*word));
    }

    void readAtom() {
        Word word;
        const std::size_t start = at_;
        if (const std::size_t length = encodedWordLength()) {
            at_ += length;
            word.isPlain = false;
        } else {
            ++at_;
            while (at_ < text_.size() && !endsAtom(text_[at_])) {
                const bool mayBeLiteral = text_[at_] == '[' && text_[at_ - 1] == '@';
                at_ += mayBeLiteral ? std::max<std::size_t>(domainLiteralLength(), 1) : 1;
            }
            word.holdsAt = text_.substr(start, at_ - start).find('@') != std::string_view::npos;
        }
        word.raw = text_.substr(start, at_ - start);
        word.shown = word.raw;
        append(std::move(word));
    }

    /// Of the encoded word (RFC 2047 §2) that starts here, which may hold commas and brackets that it should not; 0
    /// when there is none.
    std::size_t encodedWordLength() {
        if (!text_.substr(at_).starts_with("=?") || at_ < noEncodedWordBefore_) return 0;
        std::size_t i = at_ + 2;
        while (i < text_.size() && !endsAtom(text_[i]) && text_[i] != '?') ++i;
        if (i + 2 >= text_.size() || text_[i] != '?' || text_[i + 2] != '?') return 0;
        for (i += 3; i + 1 < text_.size() && !text::isSpace(text_[i]); ++i) {
            if (text_[i] == '?' && text_[i + 1] == '=') return i + 2 - at_;
        }
        noEncodedWordBefore_ = i;
        return 0;
    }

    /// Of "[IPv6:2001:db8::1]" that starts here; 0 when there is none.
    std::size_t domainLiteralLength() const {
        for (std::size_t i = at_ + 1; i < text_.size(); ++i) {
            if (text_[i] == ']') return i + 1 - at_;
            if (text_[i] != ':' && (endsAtom(text_[i]) || text_[i] == '[')) return 0;
        }
        return 0;
    }

    void append(Word word) {
        if (std::exchange(gap_, false) || item_.words.empty()) {
            item_.words.push_back(std::move(word));
            return;
        }
        item_.words.back().extend(word);
    }

    // --- structure ---

    void readAngle() {
        while (at_ < text_.size() && (text_[at_] == '<' || text::isSpace(text_[at_]))) ++at_;
        std::string email = takeAngleAddress();
        gap_ = true;
        if (!isUsable(email)) return;
        if (item_.wordsBeforeAngle) beginItemWithoutSeparator();
        item_.angle = std::move(email);
        item_.wordsBeforeAngle = item_.words.size();
    }

    /// Up to the closing bracket, or to where it must have been forgotten.
    std::string takeAngleAddress() {
        std::string email;
        bool isRoute = at_ < text_.size() && text_[at_] == '@';
        bool holdsAt = false;
        while (at_ < text_.size()) {
            const char c = text_[at_];
            if (c == '"') {
                if (const auto quoted = takeQuoted()) email += quoted->raw;
            } else if (c == '(') {
                if (!takeComment()) ++at_;
            } else if (text::isSpace(c)) {
                if (!skipSpaceInAngle(email, holdsAt)) break;
            } else if (c == '>') {
                ++at_;
                break;
            } else if (c == '<' || (!isRoute && (c == ',' || c == ';'))) {
                break;
            } else {
                ++at_;
                if (c == ':' && std::exchange(isRoute, false)) {
                    email.clear();
                    holdsAt = false;
                } else {
                    email += c;
                    holdsAt = holdsAt || c == '@';
                }
            }
        }
        return std::string(text::trimmed(email));
    }

    /// False when the address ends at the white space. A blank inside a local part stays: that is no address, and
    /// without the blank it would be somebody else's.
    bool skipSpaceInAngle(std::string& email, bool holdsAt) {
        while (at_ < text_.size() && text::isSpace(text_[at_])) ++at_;
        if (at_ >= text_.size() || email.empty()) return true;
        const char next = text_[at_];
        if (email.back() == '@' || email.back() == '.' || email.back() == ',') return true;
        if (next == '@' || next == '.' || next == ',' || next == ':' || next == '>' || next == '(') return true;
        if (holdsAt) return false;
        email += ' ';
        return true;
    }

    /// "Anna <anna@example.org> Ben <ben@example.org>": what stands behind the first address belongs to the second.
    void beginItemWithoutSeparator() {
        Item next;
        const auto words = item_.words.begin() + static_cast<std::ptrdiff_t>(*item_.wordsBeforeAngle);
        next.words.assign(std::make_move_iterator(words), std::make_move_iterator(item_.words.end()));
        item_.words.erase(words, item_.words.end());
        finishItem();
        item_ = std::move(next);
        gap_ = true;
    }

    /// Ends the name of a group (RFC 5322 §3.4).
    void readColon() {
        ++at_;
        bool holdsAddress = item_.wordsBeforeAngle.has_value();
        for (const Word& word : item_.words) holdsAddress = holdsAddress || word.holdsAt;
        if (holdsAddress) {
            finishItem();
        } else {
            item_ = Item();
            gap_ = true;
        }
    }

    void finishItem() {
        Item item = std::exchange(item_, Item());
        gap_ = true;
        if (item.wordsBeforeAngle) {
            finishAngle(std::move(item));
        } else {
            finishBare(std::move(item));
        }
    }

    void finishAngle(Item item) {
        const std::size_t before = *item.wordsBeforeAngle;
        auto name = cleanedName(phrase(item.words, 0, before));
        if (!name) name = cleanedName(phrase(item.words, before, item.words.size()));
        if (!name) name = cleanedName(item.comment);
        addresses_.push_back({std::move(name), std::move(item.angle)});
    }

    void finishBare(Item item) {
        std::vector<Word> names;
        std::vector<std::string> emails;
        const std::vector<Word> words = joinedAroundAt(std::move(item.words));
        for (const Word& word : words) {
            if (!word.holdsAt) {
                names.push_back(word);
            } else if (isUsable(word.raw)) {
                emails.push_back(word.raw);
            }
        }
        if (emails.empty() && words.size() == 1) {
            if (auto email = loneWord(words.front())) {
                emails.push_back(std::move(*email));
                names.clear();
            }
        }
        if (emails.size() == 1) {
            auto name = cleanedName(phrase(names, 0, names.size()));
            if (!name) name = cleanedName(item.comment);
            addresses_.push_back({std::move(name), std::move(emails.front())});
            return;
        }
        for (std::string& email : emails) addresses_.push_back({std::nullopt, std::move(email)});
    }

    /// A local name such as "root", or an address that someone put in quotes.
    static std::optional<std::string> loneWord(const Word& word) {
        const std::string_view first = std::string_view(word.shown).substr(0, 1);
        if (first.empty() || (!text::isAlpha(first[0]) && !text::isDigit(first[0]))) return std::nullopt;
        if (!isUsable(word.shown)) return std::nullopt;
        if (word.isPlain) return word.raw;
        if (word.raw.front() != '"' || word.shown.find('@') == std::string::npos) return std::nullopt;
        for (const char c : word.shown) {
            if (endsAtom(c)) return std::nullopt;
        }
        return word.shown;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    bool gap_ = true; ///< white space or a separator stands before the position
    // What has turned out to be missing in the rest of the text is not looked for again.
    bool quotesEnd_ = true;
    bool commentsNest_ = true;
    std::size_t noEncodedWordBefore_ = 0;
    Item item_;
    std::vector<MailAddress> addresses_;
};

}

std::vector<MailAddress> parseAddressList(std::string_view headerValue) {
    return AddressListReader(headerValue).read();
}

}
