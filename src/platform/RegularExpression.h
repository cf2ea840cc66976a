#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// A pattern in the Perl-compatible language, over UTF-8 text and with Unicode classes (`\w`, `\s`, `\b`).
///
/// Compiled once, immutable and cheap to copy afterwards; every operation may be called from any thread. Matching
/// never throws: it gives up beyond a fixed amount of backtracking, and then answers as if nothing matched. Text that
/// is no UTF-8 is matched in its repaired form by `matches`, and never matches otherwise.
class RegularExpression {
  public:
    enum class Case { sensitive, ignored };

    /// Where a match lies, in bytes of the searched text. Group 0 is the whole match.
    struct Match {
        struct Range {
            std::size_t begin = 0;
            std::size_t end = 0;
        };
        std::vector<std::optional<Range>> groups;

        std::size_t begin() const { return groups.front()->begin; }
        std::size_t end() const { return groups.front()->end; }
    };

    /// Throws std::invalid_argument when the pattern is malformed.
    explicit RegularExpression(std::string_view pattern, Case letterCase = Case::sensitive);

    /// True when the pattern matches anywhere in the text.
    bool matches(std::string_view text) const;

    /// The first match that begins at byte `from` or later.
    std::optional<Match> find(std::string_view text, std::size_t from = 0) const;

    /// The text with every match replaced by `replacement`, which is taken literally.
    std::string replacedAll(std::string_view text, std::string_view replacement) const;

  private:
    struct Program;
    std::shared_ptr<const Program> program_;
};

}
