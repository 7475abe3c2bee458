#include "check/format.hpp"

#include <cstddef>
#include <cstdio>

namespace vorna::wfta {

std::string signed_hex(std::int64_t value)
{
    const auto bits = static_cast<std::uint64_t>(value);
    char text[24];
    std::snprintf(text, sizeof text, "%c0x%llx", value < 0 ? '-' : '+',
                  static_cast<unsigned long long>(value < 0 ? 0 - bits : bits));
    return text;
}

std::string word_text(std::uint32_t word)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lx", static_cast<unsigned long>(word));
    return text;
}

std::string shortened(const std::string& name)
{
    constexpr std::size_t longest = 255; // as of a file's name
    return name.size() <= longest ? name : name.substr(0, longest) + "...";
}

std::string with_addend(const std::string& name, std::int64_t addend)
{
    return addend == 0 ? name : name + signed_hex(addend);
}

} // namespace vorna::wfta
