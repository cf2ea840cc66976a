#include "store/Troubles.h"

#include "platform/FileError.h"
#include "platform/Log.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace velmo {

namespace {

using nlohmann::json;

constexpr auto settingsKey = "_troubles";
/// A server that refuses everything must not make a list without end; the oldest go.
constexpr std::size_t mostKept = 100;

json jsonOf(const Trouble& trouble) {
    return {{"key", trouble.key},
            {"account", trouble.accountID ? json(trouble.accountID->text()) : json(nullptr)},
            {"at", unixMilliseconds(trouble.at)},
            {"text", trouble.text},
            {"isTold", trouble.isTold}};
}

Trouble troubleFrom(const json& object) {
    Trouble trouble;
    trouble.key = object.at("key").get<std::string>();
    if (object.at("account").is_string()) trouble.accountID = UUID::parse(object["account"].get<std::string>());
    trouble.at = dateFromUnixMilliseconds(object.at("at").get<std::int64_t>());
    trouble.text = object.at("text").get<std::string>();
    trouble.isTold = object.at("isTold").get<bool>();
    return trouble;
}

std::vector<Trouble> kept(const Settings& settings) {
    std::vector<Trouble> found;
    const json list = json::parse(settings.text(settingsKey).value_or(""), nullptr, false);
    if (!list.is_array()) return found;
    for (const auto& each : list) {
        try {
            found.push_back(troubleFrom(each));
        } catch (const json::exception&) {
            log("Mail").error("A kept trouble can't be read.");
        }
    }
    return found;
}

}

Troubles::Troubles(Settings& settings, std::shared_ptr<Clock> clock)
    : all(kept(settings)), settings_(settings), clock_(std::move(clock)) {}

void Troubles::add(std::string key, std::optional<UUID> accountID, std::string text) {
    auto changed = all.get();
    const auto same = std::ranges::find(changed, key, &Trouble::key);
    const bool isTold = same != changed.end() && same->text == text && same->isTold;
    if (same != changed.end()) changed.erase(same);
    changed.push_back({std::move(key), accountID, clock_->now(), std::move(text), isTold});
    if (changed.size() > mostKept) changed.erase(changed.begin());
    keep(std::move(changed));
}

void Troubles::settle(const std::string& key) {
    removeWhere([&](const Trouble& each) { return each.key == key; });
}

void Troubles::settleAll(const std::string& prefix) {
    removeWhere([&](const Trouble& each) { return each.key.starts_with(prefix); });
}

void Troubles::settleAccount(const UUID& accountID) {
    removeWhere([&](const Trouble& each) { return each.accountID == accountID; });
}

std::vector<Trouble> Troubles::takeUntold() {
    auto changed = all.get();
    std::vector<Trouble> untold;
    for (auto& each : changed)
        if (!std::exchange(each.isTold, true)) untold.push_back(each);
    if (!untold.empty()) keep(std::move(changed));
    return untold;
}

void Troubles::removeWhere(const std::function<bool(const Trouble&)>& isOver) {
    auto changed = all.get();
    if (std::erase_if(changed, isOver) > 0) keep(std::move(changed));
}

void Troubles::keep(std::vector<Trouble> changed) {
    auto list = json::array();
    for (const auto& each : changed) list.push_back(jsonOf(each));
    all = std::move(changed);
    try {
        if (list.empty())
            settings_.remove(settingsKey);
        else
            settings_.setText(settingsKey, list.dump(-1, ' ', false, json::error_handler_t::replace));
    } catch (const FileError& error) {
        log("Mail").error("What failed can't be kept: {}", pub(error.sentence()));
    }
}

}
