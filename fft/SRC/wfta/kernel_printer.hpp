// The kernel finaliser's public interface: places, links and publishes generated AArch64 kernels.
#pragma once

#include "jit/reloc_info.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vorna::wfta {

/// One generated kernel, not yet placed. Owned by the host; may be destroyed once finalise_kernels has
/// returned.
struct kernel_data {
    /// Null, or a host-owned slot as wide as a code pointer, valid during the call, that receives the address
    /// of the kernel's first code byte once the kernel is linked. It is written with memcpy, so it may be the
    /// (cast) address of a typed function pointer.
    void** entry_out = nullptr;

    /// Key of the kernel in the registry, and the name by which relocations and diagnostics know it.
    std::string name;

    /// AArch64 machine code. Every instruction field that a relocation fills must be zero.
    std::vector<std::uint8_t> text;

    /// Read-only data, may be empty. Data blocks are packed without alignment: a host whose constants need
    /// one makes the length of every block of the set a multiple of it.
    std::vector<std::uint8_t> data;

    /// Fixups of `text`, in the order in which they are applied.
    std::vector<tessjit::reloc_info> relocs;
};

/// Where a placed kernel lives. The addresses stay valid for the life of the process. Lengths are in bytes
/// and do not count the gap that may follow the code.
struct kernel_registry_entry {
    std::uint8_t* text_ptr;       ///< first byte of the code, on a 32-byte boundary
    std::size_t text_len;         ///< length of the code
    const std::uint8_t* data_ptr; ///< first byte of the data; with none, where it would be
    std::size_t data_len;         ///< length of the data, which may be 0
};

/// All placed kernels by name. Owned by the host, which may keep it across calls of finalise_kernels.
using kernel_registry_map = std::map<std::string, kernel_registry_entry>;

/// Places `kernels`, in order, in one new readable, writable and executable mapping: the code first, every
/// kernel on a 32-byte boundary, then the data, packed. Registers each under its name in `kernel_registry`,
/// applies its relocations, stores its entry address through `entry_out`, and at the end flushes the
/// instruction cache over the code. A kernel may refer to itself, to kernels before it in `kernels` and to
/// kernels that the registry already holds.
///
/// The mapping is never unmapped or protected. Nothing in `kernels` is kept.
///
/// Errors end the process: a duplicate name, an unknown target, an unsupported relocation type, an
/// instruction field that is not zero or a value out of range by an assertion report on stderr and abort(),
/// in every build; a refused mapping by SIGSEGV at the first copy. An exception passes
/// through: std::bad_alloc, std::regex_error of a dump pattern that does not compile, whatever the host's own
/// tessjit::emit_elf throws. Kernels before the current one are then linked and published, but must not run,
/// since the instruction cache is not flushed; the current one may be registered but is neither linked nor
/// published.
///
/// Calls that share a registry must not overlap, and no kernel may run before the call that placed it
/// returns.
void finalise_kernels(kernel_registry_map& kernel_registry, const std::vector<kernel_data>& kernels);

} // namespace vorna::wfta
