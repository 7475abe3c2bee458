// The two classes of differences that lockstep.cpp can prove harmless. The proof sees one kernel at a time,
// so what other kernels do with it is excluded here: nobody may read its code, and if others address its
// constants, these must not have changed. Calls into the middle of its code are entries of the proof.

#include "workbench/analysis/equivalence.hpp"

#include "workbench/analysis/canonical_code.hpp"
#include "workbench/analysis/lockstep.hpp"

namespace vorna::workbench {

bool only_layout_differs(const decoded_kernel& before, const decoded_kernel& after, const outside_uses& uses)
{
    return !uses.of_code && (!uses.of_data || before.kernel->data == after.kernel->data) &&
           compute_the_same(before, after, uses.entries, difference_of::layout);
}

bool only_registers_differ(const decoded_kernel& before, const decoded_kernel& after,
                           const outside_uses& uses)
{
    return !uses.of_code && before.kernel->data == after.kernel->data &&
           equal_references(relocations_by_place(*before.kernel), relocations_by_place(*after.kernel)) &&
           compute_the_same(before, after, uses.entries, difference_of::registers);
}

} // namespace vorna::workbench
