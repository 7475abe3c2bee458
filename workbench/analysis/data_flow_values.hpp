// What a register part or a cell of the stack frame may hold: the lattice of the data flow, and its join.
//
// A value is one of
//
//   initial    the value of a register part at entry, plus a constant and a multiple of the vector length;
//              addresses in the own frame are the initial value of SP plus such an offset
//   aligned    the same for SP rounded down to a multiple of a power of two
//   constant   a number, or a multiple of the vector length
//   computed   another value, which nothing else is known of
//   unknown    perhaps the initial value of some register
//
// and says which of its bytes nothing has set: those of registers that a kernel is not given, those that a
// call may have changed, and cells that nothing stored.
//
// The join of different values is "computed", or "unknown" if one of them is: then the register is changed on
// at least one way. A join only loses information, and can do so a few times only, so the analysis ends.
#pragma once

#include "workbench/analysis/register_part.hpp"

#include <array>
#include <cstddef>
#include <cstdint>

namespace vorna::workbench::flow {

using std::int16_t;
using std::int32_t;
using std::int64_t;
using std::size_t;
using std::uint16_t;
using std::uint32_t;
using std::uint64_t;
using std::uint8_t;

constexpr uint32_t no_index = ~uint32_t{0};

// What a value is; smaller numbers are the register part whose initial value it is.
enum base : uint8_t {
    aligned_base = 160, // and the numbers after it: SP rounded down
    constant = 200,
    computed,
    unknown,
    absent,      // of a cell: on some way nothing stored it
    link_signed, // X30 signed with key A for SP + offset
    link_signed_b,
    kernel_address, // the target of a relocation; `offset` is its number
    kernel_page,
    own_address, // in the kernel's own code
    sp_differs,  // SP has different offsets on different ways; `offset` is what was added since they joined,
                 // `last` is where
};

struct value {
    int32_t offset = 0;
    int16_t scale = 0; // multiples of an eighth of the vector length
    uint8_t what = computed;
    uint8_t missing = 0; // bytes that nothing set, on some way
    bool certain = true; // on every way
    bool frame = false;  // may be an address in the own frame
    bool mixed = false;  // joined from the initial value of the part and another one
    bool from_frame = false;
    bool stale = false;   // of a cell: it was below SP since it was stored
    bool derived = false; // computed from the initial value of a callee-saved register
    // Parts whose initial value it may be, the first two, if it was joined from these; otherwise part_count.
    std::array<register_part, 2> may_be_initial = {part_count, part_count};
    uint32_t first = no_index; // the instruction since which the part does not have its initial value
    uint32_t last = no_index;  // the last that set it

    bool operator==(const value&) const = default;

    [[nodiscard]] bool same_as(const value& other) const
    {
        return what == other.what && offset == other.offset && scale == other.scale;
    }

    [[nodiscard]] bool is_initial_of(size_t part) const { return what == part && offset == 0 && scale == 0; }
};

inline value make_value(uint8_t what)
{
    value made;
    made.what = what;
    return made;
}
value make_value(uint8_t what, int64_t offset, int64_t scale = 0);

inline bool is_initial(const value& v)
{
    return v.what < part_count;
}

inline bool is_frame_address(const value& v)
{
    return v.what == stack_pointer || (v.what >= aligned_base && v.what < constant);
}

inline bool may_be_frame_address(const value& v)
{
    return v.frame || is_frame_address(v) || v.what == sp_differs;
}

/// The caller's value of a callee-saved register, perhaps plus a constant.
inline bool is_saved_value(const value& v)
{
    return is_initial(v) && is_saved_part(v.what);
}

/// What a kernel is given. Whether it may use the upper parts of V0 to V7, and P0 to P3, is for its callers
/// to know: they are given if they are arguments.
const part_set& given_parts();

/// The bytes of a value that nothing set.
inline uint8_t missing_of(const value& v, bool all_given)
{
    if (is_initial(v) && !all_given && !given_parts()[v.what])
        return 0xff;
    return v.missing;
}

/// Joins `from` into `to`, the value of `part` (part_count for a cell) at the beginning of the block at the
/// instruction `here`. Returns whether `to` changed.
bool join_value(value& to, const value& from, size_t part, bool all_given, uint32_t here = no_index);

/// The sum of a value, a constant, and a multiple of an eighth of the vector length.
value added(const value& from, int64_t constant_part, int64_t scale);

} // namespace vorna::workbench::flow
