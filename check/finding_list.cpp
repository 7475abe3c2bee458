#include "check/finding_list.hpp"

#include "check/format.hpp"

#include <utility>

namespace vorna::wfta {

static constexpr std::size_t most_causes = 1000; // per kernel; beyond, causes are not distinguished
static constexpr std::size_t most_places = 8;    // listed in a message

void finding_list::begin_kernel(std::size_t index, const std::string& name)
{
    index_ = index;
    kernel_ = name;
    of_this_kernel_.clear();
}

void finding_list::add(finding_id id, finding_severity severity, bool aborts,
                       std::optional<std::size_t> relocation, std::optional<std::int64_t> offset,
                       std::string_view cause, finding_text text)
{
    std::string key = name_of(id);
    if (of_this_kernel_.size() < most_causes)
        key.append(1, '\0').append(cause);
    const auto [found, added] = of_this_kernel_.try_emplace(std::move(key), all_.size());
    if (added) {
        all_.push_back({id, severity, aborts, index_, std::string(kernel_), relocation, offset,
                        std::move(text.message), std::move(text.note), std::move(text.help)});
        more_.emplace_back();
        return;
    }
    if (!offset || offset == all_[found->second].offset)
        return;
    more_places& more = more_[found->second];
    if (++more.count <= most_places)
        more.text += (more.count == 1 ? "" : ", ") + signed_hex(*offset);
}

std::vector<kernel_finding> finding_list::take()
{
    for (std::size_t i = 0; i < all_.size(); ++i) {
        if (more_[i].count == 0)
            continue;
        all_[i].message += "; also at " + more_[i].text;
        if (more_[i].count > most_places)
            all_[i].message += " and " + std::to_string(more_[i].count - most_places) + " more";
    }
    more_.clear();
    of_this_kernel_.clear();
    return std::exchange(all_, {});
}

} // namespace vorna::wfta
