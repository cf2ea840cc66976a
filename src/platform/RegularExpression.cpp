#define PCRE2_CODE_UNIT_WIDTH 8

#include "platform/RegularExpression.h"

#include "base/Text.h"

#include <algorithm>
#include <cstdint>
#include <pcre2.h>
#include <stdexcept>

namespace velmo {

namespace {

template <auto Free>
struct Freed {
    template <class T>
    void operator()(T* p) const {
        Free(p);
    }
};

using Code = std::unique_ptr<pcre2_code, Freed<pcre2_code_free>>;
using MatchData = std::unique_ptr<pcre2_match_data, Freed<pcre2_match_data_free>>;
using MatchContext = std::unique_ptr<pcre2_match_context, Freed<pcre2_match_context_free>>;
using JITStack = std::unique_ptr<pcre2_jit_stack, Freed<pcre2_jit_stack_free>>;

constexpr std::uint32_t backtrackingLimit = 2'000'000;
constexpr std::uint32_t heapLimitKiB = 64 * 1024;
constexpr std::size_t jitStackStart = 32 * 1024;
constexpr std::size_t jitStackLimit = 4 * 1024 * 1024;

/// What a thread needs to match any pattern; none of it may be shared between threads.
struct Matcher {
    static constexpr std::uint32_t maximumGroups = 64;

    MatchData data{pcre2_match_data_create(maximumGroups, nullptr)};
    JITStack stack{pcre2_jit_stack_create(jitStackStart, jitStackLimit, nullptr)};
    MatchContext context{pcre2_match_context_create(nullptr)};

    Matcher() {
        pcre2_set_match_limit(context.get(), backtrackingLimit);
        pcre2_set_heap_limit(context.get(), heapLimitKiB);
        pcre2_jit_stack_assign(context.get(), nullptr, stack.get());
    }

    static Matcher& ofThread() {
        thread_local Matcher matcher;
        return matcher;
    }
};

PCRE2_SPTR units(std::string_view text) {
    return reinterpret_cast<PCRE2_SPTR>(text.data() != nullptr ? text.data() : "");
}

std::invalid_argument malformed(std::string_view pattern, int error) {
    PCRE2_UCHAR message[128];
    pcre2_get_error_message(error, message, sizeof message);
    return std::invalid_argument("malformed pattern " + std::string(pattern) + ": " +
                                 reinterpret_cast<const char*>(message));
}

}

struct RegularExpression::Program {
    Code code;

    Program(std::string_view pattern, Case letterCase) {
        const std::uint32_t options = PCRE2_UTF | PCRE2_UCP | (letterCase == Case::ignored ? PCRE2_CASELESS : 0U);
        int error = 0;
        PCRE2_SIZE at = 0;
        code.reset(pcre2_compile(units(pattern), pattern.size(), options, &error, &at, nullptr));
        if (!code) throw malformed(pattern, error);
        // Where the machine allows no code at run time the interpreter gives the same answers, slower.
        pcre2_jit_compile(code.get(), PCRE2_JIT_COMPLETE);
    }

    /// The number of groups that the match set, not positive when there is none. `text` must be valid UTF-8.
    int match(std::string_view text, std::size_t from, Matcher& matcher) const {
        return pcre2_match(code.get(), units(text), text.size(), from, PCRE2_NO_UTF_CHECK, matcher.data.get(),
                           matcher.context.get());
    }
};

RegularExpression::RegularExpression(std::string_view pattern, Case letterCase)
    : program_(std::make_shared<const Program>(pattern, letterCase)) {}

bool RegularExpression::matches(std::string_view text) const {
    Matcher& matcher = Matcher::ofThread();
    if (text::isValidUTF8(text)) return program_->match(text, 0, matcher) >= 0;
    return program_->match(text::repairedUTF8(text), 0, matcher) >= 0;
}

std::optional<RegularExpression::Match> RegularExpression::find(std::string_view text, std::size_t from) const {
    const auto startsInside = [&] {
        return from < text.size() && (static_cast<unsigned char>(text[from]) & 0xC0) == 0x80;
    };
    if (from > text.size() || !text::isValidUTF8(text) || startsInside()) return std::nullopt;
    Matcher& matcher = Matcher::ofThread();
    const int count = program_->match(text, from, matcher);
    if (count < 0) return std::nullopt;
    std::uint32_t declared = 0;
    pcre2_pattern_info(program_->code.get(), PCRE2_INFO_CAPTURECOUNT, &declared);
    Match match;
    match.groups.resize(std::min(declared + 1, Matcher::maximumGroups));
    const PCRE2_SIZE* ends = pcre2_get_ovector_pointer(matcher.data.get());
    // A count of zero means that the pattern has more groups than fit; those that fit are all set.
    const std::size_t set = count == 0 ? match.groups.size() : static_cast<std::size_t>(count);
    for (std::size_t i = 0; i < std::min(set, match.groups.size()); ++i)
        if (ends[2 * i] != PCRE2_UNSET) match.groups[i] = Match::Range{ends[2 * i], ends[2 * i + 1]};
    return match;
}

std::string RegularExpression::replacedAll(std::string_view text, std::string_view replacement) const {
    if (!text::isValidUTF8(text)) return std::string(text);
    Matcher& matcher = Matcher::ofThread();
    std::string out;
    std::size_t copied = 0;
    for (std::size_t from = 0; from <= text.size();) {
        if (program_->match(text, from, matcher) < 0) break;
        const PCRE2_SIZE* ends = pcre2_get_ovector_pointer(matcher.data.get());
        // \K inside of a lookaround can end a match before its beginning.
        const std::size_t begin = std::max(ends[0], copied), end = std::max(ends[1], begin);
        out += text.substr(copied, begin - copied);
        out += replacement;
        copied = end;
        from = end;
        // An empty match must not be found again at the same place.
        if (begin == end && from < text.size())
            text::nextCodePoint(text, from);
        else if (begin == end)
            break;
    }
    out += text.substr(copied);
    return out;
}

}
