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

constexpr std::string_view securityPattern =
    R"(\b(verification|login|sign[- ]?in|security|one[- ]time|confirmation) code\b|\bsecurity alert\b)"
    R"(|\bnew (sign[- ]?in|login)\b|\b(reset|change) your password\b|\bpassword reset\b|\btwo[- ]factor\b|\b2fa\b)"
    R"(|\bverify your (email|account|identity)\b|\bconfirm (your )?(business )?(account )?login\b|\bsuspicious\b)"
    R"(|\bapp password\b|\bsecure link\b)";

constexpr std::string_view receiptPattern =
    R"(\breceipt\b|\binvoice\b|\border (confirmation|confirmed|#)|\byour order\b)"
    R"(|\bpayment (received|confirmation|successful|failed)\b|\bamount paid\b|\byou paid\b|\bpurchase\b)"
    R"(|\bsubscription (renewed|renewal|confirmation)\b|\brefund\b|\bbilling statement\b)"
    R"(|\bstatement is (ready|available)\b)";

constexpr std::string_view newsletterPattern =
    R"(\bnewsletter\b|\bweekly digest\b|\bdigest\b|\bissue #?\d+\b|\bthis week in\b|\broundup\b)";

constexpr std::string_view promotionPattern =
    R"(\d+\s?% off\b|\bsale\b|\bdeals?\b|\boffer\b|\bdiscount\b|\bsave (up to|\d)|\bfree trial\b)"
    R"(|\blimited[- ]time\b|\bexclusive\b|\bintroducing\b|\blaunch(ed|ing)?\b|\bwebinar\b|\binvitation\b)"
    R"(|\byou'?re invited\b|\bnew arrivals\b|\blast chance\b|\bblack friday\b|\bcyber monday\b|\bcoupon\b|\bpromo\b)"
    R"(|\b\$\d+ off\b|\bearly access\b|\bdon'?t miss\b|\bspecial\b|\bupgrade (now|today)\b)";

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

/// The patterns, compiled at their first use.
struct Patterns {
    RegularExpression security{securityPattern, RegularExpression::Case::ignored};
    RegularExpression receipt{receiptPattern, RegularExpression::Case::ignored};
    RegularExpression newsletter{newsletterPattern, RegularExpression::Case::ignored};
    RegularExpression promotion{promotionPattern, RegularExpression::Case::ignored};

    static const Patterns& shared() {
        static const Patterns patterns;
        return patterns;
    }
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
    const auto& patterns = Patterns::shared();
    const auto email = text::lowered(fromEmail);
    const auto pieces = text::split(email, '@');
    const auto local = pieces.front();
    const auto domain = pieces.back();
    std::string text(subject);
    text += ' ';
    text += text::firstCodePoints(snippet, searchedSnippet);

    if (patterns.security.matches(text)) return Category::security;
    if (holds(receiptSenders, local)) return Category::receipts;
    if (patterns.receipt.matches(text)) return Category::receipts;
    if (isAtOneOf(domain, socialDomains)) return Category::social;
    if (isAtOneOf(domain, newsletterDomains)) return Category::newsletters;
    if (patterns.newsletter.matches(subject)) return Category::newsletters;
    if (isBulk.value_or(true) && patterns.promotion.matches(text)) return Category::promotions;
    if (isBulk.value_or(false)) return holds(marketingSenders, local) ? Category::promotions : Category::updates;
    return isAutomated(local) ? std::optional(Category::updates) : std::nullopt;
}

}
