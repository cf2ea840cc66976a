#include "records/Labels.h"

#include "base/Text.h"
#include "platform/Settings.h"
#include "records/ModelContext.h"

#include <algorithm>

namespace velmo {

namespace {

/// Rows in one commit of the one-time pass.
constexpr std::size_t labellingStep = 500;

}

std::string labelKey(Category category) {
    return "cat:" + std::string(rawText(category));
}

LabelColor defaultColor(Category category) {
    switch (category) {
    case Category::receipts: return LabelColor::pink;
    case Category::promotions: return LabelColor::amber;
    case Category::security: return LabelColor::blue;
    case Category::social: return LabelColor::purple;
    case Category::updates: return LabelColor::teal;
    case Category::newsletters: break;
    }
    return LabelColor::green;
}

std::vector<std::string> labels(std::string_view labelsJoined) {
    std::vector<std::string> keys;
    for (const auto piece : text::split(labelsJoined, '|')) {
        if (!piece.empty()) keys.emplace_back(piece);
    }
    return keys;
}

bool hasLabel(std::string_view labelsJoined, std::string_view key) {
    const auto keys = labels(labelsJoined);
    return std::ranges::find(keys, key) != keys.end();
}

std::string settingLabel(std::string_view labelsJoined, std::string_view key, LabelChange change) {
    std::string joined;
    const auto append = [&](std::string_view piece) {
        if (!joined.empty()) joined += '|';
        joined += piece;
    };
    for (const auto& piece : labels(labelsJoined)) {
        if (piece != key) append(piece);
    }
    if (change == LabelChange::add) append(key);
    return joined;
}

bool labelsNewMailAutomatically(const Settings& settings) {
    return settings.boolean(labelsNewMailKey).value_or(true);
}

void seedDefaultLabels(ModelContext& context) {
    context.transaction([&] {
        std::int64_t order = 0;
        for (const auto category : allCategories) {
            const auto key = labelKey(category);
            if (!context.labels.find(key))
                context.labels.store(
                    {key, displayName(category), static_cast<std::int64_t>(defaultColor(category)), true, order});
            ++order;
        }
    });
}

void labelExistingMail(ModelContext& context, Settings& settings) {
    if (settings.boolean(labeledCategoriesKey).value_or(false)) return;
    std::int64_t last = 0;
    for (;;) {
        const auto messages = context.messages.categorised(last, labellingStep);
        if (messages.empty()) break;
        context.transaction([&] {
            for (const auto& message : messages) {
                const auto category = categoryFrom(message.categoryRaw);
                if (!category) continue;
                MessageChange change;
                change.labelsJoined = settingLabel(message.labelsJoined, labelKey(*category), LabelChange::add);
                context.messages.change(message.id, change);
            }
        });
        last = messages.back().id;
    }
    settings.setBoolean(labeledCategoriesKey, true);
}

}
