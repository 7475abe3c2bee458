#include "workbench/analysis/calling_convention.hpp"

#include "check/format.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"

#include <fmt/format.h>
#include <string>

namespace vorna::workbench {

namespace {

using severity = wfta::finding_severity;
using wfta::finding_id;

register_set registers(register_id first, register_id last)
{
    register_set made;
    for (unsigned r = first; r <= last; ++r)
        made.set(r);
    return made;
}

bool is_within(register_part part, register_part first, register_part last)
{
    return part >= first && part <= last;
}

std::string at_index(std::size_t index)
{
    return signed_hex(static_cast<std::int64_t>(4 * index));
}

// ", by the branch at +0x40, taken"
std::string way_text(const std::optional<branch_way>& way)
{
    if (!way)
        return {};
    return fmt::format(", by the branch at {}, {}", at_index(way->index), way->taken ? "taken" : "not taken");
}

class reporter {
public:
    reporter(const decoded_kernel& code, const code_map& map, const kernel_flow& flow,
             call_convention convention,
             const std::function<const call_effect*(std::size_t relocation)>& effect_of,
             wfta::finding_list& findings)
        : code_(code), map_(map), flow_(flow), convention_(convention), effect_of_(effect_of),
          findings_(findings)
    {
    }

    void run()
    {
        if (convention_ != call_convention::none) {
            for (const flow_exit& exit : flow_.exits)
                report_exit(exit);
            for (const flow_fact& fact : flow_.facts)
                report_fact(fact);
        }
        report_unreachable();
    }

private:
    void add(finding_id id, severity level, std::size_t index, const std::string& cause, std::string message,
             std::string note, std::string help)
    {
        findings_.add(id, level, false, {}, static_cast<std::int64_t>(4 * index), cause,
                      {std::move(message), std::move(note), std::move(help)});
    }

    // Returns.

    // How a change of the part is to be reported; nothing if it need not be preserved.
    [[nodiscard]] std::optional<severity> level_of(register_part part) const
    {
        if (is_within(part, general_register(19), general_register(29)) ||
            is_within(part, low_half(8), low_half(15)))
            return severity::error;
        const bool with_sve = is_within(part, low_half(16), low_half(23)) ||
                              is_within(part, rest_of_q(8), rest_of_q(23)) ||
                              is_within(part, rest_of_z(8), rest_of_z(23)) ||
                              is_within(part, predicate_part(4), predicate_part(15));
        if (!with_sve)
            return std::nullopt;
        for (unsigned p = 0; p <= 3; ++p) {
            if (flow_.reads[predicate_part(p)])
                return severity::error;
        }
        for (unsigned v = 0; v <= 7; ++v) {
            if (flow_.reads[rest_of_z(v)])
                return severity::warning;
        }
        return std::nullopt;
    }

    [[nodiscard]] std::string exit_text(const flow_exit& exit) const
    {
        return (exit.tail_call ? "the branch to another kernel at " : "the return at ") +
               at_index(exit.index);
    }

    void report_exit(const flow_exit& exit)
    {
        if (exit.local)
            return; // a subroutine may have a convention of its own
        for (const changed_part& changed : exit.changed) {
            if (changed.part == stack_pointer)
                report_sp(exit, changed);
            else if (convention_ == call_convention::aapcs64 && changed.known)
                report_changed(exit, changed);
        }
        if (exit.returns_elsewhere)
            report_link(exit);
    }

    void report_changed(const flow_exit& exit, const changed_part& changed)
    {
        const std::optional<severity> level = level_of(changed.part);
        if (!level)
            return;
        const std::string cause = std::to_string(register_of_part(changed.part));
        std::string name = name_of_part(changed.part);
        if (is_within(changed.part, low_half(16), low_half(23)) ||
            is_within(changed.part, rest_of_q(0), rest_of_z(0) - 1))
            name[0] = 'z';
        std::string note;
        if (changed.loaded) {
            note =
                fmt::format("the load at {} does not restore it: {} was not saved there, or was overwritten",
                            at_index(*changed.loaded), name);
        }
        const bool general = changed.part < 32;
        const char* const other = general                                       ? "x9 to x15"
                                  : changed.part >= predicate_part(0)           ? "p0 to p3"
                                  : *level == severity::error && name[0] == 'd' ? "v16 to v31"
                                                                                : "z24 to z31";
        add(finding_id::abi_callee_saved, *level, changed.changed, cause,
            fmt::format("changes {}, which is not restored at {}{}", name, exit_text(exit),
                        way_text(changed.way)),
            std::move(note),
            fmt::format("save {} before and restore it from there, or use one of {}", name, other));
    }

    void report_sp(const flow_exit& exit, const changed_part& changed)
    {
        if (!changed.known)
            return; // unfollowed
        std::string message;
        if (changed.difference) {
            message = fmt::format("SP is {} {} its value at entry",
                                  pluralize(static_cast<std::size_t>(std::abs(*changed.difference)), "byte"),
                                  *changed.difference < 0 ? "below" : "above");
        } else {
            message = "SP is not what it was at entry";
        }
        add(finding_id::abi_stack_pointer, severity::error, exit.index, "return",
            message + fmt::format(" at this {}{}; changed at {}",
                                  exit.tail_call ? "branch to another kernel" : "return",
                                  way_text(changed.way), at_index(changed.changed)),
            {}, "release on every way what is allocated");
    }

    void report_link(const flow_exit& exit)
    {
        const changed_part* link = nullptr;
        for (const changed_part& changed : exit.changed) {
            if (changed.part == exit.link)
                link = &changed;
        }
        if (link != nullptr && !link->known)
            return; // unfollowed
        const std::string name = name_of_part(exit.link);
        std::string message =
            exit.tail_call
                ? fmt::format("branches to another kernel, but {} is not the address of the caller", name)
                : fmt::format("returns to {}, which is not the address of the caller", name);
        std::string note;
        if (link != nullptr && exit.link == link_register) {
            const instruction& at = code_.instructions[link->changed];
            message += fmt::format(": the {} at {} changed it{}", at.is_call() ? "call" : "instruction",
                                   at_index(link->changed), way_text(link->way));
            if (link->loaded) {
                note = fmt::format(
                    "the load at {} does not restore it: x30 was not saved there, or was overwritten",
                    at_index(*link->loaded));
            }
        }
        add(finding_id::abi_return_address, severity::error, exit.index, name, std::move(message),
            std::move(note), "save x30 before the first call and restore it before the return");
    }

    // Facts.

    void report_fact(const flow_fact& fact)
    {
        const severity level = fact.certain && !is_kept_by_callee(fact) ? severity::error : severity::warning;
        switch (fact.event) {
        case flow_event::reads_unset:
            report_read(fact, level);
            break;
        case flow_event::loads_unset:
            add(finding_id::reads_unset, level, fact.index, "frame" + std::to_string(fact.offset),
                fmt::format("loads {}from {} SP at entry, {}",
                            fact.size > 0 ? pluralize(static_cast<std::size_t>(fact.size), "byte") + " " : "",
                            fact.offset < 0
                                ? pluralize(static_cast<std::size_t>(-fact.offset), "byte") + " below"
                                : "below",
                            !fact.whole    ? "which nothing has stored completely"
                            : fact.certain ? "which nothing has stored"
                                           : "which is not stored on every way"),
                {}, "store there first, or correct the offset");
            break;
        case flow_event::exports_saved:
            add(finding_id::reads_unset, severity::warning, fact.index, "export",
                fmt::format("stores {}, which holds a value of the caller's, outside the own stack frame",
                            name_of_part(fact.part)),
                {}, "save it in the own stack frame: whether it is restored from elsewhere is not followed");
            break;
        case flow_event::writes_platform_register:
            if (convention_ == call_convention::aapcs64 || convention_ == call_convention::internal)
                add(finding_id::abi_platform_register, severity::warning, fact.index, {},
                    "writes x18, which belongs to the platform", {}, "use one of x9 to x15");
            break;
        case flow_event::stores_below_sp:
            add(finding_id::abi_below_stack, severity::warning, fact.index, {},
                "stores below SP, where a signal may overwrite it", {}, "lower SP first");
            break;
        case flow_event::loads_below_sp:
            add(finding_id::abi_below_stack, severity::warning, fact.index, "load",
                "loads what is or was below SP, where a signal may have overwritten it", {},
                "raise SP after the load");
            break;
        case flow_event::passes_saved:
            add(finding_id::reads_unset, severity::warning, fact.index, "passed",
                fmt::format("calls with a value of the caller's, that of {}, in an argument register",
                            name_of_part(fact.part)),
                {}, "set the argument before the call");
            break;
        case flow_event::unaligned_sp:
            add(finding_id::abi_stack_pointer, severity::error, fact.index, "alignment",
                "accesses memory through SP, which is not a multiple of 16 here", {},
                "change SP by multiples of 16 only");
            break;
        case flow_event::unaligned_sp_call:
            add(finding_id::abi_stack_pointer, severity::warning, fact.index, "alignment of call",
                "calls, and SP is not a multiple of 16 here", {}, "change SP by multiples of 16 only");
            break;
        case flow_event::unfollowed:
            report_unfollowed(fact);
            break;
        case flow_event::saves:
            break;
        }
    }

    // Whether a register that a call may have changed is not changed by the callee as it is.
    [[nodiscard]] bool is_kept_by_callee(const flow_fact& fact) const
    {
        if (fact.event != flow_event::reads_unset || !fact.changed || !effect_of_)
            return false;
        const instruction& call = code_.instructions[*fact.changed];
        if (call.flow != control_flow::call || call.relocated != word_relocation::fits)
            return false;
        const call_effect* const effect = effect_of_(call.relocation);
        return effect != nullptr && effect->followed && !effect->changes[fact.part];
    }

    void report_read(const flow_fact& fact, severity level)
    {
        const bool flags = fact.part == flags_part;
        const std::string name = flags ? "the condition flags" : name_of_whole(fact.part);
        const instruction& at = code_.instructions[fact.index];
        std::string what = at.is_call() ? "calls a kernel that reads " + name : "reads " + name;
        if (fact.source)
            what += ", which comes from " + name_of_whole(*fact.source);
        const bool after_call = fact.changed && code_.instructions[*fact.changed].is_call();
        const std::string lacks =
            !fact.whole ? fmt::format("part of which {}",
                                      after_call ? "the call at " + at_index(*fact.changed) + " changed"
                                                 : "nothing has set")
            : after_call && !fact.way
                ? fmt::format("which the call at {} {}", at_index(*fact.changed), "may have changed")
            : fact.everywhere
                ? std::string("which nothing has set")
                : fmt::format("which {} not set on every way{}", flags ? "are" : "is", way_text(fact.way));
        const register_part unset = fact.source.value_or(fact.part);
        const bool saved = preserved_registers()[register_of_part(unset)] && !after_call;
        std::string help = flags ? "set them before, with SUBS or another instruction that sets flags"
                           : after_call
                               ? "keep the value in a register that calls preserve, or in the stack frame"
                           : saved ? "set it before: here it has a value of the caller's"
                                   : "set it before";
        add(flags ? finding_id::reads_flags_unset : finding_id::reads_unset, level, fact.index,
            name + (level == severity::error ? "" : " perhaps") + (fact.whole ? "" : " part"),
            what + ", " + lacks, {}, std::move(help));
    }

    static std::string name_of_whole(register_part part)
    {
        std::string name = name_of_part(part);
        if (is_within(part, low_half(0), rest_of_q(31)))
            name[0] = 'v';
        return name;
    }

    void report_unfollowed(const flow_fact& fact)
    {
        const auto text = [&]() -> std::pair<const char*, const char*> {
            switch (fact.reason) {
            case unfollowed_reason::none:
                break;
            case unfollowed_reason::unknown_word:
                return {"is not an instruction that is known here", ""};
            case unfollowed_reason::unknown_effects:
                return {"has effects that are not known here", ""};
            case unfollowed_reason::relocation:
                return {"has relocations that are not for this instruction", ""};
            case unfollowed_reason::jump:
                return {"branches to an address in a register", ""};
            case unfollowed_reason::outside:
                return {"branches out of the code without a relocation", ""};
            case unfollowed_reason::other_branch:
                return {"is a branch that is not followed", ""};
            case unfollowed_reason::local_call:
                return {"calls a part of the kernel's own code that cannot be followed", ""};
            case unfollowed_reason::callee:
                return {"calls an internal kernel that was not followed", ""};
            case unfollowed_reason::frame_store:
                return {"may store anywhere in the own stack frame", "saved registers"};
            case unfollowed_reason::escaped_store:
                return {"may write to the own stack frame, whose address was passed on", "saved registers"};
            case unfollowed_reason::sp:
                return {"leaves with a value of SP that is not known here", ""};
            case unfollowed_reason::restores_from_elsewhere:
                return {"returns, and may have restored a register from where it is not followed",
                        "saved registers"};
            case unfollowed_reason::too_large:
                return {"has too many branches or stack slots", ""};
            }
            return {"", ""};
        }();
        const bool frame = *text.second != '\0';
        add(finding_id::unfollowed, severity::note, fact.index, frame ? text.second : text.first,
            fmt::format("{}: {}", text.first,
                        frame ? "that saved registers stay what they are is not checked"
                              : "what comes after it is not checked"),
            {}, {});
    }

    void report_unreachable()
    {
        if (map_.any_entry)
            return;
        const std::size_t words = code_.instructions.size();
        for (std::size_t begin = 0; begin < words; ++begin) {
            if (map_.uses[begin] != word_use::unknown)
                continue;
            std::size_t end = begin;
            bool entered = false;
            std::size_t last = begin; // that is not padding
            bool any = false;
            for (; end < words && map_.uses[end] == word_use::unknown; ++end) {
                entered = entered || map_.entries[end];
                const std::uint32_t word = code_.instructions[end].word;
                if (word == 0 || word == nop)
                    continue;
                if (!any)
                    begin = end;
                any = true;
                last = end;
            }
            if (any && !entered) {
                add(finding_id::unreachable_code, severity::note, begin, {},
                    fmt::format("no way leads to {} from here, and nothing reads {}",
                                last == begin ? "the instruction"
                                              : fmt::format("{} instructions", last + 1 - begin),
                                last == begin ? "it" : "them"),
                    {}, "delete it, or correct the branch that should lead here");
            }
            begin = end;
        }
    }

    static constexpr std::uint32_t nop = 0xd503201f;

    const decoded_kernel& code_;
    const code_map& map_;
    const kernel_flow& flow_;
    call_convention convention_;
    const std::function<const call_effect*(std::size_t relocation)>& effect_of_;
    wfta::finding_list& findings_;
};

} // namespace

const register_set& given_registers()
{
    static const register_set given = argument_registers() | registers(general_register(29), link_register) |
                                      register_set().set(stack_pointer);
    return given;
}

const register_set& preserved_registers()
{
    static const register_set preserved = registers(general_register(19), general_register(29)) |
                                          registers(vector_register(8), vector_register(15)) |
                                          register_set().set(stack_pointer);
    return preserved;
}

const register_set& argument_registers()
{
    static const register_set arguments = registers(general_register(0), general_register(8)) |
                                          registers(vector_register(0), vector_register(7));
    return arguments;
}

void find_convention_findings(const decoded_kernel& code, const code_map& map, const kernel_flow& flow,
                              call_convention convention,
                              const std::function<const call_effect*(std::size_t relocation)>& effect_of,
                              wfta::finding_list& findings)
{
    reporter(code, map, flow, convention, effect_of, findings).run();
}

} // namespace vorna::workbench
