#include "workbench/text/constants.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <fmt/format.h>

namespace vorna::workbench {

std::vector<constant> split_constants(std::span<const std::uint8_t> bytes)
{
    std::vector<constant> constants;
    constants.reserve((bytes.size() + 7) / 8);
    for (; !bytes.empty(); bytes = bytes.subspan(constants.back().size)) {
        constant next{0, std::min<std::size_t>(8, bytes.size())};
        for (std::size_t i = next.size; i-- > 0;)
            next.bits = next.bits << 8 | bytes[i];
        constants.push_back(next);
    }
    return constants;
}

std::string hexadecimal(const constant& number)
{
    return fmt::format("{:0{}x}", number.bits, 2 * number.size);
}

std::string hexadecimal(std::span<const std::uint8_t> bytes)
{
    std::string text;
    text.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes)
        text += fmt::format("{:02x}", byte);
    return text;
}

std::string probable_double(const constant& number)
{
    const auto value = std::bit_cast<double>(number.bits);
    const double magnitude = std::fabs(value);
    const bool probable = value == 0 || (magnitude > 1e-30 && magnitude < 1e30);
    return number.size == sizeof value && probable ? fmt::format("{}", value) : "";
}

} // namespace vorna::workbench
