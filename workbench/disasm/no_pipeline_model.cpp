// Built instead of pipeline_model.cpp where LLVM comes without its machine-code analyser.

#include "workbench/disasm/pipeline_model.hpp"

#include <stdexcept>

namespace vorna::workbench {

namespace {

[[noreturn]] void fail()
{
    throw std::runtime_error("built without LLVM's machine-code analyser (libLLVMMCA)");
}

} // namespace

struct pipeline_model::implementation {};

bool has_pipeline_models()
{
    return false;
}

const std::vector<processor_model>& processor_models()
{
    fail();
}

std::string native_processor()
{
    fail();
}

std::string llvm_version()
{
    fail();
}

pipeline_model::pipeline_model(std::string_view)
{
    fail();
}

pipeline_model::~pipeline_model() = default;

const processor_model& pipeline_model::processor() const
{
    fail();
}

block_run pipeline_model::run(std::span<const std::uint32_t>, unsigned)
{
    fail();
}

} // namespace vorna::workbench
