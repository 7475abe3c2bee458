#include "examples/wfta_host/planner.hpp"

#include "examples/wfta_host/short_dft.hpp"

#include <algorithm>
#include <stdexcept>

using vorna::wfta::kernel_data;
using vorna::wfta::kernel_registry_map;

namespace wfta_host {

std::vector<unsigned> factors_of(unsigned length)
{
    // The largest power of a prime that divides the length must be in one factor, since factors are coprime.
    std::vector<unsigned> factors;
    unsigned rest = length;
    for (const unsigned prime : {2U, 3U, 5U, 7U}) {
        unsigned power = 1;
        while (rest != 0 && rest % prime == 0) {
            rest /= prime;
            power *= prime;
        }
        if (power != 1)
            factors.push_back(power);
    }
    std::sort(factors.begin(), factors.end());

    const auto has_short_kernel = [](unsigned factor) {
        return std::any_of(short_dfts().begin(), short_dfts().end(),
                           [factor](const short_dft& dft) { return dft.length == factor; });
    };
    if (rest != 1 || !std::all_of(factors.begin(), factors.end(), has_short_kernel))
        return {};
    return factors;
}

const std::vector<unsigned>& possible_lengths()
{
    static const std::vector<unsigned> lengths = [] {
        constexpr unsigned largest = 16 * 9 * 5 * 7;
        std::vector<unsigned> found;
        for (unsigned length = 2; length <= largest; ++length) {
            if (!factors_of(length).empty())
                found.push_back(length);
        }
        return found;
    }();
    return lengths;
}

plan make_plan(kernel_registry_map& registry, unsigned length, direction dir, const breakage* breakage,
               loop_order order)
{
    plan result{};
    result.length = length;
    result.dir = dir;
    result.factors = factors_of(length);
    if (result.factors.empty())
        throw std::invalid_argument("length " + std::to_string(length) + " is not possible");

    const std::string driver_name = driver_kernel_name(length, dir);
    if (const auto driver = registry.find(driver_name); driver != registry.end()) {
        result.reused = {driver_name};
        result.entry = driver->second.text_ptr;
        return result;
    }

    // The driver calls the short kernels, so it comes last.
    std::vector<kernel_data> kernels;
    for (const short_dft& dft : short_dfts()) {
        if (!std::count(result.factors.begin(), result.factors.end(), dft.length))
            continue;
        const std::string name = short_kernel_name(dft.length);
        if (registry.count(name) != 0)
            result.reused.push_back(name);
        else
            kernels.push_back(generate_short_kernel(dft));
    }
    void* entry = nullptr;
    kernels.push_back(generate_driver_kernel(result.factors, dir, order));
    kernels.back().entry_out = &entry;
    if (breakage != nullptr)
        breakage->apply(registry, kernels);

    vorna::wfta::finalise_kernels(registry, kernels);

    for (const kernel_data& kernel : kernels) {
        result.placed.push_back(kernel.name);
        result.code_bytes += kernel.text.size();
        result.data_bytes += kernel.data.size();
    }
    result.mapping = registry.at(kernels.front().name).text_ptr;
    result.entry = entry;
    return result;
}

} // namespace wfta_host
