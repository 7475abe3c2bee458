// The place of the PC decides what is asked: in a kernel's code the instruction and the signal, in padding or
// constants how control got there, elsewhere which kernel called what is there. A kernel that has returned
// leaves no trace in a backtrace; if it did not restore a register, a caller crashes later. So a crash
// outside all kernels is put down to the kernels that break the calling convention, if there are any.

#include "workbench/analysis/diagnose_crash.hpp"

#include "workbench/analysis/code_map.hpp"
#include "workbench/disasm/decoded_kernel.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/disasm/features.hpp"
#include "workbench/input/scanner.hpp"
#include "workbench/kernels/linking.hpp"
#include "workbench/text/counts.hpp"
#include "workbench/text/place.hpp"
#include "workbench/text/printable.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorna::workbench {

using wfta::finding_id;
using wfta::finding_severity;
using wfta::kernel_finding;

namespace {

constexpr std::size_t most_findings = 3;
constexpr std::uint64_t zero_page = 4096;                         // never mapped
constexpr std::uint64_t largest_mapping = std::uint64_t{1} << 32; // of the kernels of one call, in practice

bool breaks_calling_convention(const kernel_finding& finding)
{
    return finding.severity == finding_severity::error &&
           (finding.id == finding_id::abi_callee_saved || finding.id == finding_id::abi_stack_pointer ||
            finding.id == finding_id::abi_return_address);
}

std::string register_name(register_id number)
{
    return number == stack_pointer ? "sp" : fmt::format("x{}", number);
}

std::string features_text(const instruction& at)
{
    return fmt::format("{}", fmt::join(feature_names(features_of(at)), ", "));
}

/// The call whose return address this is; nothing if it is not one in a kernel.
std::optional<address_location> find_call(const kernel_set& set, std::uint64_t return_address)
{
    const address_location at = locate_address(set, return_address - 4);
    if (at.part != address_part::code || at.offset % 4 != 0)
        return std::nullopt;
    const placed_kernel& kernel = set.kernels[*at.kernel];
    if (!lies_within(kernel.text, at.offset))
        return std::nullopt;
    const decoded_kernel code = decode_word(word_at(kernel.text, static_cast<std::size_t>(at.offset)));
    return code.instructions.front().is_call() ? std::optional(at) : std::nullopt;
}

class diagnoser {
public:
    diagnoser(const crash_report& crash, const kernel_set& set, const std::vector<kernel_finding>& findings)
        : crash_(crash), set_(set), findings_(findings)
    {
    }

    crash_diagnosis run()
    {
        if (in_first_copy()) {
            diagnose_first_copy();
            return std::move(result_);
        }
        if (!crash_.pc || set_.kernels.empty())
            return std::move(result_);
        result_.known = true;
        find_callers();
        result_.at = locate_address(set_, *crash_.pc);
        switch (result_.at->part) {
        case address_part::code:
            diagnose_code();
            break;
        case address_part::constants:
            diagnose_constants();
            break;
        case address_part::padding:
            diagnose_padding();
            break;
        case address_part::gap:
            diagnose_gap();
            break;
        case address_part::nothing:
            diagnose_elsewhere();
            break;
        }
        choose_findings();
        return std::move(result_);
    }

private:
    [[nodiscard]] std::string signal() const { return name_of(crash_.signal); }
    [[nodiscard]] const placed_kernel& kernel() const { return set_.kernels[*result_.at->kernel]; }
    [[nodiscard]] std::string place() const { return location_text(set_, *result_.at); }

    void note(std::string text) { result_.notes.push_back(std::move(text)); }

    void find_callers()
    {
        const auto add = [this](std::uint64_t return_address, std::size_t line) {
            const std::optional<address_location> call = find_call(set_, return_address);
            const bool known =
                call && !result_.callers.empty() && result_.callers.back().location.address == call->address;
            if (call && !known)
                result_.callers.push_back({*call, line});
        };
        // A debugger without a frame description takes its first callers from X30 and the stack, or guesses.
        if (crash_.registers[link_register])
            add(*crash_.registers[link_register], crash_.line);
        for (std::size_t i = 1; i < crash_.frames.size(); ++i) {
            if (crash_.frames[i].address)
                add(*crash_.frames[i].address, crash_.frames[i].line);
        }
    }

    // ---- In a kernel's code

    void diagnose_code()
    {
        const std::int64_t offset = result_.at->offset;
        if (offset % 4 != 0) {
            result_.message = fmt::format("{} at {}: the PC is not a multiple of 4", signal(), place());
            result_.cause = "a RET or a branch to a register took a number that is not an address of code";
            return;
        }
        const std::vector<std::uint8_t> text = link_kernel(set_, kernel()).text;
        if (!lies_within(text, offset)) {
            result_.message =
                fmt::format("{} at {}: these are not four bytes, but the code ends here", signal(), place());
            return;
        }
        const std::uint32_t word = word_at(text, static_cast<std::size_t>(offset));
        word_ = decode_word(word);
        access_ = memory_access_of(word_, at());
        disassembler disassembler;
        const std::string instruction =
            at().decoded ? disassembler.text(word, *crash_.pc) : fmt::format("{:#010x}", word);
        result_.message = fmt::format("{} at {}: {}", signal(), place(), instruction);
        switch (crash_.signal) {
        case crash_signal::ill:
            return diagnose_illegal(word);
        case crash_signal::trap:
            return diagnose_trap();
        case crash_signal::bus:
            return diagnose_bus_error();
        case crash_signal::segv:
            return diagnose_segmentation_fault();
        case crash_signal::unknown:
            return;
        }
    }

    [[nodiscard]] const instruction& at() const { return word_.instructions.front(); }

    [[nodiscard]] bool accesses_memory() const
    {
        const instruction_class kind = class_of(word_, at());
        return kind == instruction_class::load || kind == instruction_class::store;
    }

    [[nodiscard]] bool is_data() const
    {
        if (kernel().text.size() > largest_decoded_code)
            return false;
        const code_map map = map_code(decode_kernel(kernel()), find_entries(set_, kernel()));
        const auto index = static_cast<std::size_t>(result_.at->offset) / 4;
        return index < map.uses.size() && map.uses[index] == word_use::data;
    }

    void diagnose_illegal(std::uint32_t word)
    {
        if (is_data()) {
            result_.cause =
                "this is data in the code, which control reached: no branch of the kernel leads here";
        } else if (word >> 16 == 0) {
            result_.cause = "UDF, which raises SIGILL: zeros in the code, where no instruction was generated";
        } else if (!at().decoded) {
            result_.cause = "this word is not an instruction";
        } else if (const std::string needed = features_text(at()); !needed.empty()) {
            result_.cause = fmt::format("the processor lacks what this instruction needs: {}", needed);
            result_.help.emplace_back(
                "generate it only where getauxval(AT_HWCAP) or AT_HWCAP2 shows the feature");
        } else {
            result_.cause = "every AArch64 processor has this instruction: the code in memory is not the "
                            "dump's, or a user's program may not execute it";
            result_.help.emplace_back("compare the word in memory with the dump's: x/xw $pc in gdb");
        }
    }

    void diagnose_trap()
    {
        if (at().flow == control_flow::trap)
            result_.cause = "the kernel has this trap in its code, and control reached it";
        else
            result_.cause = "not a trap: a breakpoint or a single step of a debugger";
    }

    // The address that the instruction accesses, if the log tells.
    [[nodiscard]] std::optional<std::uint64_t> accessed_address() const
    {
        if (crash_.fault_address)
            return crash_.fault_address;
        if (!access_ || !is_general(access_->base) || !crash_.registers[access_->base])
            return std::nullopt;
        std::uint64_t address = *crash_.registers[access_->base];
        if (access_->addressing == addressing_mode::register_index)
            return std::nullopt; // extended, and shifted
        if (access_->addressing == addressing_mode::offset ||
            access_->addressing == addressing_mode::pre_index)
            address += static_cast<std::uint64_t>(access_->offset);
        return address;
    }

    [[nodiscard]] std::string access_text() const
    {
        const std::string what = access_->load && access_->store ? "atomic access"
                                 : access_->store                ? "store"
                                                                 : "load";
        const std::string base =
            is_general(access_->base) ? " through " + register_name(access_->base) : std::string();
        return fmt::format("{}-byte {}{}", access_->bytes, what, base);
    }

    void diagnose_bus_error()
    {
        if (!access_) {
            if (!accesses_memory())
                result_.cause = "the instruction accesses no memory: the page that it is in cannot be read";
            return;
        }
        const std::optional<std::uint64_t> address = accessed_address();
        const std::optional<std::uint64_t> sp = crash_.registers[stack_pointer];
        if (access_->base == stack_pointer && (!sp || *sp % 16 != 0)) {
            result_.cause = fmt::format("SP {} not a multiple of 16, which every access through it requires",
                                        sp ? fmt::format("is {:#x},", *sp) : "is probably");
            result_.help.emplace_back("keep SP a multiple of 16 from entry to return");
        } else if (access_->faults_unaligned()) {
            const char* const kind = access_->exclusive ? "an exclusive access"
                                     : access_->atomic  ? "an atomic access"
                                                        : "a load-acquire or store-release";
            result_.cause = fmt::format(
                "{} must be aligned{}", kind,
                address ? fmt::format(", and {:#x} is not a multiple of {}", *address, access_->bytes)
                        : fmt::format(": its address is not a multiple of {}", access_->bytes));
            result_.help.emplace_back("align the data, or use a plain load or store");
        } else {
            result_.cause =
                "not an access that must be aligned: a file that is mapped has become shorter, or the "
                "memory is a device's";
        }
    }

    void diagnose_segmentation_fault()
    {
        if (!accesses_memory()) {
            result_.cause = "the instruction accesses no memory, so it could not be fetched: the kernel's "
                            "mapping was unmapped, or may not be executed";
            return;
        }
        if (access_)
            note(access_text());
        const std::optional<std::uint64_t> address = accessed_address();
        if (!address)
            return;
        const address_location target = locate_address(set_, *address);
        if (*address < zero_page) {
            result_.cause = fmt::format("the address is {:#x}: a null pointer{}", *address,
                                        access_ && is_general(access_->base)
                                            ? fmt::format(" in {}", register_name(access_->base))
                                            : "");
        } else if (target.part != address_part::nothing) {
            result_.cause =
                fmt::format("the address {:#x} is in a kernel's mapping ({}), which was unmapped or "
                            "made read-only",
                            *address, location_text(set_, target));
        } else if (access_ && access_->base == stack_pointer) {
            result_.cause =
                fmt::format("the address {:#x} is on the stack: it is full, or SP is wrong", *address);
        } else {
            result_.cause =
                fmt::format("nothing is mapped at {:#x}, or it may not be accessed in this way", *address);
        }
    }

    // ---- In a kernel's mapping, but not in code

    void diagnose_constants()
    {
        result_.message = fmt::format("{} at {}: constants were executed", signal(), place());
        explain_arrival();
    }

    void diagnose_padding()
    {
        result_.message = fmt::format("{} in {}", signal(), place());
        if (result_.at->after_constants)
            explain_arrival();
        else
            result_.cause = fmt::format("control ran past the end of {}, or a branch led there",
                                        printable(kernel().name));
    }

    void diagnose_gap()
    {
        result_.message = fmt::format("{} {}", signal(), place());
        result_.cause = "a kernel without a dump, if these are not all dumps of the process";
        result_.help.emplace_back("dump every kernel: VORNA_WFTA_DUMP_KERNEL=, with nothing after the =");
    }

    void explain_arrival()
    {
        if (crash_.registers[link_register] == crash_.pc)
            result_.cause = "X30 has this address: a RET returned here";
        else
            result_.cause = "a RET or a branch to a register led here";
    }

    // ---- Elsewhere

    void diagnose_elsewhere()
    {
        const std::uint64_t pc = *crash_.pc;
        result_.message = fmt::format("{} at {:#x}, in no kernel", signal(), pc);
        if (crash_.registers[link_register] == pc) {
            result_.cause = "X30 has this address: a RET returned here, since the return address was lost";
        } else if (lost_return_address()) {
            result_.cause = "not an address of code: a RET or a branch to a register took a wrong one";
        } else if (!result_.callers.empty()) {
            result_.cause = "a kernel called what is there";
        } else {
            result_.cause = suspicion();
        }
        if (result_.callers.empty())
            result_.help.emplace_back(
                "the dumps must be of this very process, since kernels are placed elsewhere in every run");
    }

    // Whether a kernel that has returned may be to blame.
    [[nodiscard]] std::string suspicion() const
    {
        const auto any = [this](const auto& is_it) {
            return std::any_of(findings_.begin(), findings_.end(), is_it);
        };
        if (any([](const kernel_finding& finding) { return breaks_calling_convention(finding); }))
            return "the host's own code; a kernel that has returned may have left it a wrong register or stack pointer";
        if (any([](const kernel_finding& finding) { return finding.id == finding_id::unfollowed; }))
            return "the host's own code; no kernel is known to break the calling convention, but not all code "
                   "could be followed";
        return "the host's own code, and no kernel breaks the calling convention";
    }

    // ---- In the finaliser

    // A refused mapping is at null, and so are the kernels that are copied into it.
    [[nodiscard]] bool in_first_copy() const
    {
        if (crash_.signal != crash_signal::segv || crash_.fault_address.value_or(0) > largest_mapping)
            return false;
        const auto names = [](std::string_view function) {
            return [function](const crash_frame& frame) { return contains(frame.function, function); };
        };
        const auto finaliser =
            std::find_if(crash_.frames.begin(), crash_.frames.end(), names("finalise_kernels"));
        return finaliser != crash_.frames.end() &&
               std::none_of(crash_.frames.begin(), finaliser, names("emit_single"));
    }

    void diagnose_first_copy()
    {
        result_.known = true;
        result_.message =
            fmt::format("SIGSEGV in finalise_kernels, {}at its first copy: the system refused the "
                        "mapping",
                        crash_.fault_address ? "" : "probably ");
        result_.cause =
            "the process may not have memory that is writable and executable at once, or there is "
            "none left";
        result_.help.emplace_back(
            "look for execmem in SELinux's log, MemoryDenyWriteExecute= in the service's "
            "unit, PR_SET_MDWE in the host, and ulimit -v");
    }

    // A RET led to the PC, or another branch to a number that is not an address of code.
    [[nodiscard]] bool lost_return_address() const
    {
        const std::uint64_t pc = *crash_.pc;
        return crash_.registers[link_register] == pc || pc < zero_page || pc % 4 != 0 ||
               crash_.fault_address == pc;
    }

    // ---- Findings

    // The smaller, the likelier is the finding the cause; nothing if it has nothing to do with the crash.
    [[nodiscard]] std::optional<unsigned> rank(const kernel_finding& finding) const
    {
        const address_location& at = *result_.at;
        const bool error = finding.severity == finding_severity::error;
        const bool in_kernel = at.kernel == finding.index;
        if (at.part == address_part::code && in_kernel && finding.offset == at.offset)
            return 0;
        if (at.part == address_part::padding && in_kernel && finding.id == finding_id::falls_through)
            return 0;
        const bool in_caller =
            std::any_of(result_.callers.begin(), result_.callers.end(),
                        [&](const kernel_caller& caller) { return caller.location.kernel == finding.index; });
        // Where control goes by a register, it may have gone astray.
        if (at.part == address_part::nothing && lost_return_address() && finding.id == finding_id::unfollowed)
            return 7;
        if (finding.severity == finding_severity::note)
            return std::nullopt;
        if (in_kernel)
            return error ? 1 : 3;
        if (in_caller)
            return error ? 2 : 4;
        // A kernel that has returned.
        const bool may_have_returned = at.part != address_part::code && at.part != address_part::padding;
        if (may_have_returned && breaks_calling_convention(finding))
            return lost_return_address() == (finding.id != finding_id::abi_callee_saved) ? 5 : 6;
        return std::nullopt;
    }

    void choose_findings()
    {
        std::vector<std::pair<unsigned, std::size_t>> ranked;
        for (std::size_t i = 0; i < findings_.size(); ++i) {
            if (const auto found = rank(findings_[i]))
                ranked.emplace_back(*found, i);
        }
        std::sort(ranked.begin(), ranked.end());
        for (const auto& [unused, index] : ranked) {
            if (result_.findings.size() < most_findings)
                result_.findings.push_back(index);
            else
                ++result_.more_findings;
        }
    }

    const crash_report& crash_;
    const kernel_set& set_;
    const std::vector<kernel_finding>& findings_;
    decoded_kernel word_; // the instruction at the PC, linked
    std::optional<memory_access> access_;
    crash_diagnosis result_;
};

} // namespace

crash_diagnosis diagnose_crash(const crash_report& crash, const kernel_set& dumps,
                               const std::vector<kernel_finding>& findings)
{
    return diagnoser(crash, dumps, findings).run();
}

bool meets_kernels(const crash_report& crash, const kernel_set& dumps)
{
    const auto meets = [&](const std::optional<std::uint64_t>& address) {
        return address && locate_address(dumps, *address).part != address_part::nothing;
    };
    return meets(crash.pc) || std::any_of(crash.frames.begin(), crash.frames.end(),
                                          [&](const crash_frame& frame) { return meets(frame.address); });
}

} // namespace vorna::workbench
