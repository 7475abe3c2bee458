// A kernel of one instruction word at a known place P, linked against a target at any address. For programs
// that link wfta_platform_spy.
#pragma once

#include "tests/support/abort_messages.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/platform_spy.hpp"

#include <cstdint>
#include <string>

namespace support {

class one_word_kernel {
public:
    /// The place: the address of the word, which is the start of a page.
    [[nodiscard]] std::uint64_t P() const { return number(range_.begin()); }

    /// Places `word` at P, applies one relocation to it, against a kernel "target" that the host's registry
    /// has at the address `target`, and returns the resulting word.
    std::uint32_t link(std::uint32_t word, std::int32_t type, std::uint64_t target, std::int32_t addend = 0)
    {
        place(word, type, target, addend);
        return word_at(range_.begin());
    }

    /// Expects that this ends the process, with the message, the registry and the assertion.
    void expect_rejected(std::uint32_t word, std::int32_t type, std::uint64_t target, std::int32_t addend,
                         const std::string& message)
    {
        vorna::wfta::kernel_registry_map registry = registry_of(target);
        registry["k"] = {range_.begin(), 4, range_.begin() + 32, 0};
        expect_abort([&] { place(word, type, target, addend); }, relocation_report(message, registry));
    }

private:
    static vorna::wfta::kernel_registry_map registry_of(std::uint64_t target)
    {
        return {{"target", {address(target), 0, nullptr, 0}}};
    }

    void place(std::uint32_t word, std::int32_t type, std::uint64_t target, std::int32_t addend)
    {
        vorna::wfta::kernel_registry_map registry = registry_of(target);
        platform_spy spy;
        spy.place = range_.begin();
        finalise_kernels(registry, {kernel("k", {word}, {{"target", 0, type, addend}})});
    }

    address_range range_{0x10000};
};

} // namespace support
