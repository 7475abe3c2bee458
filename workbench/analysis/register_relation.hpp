// How the registers of two kernels are related at one place in both.
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
    address,   // of the own constants or code, at known places
    page,      // what ADRP gives of such an address
    clobbered, // by a call
};

/// What a register of the one kernel has to do with a register of the other.
struct link {
    relation kind = relation::none;
    register_id partner = 0;
    bool in_code = false;    // of addresses: of the kernel's code, otherwise of its constants
    std::int64_t before = 0; // the places
    std::int64_t after = 0;
    bool returns = false; // of equal values: the address to return to

    [[nodiscard]] bool is_address() const { return kind == relation::address || kind == relation::page; }
    friend bool operator==(const link& a, const link& b) = default;
};

/// The stack, of both kernels, as far as return addresses are kept there.
struct stack_frame {
    std::optional<std::int64_t> sp = 0; // its distance from where it was on entry
    std::set<std::int64_t> returns;     // such distances of 8 bytes that hold the address to return to

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

/// Each register of the one kernel has to do with at most one of the other, and back.
class register_relation {
public:
    stack_frame stack;

    register_relation() { partners_.fill(nobody); }

    /// Each register equals the one of its name, and X30 is the address to return to.
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

    /// Keeps what both say. Whether that is less than before.
    bool meet(const register_relation& other);

private:
    static constexpr register_id nobody = 255;

    std::array<link, register_count> links_;
    std::array<register_id, register_count> partners_{}; // of the other kernel's registers
};

// By the roles of registers in the "Procedure Call Standard for the Arm 64-bit Architecture". A call that
// passes a register that an earlier call clobbered passes no argument in it.

bool arguments_are_equal(const register_relation& registers);
bool preserved_are_equal(const register_relation& registers);
bool results_are_equal(const register_relation& registers);
register_relation after_call(const register_relation& registers);

} // namespace vorna::workbench
