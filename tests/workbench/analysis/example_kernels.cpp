// The example host's kernels, for all its lengths in both directions, have no finding.

#include "examples/wfta_host/planner.hpp"
#include "examples/wfta_host/short_dft.hpp"
#include "workbench/analysis/analyse_kernels.hpp"

#include <gtest/gtest.h>
#include <vector>

namespace {

using vorna::wfta::kernel_data;
using vorna::wfta::kernel_finding;
using wfta_host::direction;

TEST(ExampleKernels, HaveNoFindings)
{
    std::vector<kernel_data> kernels;
    for (const wfta_host::short_dft& dft : wfta_host::short_dfts())
        kernels.push_back(wfta_host::generate_short_kernel(dft));
    ASSERT_EQ(wfta_host::possible_lengths().size(), 59U);
    for (const unsigned length : wfta_host::possible_lengths()) {
        for (const direction dir : {direction::forward, direction::inverse})
            kernels.push_back(wfta_host::generate_driver_kernel(wfta_host::factors_of(length), dir));
    }
    for (const kernel_finding& finding : vorna::wfta::analyse_kernels({}, kernels))
        ADD_FAILURE() << finding.kernel << ": [" << name_of(finding.id) << "] " << finding.message;
}

} // namespace
