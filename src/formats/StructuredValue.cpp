#include "formats/StructuredValue.h"

#include "base/Text.h"
#include "formats/TextDecoding.h"

#include <algorithm>
#include <cstdint>
#include <tuple>
#include <utility>
#include <vector>

namespace velmo {

namespace {

using Parameters = StructuredValue::Parameters;

enum class Form { plain, extended };

/// One of the pieces that a long parameter is sent in (RFC 2231 §3).
struct Section {
    std::string name;
    std::uint64_t number = 0;
    Form form = Form::plain;
    std::string value;
};

/// The text up to the next semicolon outside of quotes; `rest` is left behind it.
std::string_view takePiece(std::string_view& rest) {
    bool quoted = false;
    std::size_t i = 0;
    for (; i < rest.size(); ++i) {
        if (rest[i] == '\\')
            ++i;
        else if (rest[i] == '"')
            quoted = !quoted;
        else if (rest[i] == ';' && !quoted)
            break;
    }
    const auto piece = rest.substr(0, i);
    rest.remove_prefix(std::min(rest.size(), i + 1));
    return piece;
}

std::string unquoted(std::string_view value) {
    if (value.size() < 2 || value.front() != '"' || value.back() != '"') return std::string(value);
    return text::replacedAll(value.substr(1, value.size() - 2), "\\\"", "\"");
}

Bytes percentDecoded(std::string_view text) {
    Bytes out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? text::hexValue(text[i + 1]) : -1;
        const int low = high >= 0 ? text::hexValue(text[i + 2]) : -1;
        if (low < 0) {
            out += text[i];
            continue;
        }
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return out;
}

/// Takes "charset'language'" off the front of an extended value (RFC 2231 §4) and gives the charset, if any.
std::string_view takeCharset(std::string_view& value) {
    const auto first = value.find('\'');
    const auto second = first == std::string_view::npos ? first : value.find('\'', first + 1);
    if (second == std::string_view::npos) return {};
    const auto charset = value.substr(0, first);
    value.remove_prefix(second + 1);
    return charset;
}

/// The sections of one parameter, in order, as one value. A character may lie across two sections, so bytes are joined
/// before they are decoded.
std::string joined(const Section* section, const Section* end) {
    std::string_view charset;
    Bytes bytes;
    bool extended = false;
    for (const Section* s = section; s != end; ++s) {
        std::string_view value = s->value;
        if (s->form == Form::extended && s == section) charset = takeCharset(value);
        extended = extended || s->form == Form::extended;
        bytes += s->form == Form::extended ? percentDecoded(value) : Bytes(value);
    }
    return extended ? decodeText(bytes, charset.empty() ? "utf-8" : charset) : bytes;
}

/// Puts parameters where they belong: plain ones by name, the sections of others aside.
class ParameterCollector {
  public:
    void add(std::string name, std::string value) {
        Section section{std::move(name), 0, Form::plain, std::move(value)};
        if (section.name.ends_with('*')) {
            section.form = Form::extended;
            section.name.pop_back();
        }
        const auto star = section.name.find('*');
        const auto number = star == std::string::npos
                                ? std::nullopt
                                : text::parseUnsigned64(std::string_view(section.name).substr(star + 1));
        if (number) {
            section.number = *number;
            section.name.resize(star);
            sections_.push_back(std::move(section));
        } else if (section.form == Form::extended) {
            std::string decoded = joined(&section, &section + 1);
            extended_.try_emplace(std::move(section.name), std::move(decoded));
        } else {
            plain_.try_emplace(std::move(section.name), std::move(section.value));
        }
    }

    /// The form with a charset, or in sections, is the better one of the same name, whatever their order (RFC 6266
    /// §4.3).
    Parameters finished() && {
        Parameters all = std::move(extended_);
        std::ranges::stable_sort(sections_, {}, [](const Section& s) { return std::tie(s.name, s.number); });
        for (auto first = sections_.begin(); first != sections_.end();) {
            const auto end =
                std::find_if(first, sections_.end(), [&](const Section& s) { return s.name != first->name; });
            if (!all.contains(first->name)) all.emplace(first->name, joined(&*first, &*first + (end - first)));
            first = end;
        }
        all.merge(plain_);
        return all;
    }

  private:
    Parameters plain_, extended_;
    std::vector<Section> sections_;
};

}

std::string withoutComments(std::string_view text) {
    std::string out;
    std::size_t depth = 0;
    bool isQuoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const std::size_t length = c == '\\' && i + 1 < text.size() ? 2 : 1;
        if (c == '"' && depth == 0) isQuoted = !isQuoted;
        if (c == '(' && !isQuoted) ++depth;
        if (depth == 0) out += text.substr(i, length);
        if (c == ')' && !isQuoted && depth > 0) --depth;
        i += length - 1;
    }
    // What is never closed is no comment.
    return depth == 0 ? out : std::string(text);
}

StructuredValue::Parameters joinedParameters(const std::map<std::string, std::string>& pairs) {
    ParameterCollector parameters;
    for (const auto& [name, value] : pairs) parameters.add(name, value);
    return std::move(parameters).finished();
}

StructuredValue StructuredValue::parse(std::string_view given) {
    const std::string plain = given.contains('(') ? withoutComments(given) : std::string(given);
    std::string_view text = plain;
    StructuredValue result{text::lowered(text::trimmed(takePiece(text))), {}};
    ParameterCollector parameters;
    while (!text.empty()) {
        const auto piece = takePiece(text);
        const auto equals = piece.find('=');
        if (equals == std::string_view::npos) continue;
        parameters.add(text::lowered(text::trimmed(piece.substr(0, equals))),
                       unquoted(text::trimmed(piece.substr(equals + 1))));
    }
    result.parameters = std::move(parameters).finished();
    return result;
}

std::optional<std::string_view> StructuredValue::parameter(std::string_view name) const {
    const auto found = parameters.find(name);
    if (found == parameters.end()) return std::nullopt;
    return found->second;
}

}
