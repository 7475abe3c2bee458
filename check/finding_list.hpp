// Collects the findings of a set of kernels; those with the same cause in a kernel become one.
#pragma once

#include "check/finding_text.hpp"

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vorna::wfta {

class finding_list {
public:
    /// Findings added from now on are about this kernel. The name must outlive the list.
    void begin_kernel(std::size_t index, const std::string& name);

    /// Adds a finding. If the kernel has one with this id and cause already, only adds the place to it.
    /// Distinguishes at most some 1,000 causes for each kernel.
    void add(finding_id id, finding_severity severity, bool aborts, std::optional<std::size_t> relocation,
             std::optional<std::int64_t> offset, std::string_view cause, finding_text text);

    /// All findings in the order in which they were added; the list is empty afterwards.
    std::vector<kernel_finding> take();

private:
    struct more_places {
        std::size_t count = 0;
        std::string text;
    };

    std::vector<kernel_finding> all_;
    std::vector<more_places> more_;                               // of each finding
    std::unordered_map<std::string, std::size_t> of_this_kernel_; // by id and cause: index of the finding
    std::size_t index_ = 0;
    std::string_view kernel_;
};

} // namespace vorna::wfta
