#include "workbench/cli/processors.hpp"

#include "workbench/render/cost_text.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>

namespace vorna::workbench {

namespace {

std::string list_processors()
{
    std::string text;
    for (const processor_model& processor : processor_models()) {
        const std::string order = processor.in_order ? "in order" : "out of order";
        const std::string whose = processor.model.empty()  ? "no model"
                                  : processor.is_its_own() ? order + ", a model of its own"
                                                           : order + ", the model of " + processor.model;
        text += fmt::format("{}{:<16} {}", text.empty() ? "" : "\n", processor.name, whose);
    }
    return text;
}

} // namespace

command_option add_processors(command_line& command, std::vector<std::string>& names, const std::string& what)
{
    return command.add_option("--cpu", names, what + "; \"help\" lists the names")
        .delimiter(',')
        .help(list_processors)
        .type_name("NAME[,NAME...]");
}

std::vector<std::string> default_processors()
{
    std::vector<std::string> names = {"cortex-a55", "neoverse-n1", "neoverse-v2"};
#ifdef __aarch64__
    const std::string native = native_processor();
    if (!native.empty() && std::find(names.begin(), names.end(), native) == names.end())
        names.insert(names.begin(), native);
#endif
    return names;
}

model_list load_models(const std::vector<std::string>& names)
{
    model_list models;
    for (const std::string& name : names) {
        const std::string found = name == "native" ? native_processor() : name;
        if (found.empty())
            throw std::runtime_error("LLVM does not know the processor that this program runs on");
        const bool again = std::any_of(models.begin(), models.end(),
                                       [&](const auto& model) { return model->processor().name == found; });
        if (!again)
            models.push_back(std::make_unique<block_models>(found));
    }
    return models;
}

} // namespace vorna::workbench
