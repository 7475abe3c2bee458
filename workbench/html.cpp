#include "workbench/html.hpp"

#include "workbench/json.hpp"
#include "workbench/output.hpp"

#include <algorithm>
#include <fmt/format.h>

namespace vorna::workbench {

std::string html(std::string_view text)
{
    const bool plain = std::all_of(text.begin(), text.end(), [](char c) {
        return c >= ' ' && c < 0x7f && c != '&' && c != '<' && c != '>' && c != '"' && c != '\'';
    });
    if (plain)
        return std::string(text);
    std::string result;
    for (const char c : utf8(printable(text))) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

std::string json_in_html(std::string_view json)
{
    std::string result;
    result.reserve(json.size());
    for (const char c : json) {
        if (c == '<')
            result += "\\u003c";
        else
            result += c;
    }
    return result;
}

std::string fragment(std::string_view name)
{
    std::string result;
    for (const char c : name) {
        const bool itself = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                            c == '_' || c == '-' || c == '.';
        if (itself)
            result += c;
        else
            result += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return result;
}

std::string percent(double part)
{
    const double value = 100 * part;
    if (part == 0)
        return "0";
    if (value < 0.005)
        return "<0.01";
    return fmt::format("{:.{}f}", value, value < 0.95 ? 2 : 1);
}

} // namespace vorna::workbench
