#include "compose/BodyLayout.h"

#include "base/Text.h"
#include "compose/Quotes.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace velmo {

namespace {

using Lines = std::span<const std::string_view>;

constexpr std::string_view signatureMark = "-- ";
constexpr std::string_view partGap = "\n\n";

bool isBlank(std::string_view line) {
    return text::trimmedUnicode(line).empty();
}

bool isSignatureMark(std::string_view line) {
    return line == signatureMark || line == "--";
}

bool isSameLine(std::string_view a, std::string_view b) {
    return text::trimmedUnicode(a) == text::trimmedUnicode(b);
}

std::size_t indexFrom(Lines lines, std::size_t start, bool (*accepts)(std::string_view)) {
    const auto rest = lines.subspan(start);
    return start + static_cast<std::size_t>(std::ranges::find_if(rest, accepts) - rest.begin());
}

/// The first line of what is forwarded, which may hold anything, or the number of lines.
std::size_t forwardPlace(Lines lines) {
    const std::string line = forwardLine();
    const auto isFirst = [&line](std::string_view candidate) {
        return isSameLine(candidate, line) || isSameLine(candidate, "---------- Forwarded message ----------");
    };
    return static_cast<std::size_t>(std::ranges::find_if(lines, isFirst) - lines.begin());
}

/// Finds a signature among lines, in linear time (Knuth, Morris and Pratt). Its mark needs the exact form.
class LineSearch {
  public:
    explicit LineSearch(Lines wanted) : wanted_(wanted), borders_(wanted.size()) {
        for (std::size_t i = 1; i < wanted_.size(); ++i) borders_[i] = extended(borders_[i - 1], wanted_[i]);
    }

    template <class Iterator>
    std::pair<Iterator, Iterator> operator()(Iterator first, Iterator last) const {
        std::size_t matched = 0;
        for (auto at = first; at != last; ++at) {
            matched = extended(matched, *at);
            if (matched < wanted_.size()) continue;
            const auto begin = at + 1 - static_cast<std::ptrdiff_t>(matched);
            if (isSignatureMark(*begin)) return {begin, at + 1};
            matched = borders_.back();
        }
        return {last, last};
    }

  private:
    /// How many lines match when this one follows so many that do.
    std::size_t extended(std::size_t matched, std::string_view line) const {
        while (matched > 0 && !isSame(matched, line)) matched = borders_[matched - 1];
        return isSame(matched, line) ? matched + 1 : matched;
    }

    bool isSame(std::size_t place, std::string_view line) const { return isSameLine(line, wanted_[place]); }

    Lines wanted_;
    std::vector<std::size_t> borders_;
};

/// The first line from `start` on that begins a quote: the one that introduces it, which ends with a colon whatever the
/// language, or the first with ">".
std::size_t quotePlaceFrom(Lines lines, std::size_t start) {
    const auto quoted = indexFrom(lines, start, [](std::string_view line) { return line.starts_with('>'); });
    const auto place = std::min(quoted, std::max(start, forwardPlace(lines)));
    const bool isIntroduced = place == quoted && place < lines.size() && place > start &&
                              text::trimmedUnicode(lines[place - 1]).ends_with(':');
    return isIntroduced ? place - 1 : place;
}

std::string joined(Lines lines) {
    std::string out;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (i > 0) out += '\n';
        out += lines[i];
    }
    return out;
}

Lines withoutBlankEnd(Lines lines) {
    while (!lines.empty() && isBlank(lines.back())) lines = lines.first(lines.size() - 1);
    return lines;
}

std::string withBlock(Lines lines, LineRange range, std::string_view signature) {
    std::vector<std::string_view> all(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(range.first));
    auto below = lines.subspan(range.end);
    const std::string block = signatureBlock(signature);
    if (!block.empty()) {
        all.push_back(block);
    } else if (!below.empty() && isBlank(below.front())) {
        below = below.subspan(1);
    } else if (!all.empty() && isBlank(all.back())) {
        all.pop_back();
    }
    all.insert(all.end(), below.begin(), below.end());
    return joined(all);
}

/// The line at which the quote begins: that text where it stands unchanged, or what looks like one.
std::size_t placeOf(std::string_view quote, std::string_view body, Lines lines) {
    const auto position = quote.empty() ? std::string_view::npos : body.rfind(quote);
    if (position == std::string_view::npos || (position > 0 && body[position - 1] != '\n'))
        return quotePlaceFrom(lines, 0);
    return static_cast<std::size_t>(std::ranges::count(body.substr(0, position), '\n'));
}

}

std::string signatureBlock(std::string_view signature) {
    signature = text::trimmedUnicode(signature);
    if (signature.empty()) return {};
    return std::string(signatureMark) + "\n" + std::string(signature);
}

std::string composedBody(std::string_view written, std::string_view signature, std::string_view quote) {
    const std::string block = signatureBlock(signature);
    std::string body;
    for (const std::string_view part : {written, std::string_view(block), quote}) {
        if (part.empty()) continue;
        if (!body.empty()) body += partGap;
        body += part;
    }
    return body;
}

std::size_t quotePlace(std::span<const std::string_view> lines) {
    return quotePlaceFrom(lines, 0);
}

std::optional<LineRange> findSignature(std::span<const std::string_view> lines, std::string_view signature) {
    const std::string block = signatureBlock(signature);
    if (block.empty()) return std::nullopt;
    const auto wanted = text::split(block, '\n');
    const auto above = lines.first(forwardPlace(lines));
    const auto place = std::search(above.begin(), above.end(), LineSearch(wanted));
    if (place == above.end()) return std::nullopt;
    const auto first = static_cast<std::size_t>(place - above.begin());
    return LineRange{first, first + wanted.size()};
}

LineRange markedSignature(std::span<const std::string_view> lines) {
    const auto above = lines.first(forwardPlace(lines));
    const auto mark = indexFrom(above, 0, isSignatureMark);
    if (mark == above.size()) return {};
    const auto end = quotePlaceFrom(lines, mark + 1);
    return {mark, mark + withoutBlankEnd(lines.subspan(mark, end - mark)).size()};
}

std::string replacedSignature(std::string_view body, std::string_view oldSignature, std::string_view newSignature,
                              std::string_view quote) {
    const auto lines = text::split(body, '\n');
    if (const auto old = findSignature(lines, oldSignature)) return withBlock(lines, *old, newSignature);
    if (signatureBlock(newSignature).empty() || findSignature(lines, newSignature)) return std::string(body);
    const auto place = placeOf(quote, body, lines);
    return composedBody(joined(withoutBlankEnd(Lines(lines).first(place))), newSignature,
                        joined(Lines(lines).subspan(place)));
}

}
