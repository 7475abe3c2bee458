// Checks kernel names: as names of dump and hash files, and as symbols in the perf map.
#pragma once

#include "check/finding_list.hpp"

#include <string>
#include <unordered_map>
#include <unordered_set>

namespace vorna::wfta {

/// Reports a name that cannot be a file name or a symbol in the perf map.
void check_name(const std::string& name, finding_list& findings);

/// The names added so far, to find kernels whose files would have the same name.
class file_names {
public:
    void add(const std::string& name);

    /// Reports a name whose dump or hash file collides with a file of a name added before.
    void check(const std::string& name, finding_list& findings) const;

private:
    std::unordered_set<std::string> names_;
    std::unordered_multimap<std::string, std::string> with_capitals_; // of them, by lower case
};

} // namespace vorna::wfta
