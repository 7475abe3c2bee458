#include "workbench/render/json.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace vorna::workbench {

using library_json = nlohmann::ordered_json;

json::json() = default;
json::json(std::nullptr_t) {}
json::json(bool value) : value_(value) {}
json::json(double value) : value_(value) {}
json::json(const char* value) : value_(std::string(value)) {}
json::json(std::string value) : value_(std::move(value)) {}
json::json(std::string_view value) : value_(std::string(value)) {}
json::json(value_type value) : value_(std::move(value)) {}
json::json(const json&) = default;
json::json(json&&) noexcept = default;
json& json::operator=(const json&) = default;
json& json::operator=(json&&) noexcept = default;
json::~json() = default;

json::json(std::initializer_list<json> elements)
{
    const auto is_member = [](const json& element) {
        const auto* const pair = std::get_if<array_type>(&element.value_);
        return pair != nullptr && pair->size() == 2 && std::holds_alternative<std::string>((*pair)[0].value_);
    };
    if (!std::all_of(elements.begin(), elements.end(), is_member)) {
        value_ = array_type(elements);
        return;
    }
    object_type members;
    for (const json& element : elements) {
        const auto& pair = std::get<array_type>(element.value_);
        members.emplace_back(std::get<std::string>(pair[0].value_), pair[1]);
    }
    value_ = std::move(members);
}

json json::array(std::initializer_list<json> elements)
{
    return json(value_type(array_type(elements)));
}

json json::object()
{
    return json(value_type(object_type()));
}

void json::push_back(json element)
{
    std::get<array_type>(value_).push_back(std::move(element));
}

template <class Members>
static auto find_member(Members& members, std::string_view name)
{
    return std::find_if(members.begin(), members.end(),
                        [&](const auto& member) { return member.first == name; });
}

json& json::operator[](std::string_view name)
{
    if (is_null())
        value_ = object_type();
    auto& members = std::get<object_type>(value_);
    if (const auto found = find_member(members, name); found != members.end())
        return found->second;
    return members.emplace_back(name, json()).second;
}

const json& json::at(std::string_view name) const
{
    return find_member(std::get<object_type>(value_), name)->second;
}

void json::update(const json& other)
{
    for (const auto& [name, value] : std::get<object_type>(other.value_))
        (*this)[name] = value;
}

void json::erase(std::string_view name)
{
    auto& members = std::get<object_type>(value_);
    if (const auto found = find_member(members, name); found != members.end())
        members.erase(found);
}

bool json::is_null() const
{
    return std::holds_alternative<std::nullptr_t>(value_);
}

double json::number() const
{
    return std::visit(
        [](const auto& value) {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>)
                return static_cast<double>(value);
            else
                return 0.0;
        },
        value_);
}

static library_json to_library(const json& document);

static library_json to_library(const json::array_type& elements)
{
    library_json made = library_json::array();
    for (const json& element : elements)
        made.push_back(to_library(element));
    return made;
}

static library_json to_library(const json::object_type& members)
{
    library_json made = library_json::object();
    for (const auto& [name, value] : members)
        made[name] = to_library(value);
    return made;
}

static library_json to_library(const json& document)
{
    return std::visit(
        [](const auto& value) -> library_json {
            using type = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<type, json::array_type> || std::is_same_v<type, json::object_type>)
                return to_library(value);
            else
                return value;
        },
        document.value());
}

std::string json::dump(int indent) const
{
    return to_library(*this).dump(indent, ' ', false, library_json::error_handler_t::replace);
}

} // namespace vorna::workbench
