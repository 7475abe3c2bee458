// How the registers of two kernels are related at the same point of both.
#pragma once

#include "workbench/disasm/decoded_kernel.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>

namespace vorna::workbench {

enum class relation : std::uint8_t {
    none,
    equal,
    low_half,  // the low 64 bits of two vector registers are equal
    address,   // of the kernel's own constants or code, at known offsets
    page,      // the page of such an address, from ADRP
    clobbered, // by a call
};

/// How a register of one kernel is related to a register of the other.
struct link {
    relation kind = relation::none;
    register_id partner = 0;
    bool in_code = false;    // of addresses: in the kernel's code, otherwise in its constants
    std::int64_t before = 0; // the offsets
    std::int64_t after = 0;
    bool returns = false; // of equal values: the return address

    [[nodiscard]] bool is_address() const { return kind == relation::address || kind == relation::page; }
    friend bool operator==(const link& a, const link& b) = default;
};

/// The return addresses on the stack, which is the same in both kernels.
struct stack_frame {
    std::optional<std::int64_t> sp = 0; // relative to its value on entry
    std::set<std::int64_t> returns;     // offsets of 8-byte slots that hold the return address

    void move_sp(std::optional<std::int64_t> to)
    {
        sp = to;
        if (to)
            returns.erase(returns.begin(), returns.lower_bound(*to));
        else
            returns.clear();
    }
    void overwrite(std::int64_t begin, std::int64_t bytes)
    {
        returns.erase(returns.lower_bound(begin - 7), returns.lower_bound(begin + bytes));
    }
    friend bool operator==(const stack_frame& a, const stack_frame& b) = default;
};

/// Relates each register of one kernel to at most one of the other, and vice versa.
class register_relation {
public:
    stack_frame stack;

    register_relation() { partners_.fill(nobody); }

    /// Each register equals the register of the same name, and X30 is the return address.
    static register_relation same_names();

    [[nodiscard]] const link& of(register_id before) const { return links_[before]; }

    void forget_before(register_id before);
    void forget_after(register_id after);
    void relate(register_id before, const link& to);
    void mark_return_address(register_id before);

    [[nodiscard]] bool is_same_name(register_id r, relation kind = relation::equal) const
    {
        return links_[r].kind == kind && links_[r].partner == r;
    }
    [[nodiscard]] bool all_same_names() const;

    /// Keeps the links that hold in both. Returns whether any was lost.
    bool meet(const register_relation& other);

private:
    static constexpr register_id nobody = 255;

    std::array<link, register_count> links_;
    std::array<register_id, register_count> partners_{}; // of the other kernel's registers
};

// By the roles of registers in the AAPCS64 ("Procedure Call Standard for the Arm 64-bit Architecture"). A
// register that an earlier call clobbered does not pass an argument.

bool arguments_are_equal(const register_relation& registers);
bool preserved_are_equal(const register_relation& registers);
bool results_are_equal(const register_relation& registers);
register_relation after_call(const register_relation& registers);

} // namespace vorna::workbench
