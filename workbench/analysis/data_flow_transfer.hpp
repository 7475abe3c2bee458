// The transfer function of an instruction, and what it is made of.
#pragma once

#include "workbench/analysis/data_flow_state.hpp"
#include "workbench/disasm/register_effect.hpp"

#include <optional>

namespace vorna::workbench::flow {

/// Changes the state as the current instruction does. Returns false if the way ends here, or cannot be
/// followed.
bool transfer(function_context& f);

// Registers.

value get(const function_context& f, register_id r);

/// The instruction uses the value.
void use(function_context& f, register_part part, uint8_t bytes = 0xff, bool always_warning = false);
void use_register(function_context& f, register_id r, bool low_half_only, bool scalable,
                  bool always_warning = false);
/// The first parts of a vector register. One fact for all of them.
void use_parts_of(function_context& f, unsigned v, unsigned count, bool always_warning);
void use_implicit(function_context& f, const instruction& at);
void use_operands(function_context& f, const instruction& at, bool always_warning = false);

void set(function_context& f, register_part part, value v);
/// Without a finding about X18.
void set_quietly(function_context& f, register_part part, const value& v);
void set_general(function_context& f, register_id r, const value& v);
/// A scalar or a vector, which clears what is above it.
void set_vector(function_context& f, unsigned v, const value& low, const value& q, const value& z);
void set_flags(function_context& f, const instruction& at);
void define(function_context& f, register_id r, bool low_half_only, bool scalable, bool frame);
void define_operands(function_context& f, const instruction& at, bool frame);

/// Whether a source may be an address in the own frame.
bool uses_frame_address(const function_context& f, const instruction& at);

/// The value for another register. A copy of a callee-saved register saves it; of another one that nothing
/// set, it is a mistake.
value copied(function_context& f, value v, register_part from);

/// A register that is computed from its own value is still not set by anything, if it was not: in a loop,
/// this is then certain in the first iteration.
void keep_missing(function_context& f, register_part part, const value& old);

/// INS, FMOV Vd.D[1], and loads of a lane, whose address is done.
void set_lane(function_context& f, const instruction& at, operand_range operands,
              value made = make_value(computed));

// Memory.

/// Returns false for an instruction without an access.
bool access_memory(function_context& f, const instruction& at, register_effect effect);

void store(function_context& f, const frame_range& range, const value& held);

/// 8 bytes or fewer from the frame, or a scalable number.
value load(function_context& f, const frame_range& range);
void report_load(function_context& f, const frame_range& range, bool certain, bool whole, value& loaded);

/// A store to an address that is not known to be in the own frame at a known place.
void store_elsewhere(function_context& f, const value& address);

/// What a load from another place than a known one of the own frame gives.
value loaded_elsewhere(const function_context& f, const value& address);

/// A store outside the own frame uses the value. The caller's value of a callee-saved register may be saved
/// that way.
void use_stored(function_context& f, register_part part, bool always_warning);

/// The range that an address leads to, if it is in the own frame at a known place.
std::optional<frame_range> range_at(const value& address, int64_t offset, int64_t scale = 0);

/// Something may have stored in the frame, anywhere.
void lose_frame(function_context& f, unfollowed_reason reason);

void check_sp_alignment(function_context& f, register_id base_register, flow_event event);
void check_below_sp(function_context& f, const frame_range& range, const value& sp, flow_event event);

/// The address of an internal kernel that goes where calls of it are not seen.
void check_internal_address(function_context& f, register_part part);

void count_spills(function_context& f, bool load, bool store);

// Calls and returns. They return whether control continues after the instruction.

bool call(function_context& f, const instruction& at);
bool jump(function_context& f, const instruction& at);
bool leave(function_context& f, const instruction& at);
/// A branch to another kernel, or to an address in another.
bool leave_to(function_context& f, uint32_t relocation);
bool system_call(function_context& f, const instruction& at);

} // namespace vorna::workbench::flow
