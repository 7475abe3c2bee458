#include "check/names.hpp"

#include "check/format.hpp"

#include <cstddef>
#include <string_view>

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
    const std::string length = "the name has " + std::to_string(name.size()) + " bytes";
    const std::string limit = std::to_string(longest_file_name);
    if (name.empty())
        add("the name is empty: no dump can be written");
    if (name.find('\0') != std::string::npos)
        add("the name contains a NUL: the names of its files end there");
    if (name.find('/') != std::string::npos)
        add("the name contains a \"/\": its files go into another directory, if that exists");
    if (name == "." || name == "..")
        add("the name is that of a directory: no dump can be written");
    if (name.size() > longest_file_name)
        add(length + ", the limit for a file name is " + limit);
    else if (name.size() + hash_suffix.size() > longest_file_name)
        add(length + ", with \".hash\" more than " + limit + ", the limit for a file name");
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
    if (names_.insert(name).second)
        by_lower_case_.emplace(lower_case(name), name);
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
    const auto [begin, end] = by_lower_case_.equal_range(lower_case(name));
    for (auto other = begin; other != end; ++other) {
        if (other->second != name) {
            add("the name differs from " + quoted(other->second) + " in case only");
            break;
        }
    }
}

} // namespace vorna::wfta
