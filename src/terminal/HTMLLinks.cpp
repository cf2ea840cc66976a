#include "terminal/HTMLLinks.h"

#include "base/Text.h"
#include "formats/Entities.h"
#include "formats/HTMLText.h"

#include <algorithm>
#include <map>
#include <optional>

namespace velmo {

namespace {

constexpr auto npos = std::string_view::npos;
constexpr std::string_view blanks = " \t\r\n\f";

struct Tag {
    std::size_t length = 0;               ///< to behind its ">", or to the end of the text
    std::optional<std::string_view> href; ///< the first one counts
};

/// Reads a tag from behind its name on, as browsers do: a ">" in quotes does not end it.
class TagReader {
  public:
    TagReader(std::string_view text, std::size_t start) : text_(text), at_(start) {}

    Tag read() {
        Tag tag;
        for (;;) {
            at_ = std::min(text_.find_first_not_of(" \t\r\n\f/", at_), text_.size());
            if (at_ == text_.size() || text_[at_] == '>') break;
            const auto name = take(" \t\r\n\f/=>");
            const auto value = takeValue();
            if (!tag.href && value && text::equalsIgnoringCase(name, "href")) tag.href = value;
        }
        tag.length = std::min(at_ + 1, text_.size());
        return tag;
    }

  private:
    /// Up to one of these, and one character at least.
    std::string_view take(std::string_view ends) {
        const auto start = at_;
        at_ = std::min(text_.find_first_of(ends, start + 1), text_.size());
        return text_.substr(start, at_ - start);
    }

    std::optional<std::string_view> takeValue() {
        const auto sign = text_.find_first_not_of(blanks, at_);
        if (sign == npos || text_[sign] != '=') return std::nullopt;
        at_ = std::min(text_.find_first_not_of(blanks, sign + 1), text_.size());
        if (at_ == text_.size() || text_[at_] == '>') return std::nullopt;
        if (text_[at_] != '"' && text_[at_] != '\'') return take(" \t\r\n\f>");
        const auto start = at_ + 1;
        const auto close = std::min(text_.find(text_[at_], start), text_.size());
        at_ = std::min(close + 1, text_.size());
        return text_.substr(start, close - start);
    }

    std::string_view text_;
    std::size_t at_;
};

/// A link may be written without its scheme, and a browser adds the last slash.
bool says(std::string_view words, std::string_view url) {
    const auto bare = [](std::string_view text) {
        for (const std::string_view scheme : {"https://", "http://", "mailto:"})
            if (text::startsWithIgnoringCase(text, scheme)) text.remove_prefix(scheme.size());
        return text.ends_with('/') ? text.substr(0, text.size() - 1) : text;
    };
    return bare(words) == bare(url);
}

class Numbering {
  public:
    explicit Numbering(std::string_view html) : rest_(html) {}

    NumberedLinks run() {
        while (!rest_.empty()) {
            const auto start = std::min(rest_.find('<'), rest_.size());
            copy(start);
            if (rest_.starts_with("<!--"))
                copy(std::min(rest_.find("-->"), rest_.size()));
            else if (!rest_.empty())
                takeTag();
        }
        end();
        return {std::move(out_), std::move(urls_)};
    }

  private:
    void copy(std::size_t count) {
        out_ += rest_.substr(0, count);
        rest_.remove_prefix(count);
    }

    void takeTag() {
        const bool isLink = rest_.size() > 2 && (rest_[1] == 'a' || rest_[1] == 'A') && blanks.find(rest_[2]) != npos;
        if (isLink || text::startsWithIgnoringCase(rest_, "</a")) end();
        if (!isLink) return copy(1);
        const Tag tag = TagReader(rest_, 2).read();
        copy(tag.length);
        if (tag.href) begin(*tag.href);
    }

    void begin(std::string_view target) {
        std::string url(text::trimmed(decodeEntities(target)));
        if (url.empty() || url.starts_with('#')) return;
        open_ = std::move(url);
        openedAt_ = out_.size();
    }

    void end() {
        if (!open_) return;
        const std::string url = *std::move(open_);
        open_.reset();
        if (says(htmlToPlainText(std::string_view(out_).substr(openedAt_)), url)) return;
        const auto [entry, isNew] = numbers_.try_emplace(url, urls_.size() + 1);
        if (isNew) urls_.push_back(url);
        out_ += " [" + std::to_string(entry->second) + "]";
    }

    std::string_view rest_;
    std::string out_;
    std::vector<std::string> urls_;
    std::map<std::string, std::size_t> numbers_;
    std::optional<std::string> open_;
    std::size_t openedAt_ = 0;
};

}

NumberedLinks numberedLinks(std::string_view html) {
    return Numbering(html).run();
}

}
