// Names of kernels as the names of their dump and hash files, and as symbols of the perf map.
#pragma once

#include "check/finding_list.hpp"

#include <string>
#include <unordered_map>
#include <unordered_set>

namespace vorna::wfta {

/// Reports a name that a file or the perf map cannot have.
void check_name(const std::string& name, finding_list& findings);

/// The names that were added so far, to find those whose files would be one and the same.
class file_names {
public:
    void add(const std::string& name);

    /// Reports a name whose dump or hash file is a file of one of the names added before.
    void check(const std::string& name, finding_list& findings) const;

private:
    std::unordered_set<std::string> names_;
    std::unordered_multimap<std::string, std::string> by_lower_case_;
};

} // namespace vorna::wfta
