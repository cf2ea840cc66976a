#pragma once

#include "base/Observed.h"
#include "platform/Settings.h"
#include "records/MailboxRecord.h"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

class FolderFolding;

/// The mailboxes of one account as the rows of a sidebar: those with a special role in a section of their own at the
/// top, all others by their path under one heading.
struct FolderTree {
    struct Node {
        MailboxRecord mailbox;
        std::vector<std::string> components; ///< the path, split at the mailbox's delimiter
        bool hasChildren = false;

        friend bool operator==(const Node&, const Node&) = default;
    };

    /// Takes the mailboxes in any order. Linear in the paths but for the sort.
    static FolderTree of(std::vector<MailboxRecord> mailboxes);

    /// The heading over `folders`, and the name under which its folding is kept.
    static std::string foldersTitle();
    static constexpr std::string_view foldersSection = "Folders";

    /// The rows of `folders` that show: those whose ancestors are all open.
    std::vector<Node> visibleFolders(const FolderFolding& folding) const;

    std::vector<Node> special; ///< by the place of their role, then by path
    std::vector<Node> folders; ///< by path, each behind its parent
};

/// Which rows of the folder tree are open, and which sections are closed. Lives on the main executor.
class FolderFolding {
  public:
    /// Takes up the sections that were closed before. `settings` outlives this.
    explicit FolderFolding(Settings& settings);

    Observed<std::set<std::string>> expanded;          ///< paths
    Observed<std::set<std::string>> collapsedSections; ///< names; kept in the settings

    enum class State { closed, open };
    void set(const std::string& path, State state);
    /// The row and everything inside it.
    void setAll(const FolderTree& tree, const std::string& path, State state);
    void setSection(const std::string& name, State state);

  private:
    Settings& settings_;
};

}
