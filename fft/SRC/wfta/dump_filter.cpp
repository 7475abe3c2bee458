#include "fft/SRC/wfta/dump_filter.hpp"

#include <cstdlib>
#include <optional>
#include <regex>

static std::optional<std::regex> read_filter()
{
    const char* const pattern = std::getenv("VORNA_WFTA_DUMP_KERNEL");
    if (pattern == nullptr)
        return std::nullopt;
    return std::regex(pattern, std::regex::ECMAScript);
}

bool vorna::wfta::want_dump_kernel(const std::string& fn_name)
{
    static const std::optional<std::regex> r = read_filter();
    return r && std::regex_search(fn_name, *r);
}
