// If the refused relocation is known, from the dumps, the diagnosis is the finding that `check` reports for
// it: message and advice come from check/finding_text. This file picks the finding, and fills in what it
// needs from the kernel.
//
// Without a dump only the log's message is known: type, place and value or word, perhaps kernel and offset.
// Then the message has the subject as far as it is known, and the advice comes from the instruction word and
// from what the registry dump says is already linked, or asks for dumps.

#include "workbench/analysis/diagnose_abort.hpp"

#include "check/finding_text.hpp"
#include "check/format.hpp"
#include "check/nearest_name.hpp"
#include "workbench/disasm/disassembler.hpp"

#include <fmt/format.h>
#include <optional>
#include <vector>

namespace vorna::workbench {

using wfta::advice;
using wfta::finding_id;
using wfta::message_of;
using wfta::quoted;
using wfta::relocation_kind;
using wfta::relocation_site;
using wfta::relocation_subject;

namespace {

constexpr const char* how_to_dump =
    "run it again in an empty directory with VORNA_WFTA_DUMP_KERNEL= set, and give that directory with --dumps";

abort_diagnosis with_message(std::string message, advice found)
{
    return {std::move(message), std::move(found.note), std::move(found.help)};
}

/// The diagnosis if only the id is known.
abort_diagnosis diagnose_by_id(finding_id id)
{
    return {message_of(id, "a relocation"), wfta::cause_of(id), how_to_dump};
}

/// The refused relocation in its dump.
std::optional<relocation_site> site_of(const abort_location& at, const kernel_set& dumps)
{
    if (!at.dump || !at.relocation)
        return std::nullopt;
    const placed_kernel& kernel = dumps.kernels[*at.dump];
    return relocation_site{kernel.name, kernel.text, kernel.relocs, *at.relocation};
}

/// The relocation as far as it is known from the log, in a kernel whose code is unknown.
struct relocation_of_log {
    std::string kernel;
    std::vector<std::uint8_t> code;
    std::vector<tessjit::reloc_info> relocs;

    relocation_of_log(const abort_location& at, const relocation_kind& kind)
        : kernel(at.kernel.value_or("")), relocs{{at.target.value_or(""),
                                                  static_cast<std::int32_t>(at.offset.value_or(0)), kind.type,
                                                  static_cast<std::int32_t>(at.addend.value_or(0))}}
    {
    }

    [[nodiscard]] relocation_site site() const { return {kernel, code, relocs, 0}; }
};

advice advise_filled_without_dump(const abort_location& at)
{
    const filled_message& message = *at.filled;
    const relocation_kind& kind = *message.kind;
    if (at.offset && *at.offset % 4 != 0)
        return wfta::advise_field_filled(relocation_of_log(at, kind).site());
    if (!is_instruction_of(kind, message.word)) {
        disassembler disassembler;
        return wfta::advise_filled_offset(kind, disassembler.text(message.word, message.place));
    }
    if (at.already_linked)
        return wfta::advise_filled_by_link(*at.already_linked);
    advice found = wfta::advise_filled_field();
    found.help += fmt::format("; to see which, {}", how_to_dump);
    return found;
}

abort_diagnosis diagnose_filled(const abort_location& at, const std::optional<relocation_site>& site)
{
    const std::string subject =
        site ? relocation_subject(site->reloc()) : relocation_subject(at.filled->kind->type);
    return with_message(wfta::field_filled_message(subject, at.filled->word),
                        site ? wfta::advise_field_filled(*site) : advise_filled_without_dump(at));
}

abort_diagnosis diagnose_range(const abort_location& at, const std::optional<relocation_site>& site)
{
    const range_message& message = *at.out_of_range;
    const std::string subject =
        site ? relocation_subject(site->reloc())
             : relocation_subject(message.kind->type, at.target.value_or(""), at.addend.value_or(0));
    const relocation_of_log known(at, *message.kind);
    const advice found = advise_range(site ? *site : known.site(), {message.target, message.place,
                                                                    at.target && at.target_in_other_mapping});
    return with_message(wfta::range_message(subject, *message.kind, message.value), found);
}

abort_diagnosis diagnose_unknown_target(const abort_location& at, const std::optional<relocation_site>& site,
                                        const kernel_set& dumps)
{
    if (!site)
        return diagnose_by_id(finding_id::unknown_target);
    const std::string& name = site->reloc().name;
    const std::string subject = relocation_subject(site->reloc());
    if (at.target_comes_later)
        return with_message(message_of(finding_id::callee_order, subject), wfta::advise_callee_order(*site));
    const bool dumped = find_kernel(dumps, name) != nullptr;
    wfta::nearest_name_search search(name, wfta::name_candidates::misspellings);
    for (const placed_kernel& kernel : dumps.kernels) {
        if (!dumped && kernel.name != site->kernel)
            search.offer(kernel.name);
    }
    advice found = wfta::advise_unknown_target(*site, search.nearest());
    if (dumped)
        found.note =
            fmt::format("there is a dump of {}, of another run or of another registry", quoted(name));
    return with_message(message_of(finding_id::unknown_target, subject), std::move(found));
}

abort_diagnosis diagnose_foreign_data(const std::optional<relocation_site>& site, const kernel_set& dumps)
{
    if (!site)
        return diagnose_by_id(finding_id::foreign_data);
    const std::string owner = site->reloc().name.substr(data_prefix.size());
    return with_message(message_of(finding_id::foreign_data, relocation_subject(site->reloc())),
                        wfta::advise_foreign_data(*site, find_kernel(dumps, owner) != nullptr));
}

abort_diagnosis diagnose_null_target(const std::optional<relocation_site>& site)
{
    if (!site)
        return diagnose_by_id(finding_id::null_target);
    return with_message(message_of(finding_id::null_target, relocation_subject(site->reloc())),
                        wfta::advise_null_target(*site));
}

abort_diagnosis diagnose_unhandled_type(const std::optional<relocation_site>& site)
{
    if (!site)
        return diagnose_by_id(finding_id::unhandled_type);
    return with_message(message_of(finding_id::unhandled_type, relocation_subject(site->reloc())),
                        wfta::advise_unhandled_type(*site));
}

} // namespace

abort_diagnosis diagnose_abort(const abort_location& location, const kernel_set& dumps)
{
    const std::optional<relocation_site> site = site_of(location, dumps);
    if (location.filled)
        return diagnose_filled(location, site);
    if (location.out_of_range)
        return diagnose_range(location, site);
    if (location.report == "unknown-target")
        return diagnose_unknown_target(location, site, dumps);
    if (location.report == "foreign-data")
        return diagnose_foreign_data(site, dumps);
    if (location.report == "null-target")
        return diagnose_null_target(site);
    if (location.report == "unhandled-type")
        return diagnose_unhandled_type(site);
    if (location.report == "duplicate-name") {
        const wfta::finding_text text = wfta::duplicate_name_text();
        return {text.message, wfta::cause_of(finding_id::duplicate_name), text.help};
    }
    return {"a relocation was refused",
            "not known: the message in front of the registry's dump is not in the log",
            "give the whole of the log"};
}

} // namespace vorna::workbench
