// The edit distance of Levenshtein, by Wagner and Fischer's rows. A row whose least element exceeds the limit
// ends the computation, since no later row has a lesser one.
#include "check/nearest_name.hpp"

#include <algorithm>
#include <numeric>
#include <optional>
#include <vector>

namespace vorna::wfta {

// The edit distance, if it is at most the limit.
static std::optional<std::size_t> edit_distance(std::string_view a, std::string_view b, std::size_t limit)
{
    if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > limit)
        return std::nullopt;
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char c : a) {
        std::size_t diagonal = row[0]++;
        std::size_t least = row[0];
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (c == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
            least = std::min(least, row[j + 1]);
        }
        if (least > limit)
            return std::nullopt;
    }
    return row[b.size()] > limit ? std::nullopt : std::optional(row[b.size()]);
}

// The edit distance of names that have enough in common.
static std::optional<std::size_t> distance_of_near(std::string_view a, std::string_view b)
{
    constexpr std::size_t compared = 256; // characters of long names
    a = a.substr(0, compared);
    b = b.substr(0, compared);
    const std::size_t longer = std::max(a.size(), b.size());
    return longer == 0 ? std::nullopt : edit_distance(a, b, std::min((longer + 2) / 3, longer - 1));
}

static bool differ_in_number(std::string_view a, std::string_view b)
{
    std::size_t front = 0;
    while (front < std::min(a.size(), b.size()) && a[front] == b[front])
        ++front;
    std::size_t back = 0;
    while (back < std::min(a.size(), b.size()) - front && a[a.size() - 1 - back] == b[b.size() - 1 - back])
        ++back;
    const auto is_number = [](std::string_view text) {
        return text.find_first_not_of("0123456789") == std::string_view::npos;
    };
    return is_number(a.substr(front, a.size() - front - back)) &&
           is_number(b.substr(front, b.size() - front - back));
}

bool is_misspelling(std::string_view a, std::string_view b)
{
    return !differ_in_number(a, b) && distance_of_near(a, b);
}

nearest_name_search::nearest_name_search(std::string_view name, name_candidates candidates)
    : name_(name), candidates_(candidates)
{
}

void nearest_name_search::offer(const std::string& candidate)
{
    if (candidates_ == name_candidates::misspellings && differ_in_number(name_, candidate))
        return;
    const std::optional<std::size_t> distance = distance_of_near(name_, candidate);
    if (distance && (nearest_ == nullptr || *distance < least_)) {
        nearest_ = &candidate;
        least_ = *distance;
    }
}

} // namespace vorna::wfta
