// The own stack frame: which bytes hold which value.
//
// A frame is a sorted list of cells. A cell is a range of bytes from a base, SP at entry or SP rounded down,
// at an offset and with a size that may both depend on the vector length. Two ranges whose distance depends
// on it overlap if they do for some vector length from 128 to 2048 bits.
//
// A store replaces the cell of the same range, cuts those that it overlaps by a known number of bytes, and
// forgets what others hold. Storing a register and loading it again keep the value, so a register is restored
// if its value at a return is its initial one.
#pragma once

#include "workbench/analysis/data_flow_values.hpp"

#include <memory>
#include <vector>

namespace vorna::workbench::flow {

constexpr size_t most_cells = 8192; // of a frame

// From base + offset + scale * VL / 8, size + size_scale * VL / 8 bytes.
struct frame_range {
    int64_t offset = 0;
    int64_t scale = 0;
    int64_t size = 0;
    int64_t size_scale = 0;
    uint8_t base = stack_pointer;
};

struct frame_cell {
    frame_range range;
    value held;
};

using frame_cells = std::vector<frame_cell>; // sorted

struct stack_frame {
    std::shared_ptr<const frame_cells> cells; // null if there are none
    bool escaped = false;                     // the address of the frame may be known elsewhere
    bool unknown_stores = false;              // something may have stored in it, at an unknown address
};

// SP rounded down: the base `aligned_base` + its number.
struct aligned_sp {
    int64_t offset; // of the value that was rounded down, from SP at entry
    int64_t scale;
    int64_t alignment;
};
using aligned_bases = std::vector<aligned_sp>;

// Where a base may be, from SP at entry.
struct base_range {
    int64_t low, high, scale;
};
base_range range_of_base(const aligned_bases& bases, uint8_t base);

// Whether it holds for an eighth of some vector length.
template <typename function>
bool for_some_length(function holds)
{
    for (int64_t eighth = 2; eighth <= 32; eighth += 2) {
        if (holds(eighth))
            return true;
    }
    return false;
}

/// Whether the range is below SP at entry, whatever the vector length.
bool is_own(const aligned_bases& bases, const frame_range& range);

enum class store_result : uint8_t {
    stored,
    base_unclear, // it may overlap cells of another base
    full          // the frame has too many cells
};

store_result store_cell(const aligned_bases& bases, bool all_given, stack_frame& frame,
                        const frame_cell& stored);

/// The cell of exactly this range, or null.
const frame_cell* find_cell(const stack_frame& frame, const frame_range& range);

struct loaded_bytes {
    value held;
    bool all = true;        // all bytes were stored on every way
    bool some = false;      // some bytes were stored on every way
    bool sometimes = false; // some bytes were stored on some ways
};

/// Loads a range that is not a cell's, 8 bytes or fewer, or a scalable number.
loaded_bytes load_bytes(const aligned_bases& bases, bool all_given, const frame_cells& cells,
                        const frame_range& range);

/// Whether the frame holds what a return needs.
bool holds_saved_values(const stack_frame& frame);

/// Marks cells with saved values that SP, raised, leaves below it to signals.
void release_cells(stack_frame& frame, const value& old_sp, const value& new_sp);

/// Removes the cells below SP: a call overwrites them.
void drop_cells_below(stack_frame& frame, const value& sp);

/// Returns whether `to` changed.
bool join_frame(const aligned_bases& bases, bool all_given, stack_frame& to, const stack_frame& from);

} // namespace vorna::workbench::flow
