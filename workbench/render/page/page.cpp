#include "workbench/render/page/page.hpp"

#include "workbench/render/page/page_model.hpp"
#include "workbench/render/page/page_template.hpp"

#include <fmt/format.h>

namespace vorna::workbench {

namespace {

/// JSON in its own element. Nothing in it can end the element: "<" occurs only in strings.
void add_element(std::string& page, std::string_view id, std::string_view json)
{
    page += fmt::format("<script type=\"application/json\" id=\"{}\">", id);
    for (const char c : json) {
        if (c == '<')
            page += "\\u003c";
        else
            page += c;
    }
    page += "</script>\n";
}

} // namespace

std::string make_page(const page_input& input)
{
    const page_model model = make_page_model(input);
    std::string page(page_before_model);
    add_element(page, ":model", model.overview);
    // One element for each, so that the browser parses only those that it draws.
    for (std::size_t i = 0; i < model.listings.size(); ++i)
        add_element(page, fmt::format(":listing-{}", i), model.listings[i]);
    page += page_after_model;
    return page;
}

} // namespace vorna::workbench
