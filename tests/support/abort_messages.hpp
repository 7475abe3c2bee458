// What the library prints on stderr before it ends the process.
#pragma once

#include "fft/SRC/wfta/kernel_printer.hpp"

#include <string>

namespace support {

constexpr const char* emit_single_signature =
    "void emit_single(vorna::wfta::kernel_registry_map&, const string&, uint8_t*, size_t, const uint8_t*, "
    "size_t, const std::vector<tessjit::reloc_info>&)";
constexpr const char* resolve_relocation_signature =
    "void resolve_relocation(const string&, uint8_t*, const uint8_t*, const tessjit::reloc_info&, "
    "vorna::wfta::kernel_registry_map&)";
constexpr const char* dump_signature = "void debug_dump_kernels_and_fail(const kernel_registry_map&)";

/// The C library's assertion report of this program, with "LINE" for the line number.
std::string assertion_report(const std::string& function, const std::string& expression);

/// The lines that list a registry.
std::string listing(const vorna::wfta::kernel_registry_map& kernel_registry);

/// The report of a relocation that could not be applied: its message line (without the newline), the registry
/// at that time, and the assertion.
std::string relocation_report(const std::string& message,
                              const vorna::wfta::kernel_registry_map& kernel_registry);

/// `value` as "0x" and lower-case hexadecimal digits.
std::string hex(std::uint64_t value);

/// The report of a second kernel with the same name.
std::string duplicate_report();

/// The report of a relocation whose target is not in the registry.
std::string unknown_target_report();

} // namespace support
