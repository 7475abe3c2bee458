#include "tests/support/abort_messages.hpp"

#include <cerrno>
#include <sstream>

namespace support {

std::string assertion_report(const std::string& function, const std::string& expression)
{
    return std::string(program_invocation_short_name) +
           ": fft/SRC/wfta/kernel_printer.cpp:LINE: " + function + ": Assertion `" + expression +
           "' failed.\n";
}

std::string hex(std::uint64_t value)
{
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
}

// The C library's "%p".
static std::string pointer(const void* value)
{
    return value == nullptr ? "(nil)" : hex(reinterpret_cast<std::uint64_t>(value));
}

std::string listing(const vorna::wfta::kernel_registry_map& kernel_registry)
{
    std::string lines;
    for (const auto& [name, kernel] : kernel_registry) {
        lines += "  " + name.substr(0, name.find('\0')) + " \t " + pointer(kernel.text_ptr) + " " +
                 hex(kernel.text_len) + " " + pointer(kernel.data_ptr) + " " + hex(kernel.data_len) + "\n";
    }
    return lines;
}

std::string relocation_report(const std::string& message,
                              const vorna::wfta::kernel_registry_map& kernel_registry)
{
    return message + "\n" + listing(kernel_registry) + assertion_report(dump_signature, "false");
}

std::string duplicate_report()
{
    return assertion_report(emit_single_signature,
                            "kernel_registry.emplace(fn_name, vorna::wfta::kernel_registry_entry{ text_ptr, "
                            "text_len, data_ptr, data_len }).second");
}

std::string unknown_target_report()
{
    return assertion_report(resolve_relocation_signature, "it != kernel_registry.end()");
}

} // namespace support
