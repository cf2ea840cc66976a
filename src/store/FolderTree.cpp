#include "store/FolderTree.h"

#include "base/Localisation.h"
#include "platform/FileError.h"
#include "platform/Log.h"

#include <algorithm>
#include <utility>

namespace velmo {

namespace {

constexpr std::string_view collapsedKey = "collapsedFolderSection";

std::vector<std::string> componentsOf(const MailboxRecord& mailbox) {
    std::vector<std::string> components;
    const std::string& path = mailbox.path;
    const std::string delimiter = mailbox.delimiter.value_or("");
    std::size_t start = 0;
    while (!delimiter.empty()) {
        const auto end = path.find(delimiter, start);
        if (end == std::string::npos) break;
        components.push_back(path.substr(start, end - start));
        start = end + delimiter.size();
    }
    components.push_back(path.substr(start));
    return components;
}

bool isInside(const MailboxRecord& folder, const MailboxRecord& parent) {
    std::string_view path = folder.path;
    if (parent.delimiter.value_or("").empty() || !path.starts_with(parent.path)) return false;
    path.remove_prefix(parent.path.size());
    return path.starts_with(*parent.delimiter);
}

}

FolderTree FolderTree::of(std::vector<MailboxRecord> mailboxes) {
    std::vector<Node> all;
    all.reserve(mailboxes.size());
    for (auto& mailbox : mailboxes) {
        auto components = componentsOf(mailbox);
        all.push_back({std::move(mailbox), std::move(components), false});
    }
    // By components, so that what is inside a folder follows it without anything between them.
    std::ranges::sort(all, {}, &Node::components);
    for (std::size_t i = 0; i + 1 < all.size(); ++i) all[i].hasChildren = isInside(all[i + 1].mailbox, all[i].mailbox);
    FolderTree tree;
    for (auto& node : all) {
        const bool isSpecial = node.mailbox.role() != MailboxRole::other;
        (isSpecial ? tree.special : tree.folders).push_back(std::move(node));
    }
    std::ranges::stable_sort(tree.special, {}, [](const Node& node) { return node.mailbox.role(); });
    return tree;
}

std::string FolderTree::foldersTitle() {
    return tr("Folders");
}

std::vector<FolderTree::Node> FolderTree::visibleFolders(const FolderFolding& folding) const {
    std::vector<Node> visible;
    if (folding.collapsedSections->contains(std::string(foldersSection))) return visible;
    const Node* closed = nullptr;
    for (const auto& node : folders) {
        if (closed != nullptr && isInside(node.mailbox, closed->mailbox)) continue;
        visible.push_back(node);
        closed = folding.expanded->contains(node.mailbox.path) ? nullptr : &node;
    }
    return visible;
}

FolderFolding::FolderFolding(Settings& settings) : settings_(settings) {
    const auto kept = settings.texts(collapsedKey).value_or(std::vector<std::string>());
    collapsedSections = std::set(kept.begin(), kept.end());
}

void FolderFolding::set(const std::string& path, State state) {
    expanded.update([&](auto& paths) {
        if (state == State::open)
            paths.insert(path);
        else
            paths.erase(path);
    });
}

void FolderFolding::setAll(const FolderTree& tree, const std::string& path, State state) {
    // What is inside a mailbox of a special role, as in an inbox that holds everything, is among the others.
    const FolderTree::Node* start = nullptr;
    for (const auto* nodes : {&tree.folders, &tree.special})
        for (const auto& node : *nodes)
            if (node.mailbox.path == path) start = &node;
    if (start == nullptr) return;
    expanded.update([&](auto& paths) {
        for (const auto* nodes : {&tree.folders, &tree.special}) {
            for (const auto& node : *nodes) {
                if (&node != start && !isInside(node.mailbox, start->mailbox)) continue;
                if (state == State::closed)
                    paths.erase(node.mailbox.path);
                else if (node.hasChildren)
                    paths.insert(node.mailbox.path);
            }
        }
    });
}

void FolderFolding::setSection(const std::string& name, State state) {
    collapsedSections.update([&](auto& names) {
        if (state == State::closed)
            names.insert(name);
        else
            names.erase(name);
    });
    try {
        settings_.setTexts(collapsedKey, {collapsedSections->begin(), collapsedSections->end()});
    } catch (const FileError& error) {
        // The folding holds for this run.
        log("Mail").error("Couldn't keep the folding of the folders: {}", pub(error.what()));
    }
}

}
