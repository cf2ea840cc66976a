#include "store/Housekeeping.h"

#include "formats/Preview.h"
#include "records/Category.h"
#include "records/Labels.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace velmo {

namespace {

constexpr std::size_t step = 500;

std::optional<MessageChange> newSnippet(const MessageRecord& record) {
    MessageChange change;
    change.snippet = cleanedPreview(record.snippet);
    if (change.snippet == record.snippet) return std::nullopt;
    return change;
}

/// Markup or entities that an older version left in.
std::optional<MessageChange> withoutMarkup(const MessageRecord& record) {
    if (record.snippet.find_first_of("<&") == std::string::npos) return std::nullopt;
    return newSnippet(record);
}

/// A style sheet that leaked into the beginning of the text.
std::optional<MessageChange> withoutStyle(const MessageRecord& record) {
    if (!record.snippet.starts_with('@') && !record.snippet.contains('{')) return std::nullopt;
    return newSnippet(record);
}

std::optional<MessageChange> categorisedAgain(const MessageRecord& record) {
    const auto category = categorise(record.fromEmail, record.subject, record.snippet, std::nullopt);
    MessageChange change;
    change.categoryRaw = category ? std::string(rawText(*category)) : std::string();
    if (change.categoryRaw == record.categoryRaw) return std::nullopt;
    // What the headers told at the time is not kept; a category that rests on them stays.
    if (!category && !record.categoryRaw.empty()) return std::nullopt;
    return change;
}

struct Migration {
    std::string_view key;
    std::optional<MessageChange> (*mend)(const MessageRecord&);
};

constexpr std::array migrations{
    Migration{"cleanedSnippets.v1", withoutMarkup},
    Migration{"cleanedSnippets.v2", withoutStyle},
    Migration{"categorized.v1", categorisedAgain},
};

void run(const Migration& migration, ModelContext& context) {
    std::int64_t last = 0;
    for (;;) {
        const auto messages = context.messages.walk(last, step);
        if (messages.empty()) return;
        context.transaction([&] {
            for (const auto& message : messages)
                if (const auto change = migration.mend(message)) context.messages.change(message.id, *change);
        });
        last = messages.back().id;
    }
}

}

void keepHouse(ModelContext& context, Settings& settings) {
    const bool isFresh = !context.holdsOlderMail();
    for (const auto& migration : migrations) {
        if (settings.boolean(migration.key).value_or(false)) continue;
        if (!isFresh) run(migration, context);
        settings.setBoolean(migration.key, true);
    }
    seedDefaultLabels(context);
    // Fresh mail got its labels as it came, and a person may have taken them off since.
    if (isFresh) settings.setBoolean(std::string(labeledCategoriesKey), true);
    labelExistingMail(context, settings);
}

}
