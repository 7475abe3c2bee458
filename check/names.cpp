#include "check/names.hpp"

#include "check/format.hpp"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

namespace vorna::wfta {

static constexpr std::size_t longest_file_name = 255; // Linux's NAME_MAX
static constexpr std::string_view hash_suffix = ".hash";

static std::string lower_case(std::string name)
{
    for (char& c : name) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return name;
}

static void warn(finding_list& findings, finding_id id, const std::string& message, const std::string& help)
{
    findings.add(id, finding_severity::warning, false, {}, {}, message, {message, {}, help});
}

static void check_file_name(const std::string& name, finding_list& findings)
{
    const auto add = [&](const std::string& message) {
        warn(findings, finding_id::name_file, message, "choose a name that is a valid file name");
    };
    if (name.empty())
        add("the name is empty: no dump can be written");
    if (name.find('\0') != std::string::npos)
        add("the name contains a NUL: the names of its files end there");
    if (name.find('/') != std::string::npos)
        add("the name contains a \"/\": its files go into another directory, if that exists");
    if (name == "." || name == "..")
        add("the name is that of a directory: no dump can be written");
    if (name.size() + hash_suffix.size() > longest_file_name) {
        const std::string length = "the name has " + std::to_string(name.size()) + " bytes";
        const std::string limit = std::to_string(longest_file_name);
        add(name.size() > longest_file_name
                ? length + ", the limit for a file name is " + limit
                : length + ", with \".hash\" more than " + limit + ", the limit for a file name");
    }
}

static void check_symbol(const std::string& name, finding_list& findings)
{
    const auto add = [&](const std::string& message, const char* help) {
        warn(findings, finding_id::name_map, message, help);
    };
    if (name.find('\n') != std::string::npos)
        add("the name contains a newline, which ends the line in the perf map", "choose another name");
    if (name.find('\0') != std::string::npos)
        add("the name contains a NUL, which ends it in the perf map", "choose another name");
    if (name.size() <= 2)
        add("perf ignores names of less than three bytes", "choose a longer name");
}

void check_name(const std::string& name, finding_list& findings)
{
    check_file_name(name, findings);
    check_symbol(name, findings);
}

void file_names::add(const std::string& name)
{
    if (!names_.insert(name).second)
        return;
    if (std::string lower = lower_case(name); lower != name)
        with_capitals_.emplace(std::move(lower), name);
}

void file_names::check(const std::string& name, finding_list& findings) const
{
    const auto add = [&](const std::string& message) {
        warn(findings, finding_id::name_collision, message, "rename one of the two kernels");
    };
    const std::string hash_file = name + std::string(hash_suffix);
    if (names_.count(hash_file) != 0)
        add("its hash file is the dump of " + quoted(hash_file));
    if (name.size() > hash_suffix.size() &&
        name.compare(name.size() - hash_suffix.size(), hash_suffix.size(), hash_suffix) == 0) {
        const std::string other = name.substr(0, name.size() - hash_suffix.size());
        if (names_.count(other) != 0)
            add("its dump is the hash file of " + quoted(other));
    }
    const auto add_other = [&](const std::string& other) {
        add("the name differs from " + quoted(other) + " in case only");
    };
    const std::string lower = lower_case(name);
    if (lower != name && names_.count(lower) != 0)
        return add_other(lower);
    const auto [begin, end] = with_capitals_.equal_range(lower);
    const auto other = std::find_if(begin, end, [&](const auto& entry) { return entry.second != name; });
    if (other != end)
        add_other(other->second);
}

} // namespace vorna::wfta
