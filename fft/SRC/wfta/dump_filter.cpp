#include "fft/SRC/wfta/dump_filter.hpp"

#include <cstdlib>
#include <optional>
#include <regex>

namespace {

struct dump_filter {
    std::optional<std::regex> r;
    std::optional<std::regex_error> error; // of a pattern that does not compile, to be thrown in every call
};

} // namespace

static dump_filter read_filter()
{
    const char* const pattern = std::getenv("VORNA_WFTA_DUMP_KERNEL");
    if (pattern == nullptr)
        return {};
    try {
        return {std::regex(pattern, std::regex::ECMAScript), std::nullopt};
    } catch (const std::regex_error& error) {
        return {std::nullopt, error};
    }
}

bool vorna::wfta::want_dump_kernel(const std::string& fn_name)
{
    static const dump_filter filter = read_filter();
    if (filter.error)
        throw std::regex_error(*filter.error);
    return filter.r && std::regex_search(fn_name, *filter.r);
}
