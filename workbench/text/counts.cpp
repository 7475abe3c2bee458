#include "workbench/text/counts.hpp"

#include "workbench/text/printable.hpp"

namespace vorna::workbench {

std::string with_separators(std::uint64_t number)
{
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3; at -= 3)
        digits.insert(at - 3, 1, ',');
    return digits;
}

static std::string with_noun(const std::string& number, std::uint64_t count, std::string_view noun)
{
    return number + " " + std::string(noun) + (count == 1 ? "" : "s");
}

std::string pluralize(std::uint64_t count, std::string_view noun)
{
    return with_noun(std::to_string(count), count, noun);
}

std::string pluralize_with_separators(std::uint64_t count, std::string_view noun)
{
    return with_noun(with_separators(count), count, noun);
}

std::string join_some(const std::vector<std::string>& names)
{
    constexpr std::size_t most = 8;
    std::string text;
    for (std::size_t i = 0; i < names.size() && i < most; ++i)
        text += (i == 0 ? "" : ", ") + printable(names[i]);
    if (names.size() > most)
        text += " and " + std::to_string(names.size() - most) + " more";
    return text;
}

} // namespace vorna::workbench
