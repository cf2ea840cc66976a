#pragma once

#include <optional>
#include <string>

namespace velmo::bench {

/// One line of the benchmark: what this system and its peer did on the same work in the same run.
struct Row {
    std::string name;
    double ours = 0;
    std::optional<double> peer; ///< absent: there is none
    std::string unit;
    /// What ours divided by peer, or ours alone without a peer, must reach (`Better::higher`) or stay at
    /// (`Better::lower`); absent: only told.
    std::optional<double> bar;
    enum class Better { higher, lower } better = Better::higher;
};

}
