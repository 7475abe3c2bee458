// JSON documents, for the commands and the report's page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace vorna::workbench {

/// Version of the JSON documents; the guide to the commands says what it promises.
constexpr int json_version = 2;

/// A JSON value. Objects keep their members in insertion order. Only json.cpp includes the JSON library,
/// which is slow to compile.
class json {
public:
    using array_type = std::vector<json>;
    using object_type = std::vector<std::pair<std::string, json>>;

    json();
    json(std::nullptr_t);
    json(bool value);
    json(double value);
    json(const char* value);
    json(std::string value);
    json(std::string_view value);
    /// An object if all elements are {"name", value} pairs, otherwise an array.
    json(std::initializer_list<json> elements);

    template <class Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
    json(Integer value) : json(integer(value))
    {
    }

    template <class Element>
    json(const std::vector<Element>& elements) : json(array())
    {
        for (const Element& element : elements)
            push_back(element);
    }

    json(const json&);
    json(json&&) noexcept;
    json& operator=(const json&);
    json& operator=(json&&) noexcept;
    ~json();

    static json array(std::initializer_list<json> elements = {});
    static json object();

    /// Adds an element to an array.
    void push_back(json element);

    /// The member of an object, null if it is new. Turns null into an object.
    json& operator[](std::string_view name);

    /// The member of an object; it must exist.
    [[nodiscard]] const json& at(std::string_view name) const;

    /// Sets or replaces the other object's members.
    void update(const json& other);

    /// Removes the member if it exists.
    void erase(std::string_view name);

    [[nodiscard]] bool is_null() const;

    /// The value of a number; 0 for other types.
    [[nodiscard]] double number() const;

    /// The document as text, indented by that many spaces, or on one line if negative. Invalid UTF-8 becomes
    /// U+FFFD.
    [[nodiscard]] std::string dump(int indent = -1) const;

    using value_type = std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double, std::string,
                                    array_type, object_type>;
    [[nodiscard]] const value_type& value() const { return value_; }

private:
    explicit json(value_type value);

    template <class Integer>
    static value_type integer(Integer value)
    {
        if constexpr (std::is_signed_v<Integer>)
            return std::int64_t{value};
        else
            return std::uint64_t{value};
    }

    value_type value_;
};

} // namespace vorna::workbench
