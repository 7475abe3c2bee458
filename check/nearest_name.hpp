// Which name was meant by one that does not exist.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vorna::wfta {

/// Whether one name is probably a misspelling of the other: at most a third of the longer one (rounded up)
/// differs, and not just a number.
bool is_misspelling(std::string_view a, std::string_view b);

/// Which names are candidates.
enum class name_candidates {
    all,         ///< all of which at most a third (rounded up) differs
    misspellings ///< of these, the names that do not differ just in a number
};

/// The candidate with the least edit distance to a name, the first of them if there are several. The caller
/// owns the names.
class nearest_name_search {
public:
    nearest_name_search(std::string_view name, name_candidates candidates);
    void offer(const std::string& candidate);

    /// Empty if no candidate is near.
    [[nodiscard]] std::string nearest() const { return nearest_ == nullptr ? "" : *nearest_; }

private:
    std::string_view name_;
    name_candidates candidates_;
    const std::string* nearest_ = nullptr;
    std::size_t least_ = 0;
};

} // namespace vorna::wfta
