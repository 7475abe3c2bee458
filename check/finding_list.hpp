// Collects findings. Findings of one kernel with the same cause become one that lists all places.
#pragma once

#include "check/finding_text.hpp"

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vorna::wfta {

class finding_list {
public:
    /// Starts the findings of another kernel. The name must outlive the list.
    void begin_kernel(std::size_t index, const std::string& name);

    /// Adds a finding. If the kernel already has one with this id and cause, adds only the offset to it.
    /// Distinguishes at most about 1,000 causes per kernel.
    void add(finding_id id, finding_severity severity, bool aborts, std::optional<std::size_t> relocation,
             std::optional<std::int64_t> offset, std::string_view cause, finding_text text);

    /// Returns all findings in the order in which they were added, and empties the list.
    std::vector<kernel_finding> take();

private:
    struct more_places {
        std::size_t count = 0;
        std::string text;
    };

    std::vector<kernel_finding> all_;
    std::vector<more_places> more_;                               // for each finding
    std::unordered_map<std::string, std::size_t> of_this_kernel_; // by id and cause: index in all_
    std::size_t index_ = 0;
    std::string_view kernel_;
};

} // namespace vorna::wfta
