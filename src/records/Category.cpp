#include "records/Category.h"

#include "base/Localisation.h"
#include "base/Text.h"
#include "platform/RegularExpression.h"

#include <algorithm>
#include <span>

namespace velmo {

namespace {

struct Name {
    Category category;
    std::string_view raw;
    const char* shown;
};

constexpr std::array names{
    Name{Category::receipts, "receipts", "Receipts"}, Name{Category::promotions, "promotions", "Promotions"},
    Name{Category::security, "security", "Security"}, Name{Category::social, "social", "Social"},
    Name{Category::updates, "updates", "Updates"},    Name{Category::newsletters, "newsletters", "Newsletters"},
};

constexpr std::size_t searchedSnippet = 300;

// In each pattern the word boundary that all alternatives begin with is tested once, in front of them.
constexpr std::string_view securityPattern =
    R"(\b(?:(verification|login|sign[- ]?in|security|one[- ]time|confirmation) code\b|security alert\b)"
    R"(|new (sign[- ]?in|login)\b|(reset|change) your password\b|password reset\b|two[- ]factor\b|2fa\b)"
    R"(|verify your (email|account|identity)\b|confirm (your )?(business )?(account )?login\b|suspicious\b)"
    R"(|app password\b|secure link\b))";

constexpr std::string_view receiptPattern =
    R"(\b(?:receipt\b|invoice\b|order (confirmation|confirmed|#)|your order\b)"
    R"(|payment (received|confirmation|successful|failed)\b|amount paid\b|you paid\b|purchase\b)"
    R"(|subscription (renewed|renewal|confirmation)\b|refund\b|billing statement\b|statement is (ready|available)\b))";

constexpr std::string_view newsletterPattern =
    R"(\b(?:newsletter\b|weekly digest\b|digest\b|issue #?\d+\b|this week in\b|roundup\b))";

constexpr std::string_view promotionPattern =
    R"(\d+\s?% off\b|\b(?:sale\b|deals?\b|offer\b|discount\b|save (up to|\d)|free trial\b|limited[- ]time\b)"
    R"(|exclusive\b|introducing\b|launch(ed|ing)?\b|webinar\b|invitation\b|you'?re invited\b|new arrivals\b)"
    R"(|last chance\b|black friday\b|cyber monday\b|coupon\b|promo\b|\$\d+ off\b|early access\b|don'?t miss\b)"
    R"(|special\b|upgrade (now|today)\b))";

/// A word without which no alternative of a pattern matches. Most mail holds none of them, and is spared the patterns:
/// they are some fifty times slower than a look for these words.
struct Trigger {
    std::string_view word;
    std::uint8_t patterns = 0;
};
constexpr std::uint8_t security = 1;
constexpr std::uint8_t receipt = 2;
constexpr std::uint8_t newsletter = 4;
constexpr std::uint8_t promotion = 8;

constexpr std::array triggers{
    Trigger{"code", security},       Trigger{"alert", security},       Trigger{"sign", security},
    Trigger{"signin", security},     Trigger{"login", security},       Trigger{"password", security},
    Trigger{"factor", security},     Trigger{"2fa", security},         Trigger{"verify", security},
    Trigger{"suspicious", security}, Trigger{"secure", security},      Trigger{"receipt", receipt},
    Trigger{"invoice", receipt},     Trigger{"order", receipt},        Trigger{"payment", receipt},
    Trigger{"paid", receipt},        Trigger{"purchase", receipt},     Trigger{"subscription", receipt},
    Trigger{"refund", receipt},      Trigger{"statement", receipt},    Trigger{"newsletter", newsletter},
    Trigger{"digest", newsletter},   Trigger{"issue", newsletter},     Trigger{"week", newsletter},
    Trigger{"roundup", newsletter},  Trigger{"off", promotion},        Trigger{"sale", promotion},
    Trigger{"deal", promotion},      Trigger{"deals", promotion},      Trigger{"offer", promotion},
    Trigger{"discount", promotion},  Trigger{"save", promotion},       Trigger{"trial", promotion},
    Trigger{"limited", promotion},   Trigger{"exclusive", promotion},  Trigger{"introducing", promotion},
    Trigger{"launch", promotion},    Trigger{"launched", promotion},   Trigger{"launching", promotion},
    Trigger{"webinar", promotion},   Trigger{"invitation", promotion}, Trigger{"invited", promotion},
    Trigger{"arrivals", promotion},  Trigger{"chance", promotion},     Trigger{"black", promotion},
    Trigger{"cyber", promotion},     Trigger{"coupon", promotion},     Trigger{"promo", promotion},
    Trigger{"early", promotion},     Trigger{"miss", promotion},       Trigger{"special", promotion},
    Trigger{"upgrade", promotion},
};

constexpr std::size_t longestTrigger =
    std::ranges::max(triggers, {}, [](const Trigger& t) { return t.word.size(); }).word.size();

/// The triggers in an open hash table.
struct TriggerTable {
    static constexpr std::size_t slots = 512;
    std::array<Trigger, slots> table{};

    consteval TriggerTable() {
        for (const auto& trigger : triggers) {
            auto slot = home(trigger.word);
            while (!table[slot].word.empty()) slot = (slot + 1) % slots;
            table[slot] = trigger;
        }
    }

    static constexpr std::size_t home(std::string_view word) {
        const auto at = [&](std::size_t i) { return static_cast<std::size_t>(static_cast<unsigned char>(word[i])); };
        return (at(0) * 37 + at(word.size() / 2) * 11 + at(word.size() - 1) * 5 + word.size()) % slots;
    }

    std::uint8_t patternsOf(std::string_view word) const {
        for (auto slot = home(word); !table[slot].word.empty(); slot = (slot + 1) % slots) {
            if (table[slot].word == word) return table[slot].patterns;
        }
        return 0;
    }
};

constexpr TriggerTable triggerTable;

constexpr bool isWordCharacter(char c) {
    return text::isAlpha(c) || text::isDigit(c) || c == '_';
}

/// Which patterns may match the text; never fewer than do.
std::uint8_t possiblePatterns(std::string_view text) {
    // These two letters are s and k in another case (U+017F, U+212A), the only ones beyond ASCII that equal ASCII ones.
    if (text.find("\u017F") != std::string_view::npos || text.find("\u212A") != std::string_view::npos) return 0xFF;
    std::uint8_t possible = 0;
    std::array<char, longestTrigger> word{};
    std::size_t length = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i < text.size() && isWordCharacter(text[i])) {
            if (length < word.size()) word[length] = text::lower(text[i]);
            ++length;
        } else {
            if (length > 1 && length <= word.size())
                possible |= triggerTable.patternsOf(std::string_view(word.data(), length));
            length = 0;
        }
    }
    return possible;
}

constexpr std::array<std::string_view, 9> receiptSenders{"receipt",  "receipts", "billing", "invoice", "invoices",
                                                         "payments", "payment",  "orders",  "order"};

// The domains that notifications of these networks are sent from, beside those of the networks themselves.
constexpr std::array<std::string_view, 17> socialDomains{
    "facebook.com", "facebookmail.com", "instagram.com",  "threads.net",   "linkedin.com", "twitter.com",
    "x.com",        "reddit.com",       "redditmail.com", "pinterest.com", "tiktok.com",   "snapchat.com",
    "tumblr.com",   "quora.com",        "discord.com",    "nextdoor.com",  "meetup.com"};

constexpr std::array<std::string_view, 7> newsletterDomains{
    "substack.com", "beehiiv.com", "ghost.io", "buttondown.email", "medium.com", "convertkit-mail2.com", "mlsend.com"};

constexpr std::array<std::string_view, 14> automatedSenders{
    "noreply", "no-reply", "donotreply", "do-not-reply", "notifications", "notification", "notify",
    "updates", "alerts",   "alert",      "mailer",       "automated",     "system",       "support"};

constexpr std::array<std::string_view, 11> marketingSenders{
    "news", "newsletter", "marketing", "promo", "promotions", "offers", "deals", "hello", "team", "info", "events"};

/// The patterns, compiled at their first use, over one message.
class PatternSearch {
  public:
    explicit PatternSearch(std::string_view text) : text_(text), possible_(possiblePatterns(text)) {}

    bool isSecurity() const { return (possible_ & security) != 0 && patterns().security.matches(text_); }
    bool isReceipt() const { return (possible_ & receipt) != 0 && patterns().receipt.matches(text_); }
    bool isPromotion() const { return (possible_ & promotion) != 0 && patterns().promotion.matches(text_); }
    /// The subject is the beginning of the text.
    bool isNewsletter(std::string_view subject) const {
        return (possible_ & newsletter) != 0 && patterns().newsletter.matches(subject);
    }

  private:
    struct Patterns {
        RegularExpression security{securityPattern, RegularExpression::Case::ignored};
        RegularExpression receipt{receiptPattern, RegularExpression::Case::ignored};
        RegularExpression newsletter{newsletterPattern, RegularExpression::Case::ignored};
        RegularExpression promotion{promotionPattern, RegularExpression::Case::ignored};
    };
    static const Patterns& patterns() {
        static const Patterns compiled;
        return compiled;
    }

    std::string_view text_;
    std::uint8_t possible_;
};

bool holds(std::span<const std::string_view> words, std::string_view word) {
    return std::ranges::find(words, word) != words.end();
}

bool isAtOneOf(std::string_view domain, std::span<const std::string_view> listed) {
    return std::ranges::any_of(listed, [&](std::string_view host) {
        return domain == host || (domain.size() > host.size() && domain.ends_with(host) &&
                                  domain[domain.size() - host.size() - 1] == '.');
    });
}

bool isAutomated(std::string_view local) {
    return std::ranges::any_of(automatedSenders, [&](std::string_view word) {
        if (local.starts_with(word)) {
            if (local.size() == word.size()) return true;
            const char next = local[word.size()];
            if (next == '+' || next == '-') return true;
        }
        return local.size() > word.size() && local.ends_with(word) && local[local.size() - word.size() - 1] == '-';
    });
}

}

std::string_view rawText(Category category) {
    return names.at(static_cast<std::size_t>(category)).raw;
}

std::optional<Category> categoryFrom(std::string_view raw) {
    const auto found = std::ranges::find(names, raw, &Name::raw);
    if (found == names.end()) return std::nullopt;
    return found->category;
}

std::string displayName(Category category) {
    return trNoted("Mail category and default label name", names.at(static_cast<std::size_t>(category)).shown);
}

std::optional<Category> categorise(std::string_view fromEmail, std::string_view subject, std::string_view snippet,
                                   std::optional<bool> isBulk) {
    const auto email = text::lowered(fromEmail);
    const auto pieces = text::split(email, '@');
    const auto local = pieces.front();
    const auto domain = pieces.back();
    std::string text(subject);
    text += ' ';
    text += text::firstCodePoints(snippet, searchedSnippet);
    const PatternSearch found(text);

    if (found.isSecurity()) return Category::security;
    if (holds(receiptSenders, local)) return Category::receipts;
    if (found.isReceipt()) return Category::receipts;
    if (isAtOneOf(domain, socialDomains)) return Category::social;
    if (isAtOneOf(domain, newsletterDomains)) return Category::newsletters;
    if (found.isNewsletter(subject)) return Category::newsletters;
    if (isBulk.value_or(true) && found.isPromotion()) return Category::promotions;
    if (isBulk.value_or(false)) return holds(marketingSenders, local) ? Category::promotions : Category::updates;
    return isAutomated(local) ? std::optional(Category::updates) : std::nullopt;
}

}
