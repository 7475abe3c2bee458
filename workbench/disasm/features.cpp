// LLVM's tables hold a condition on features for each instruction, and sometimes an alternative ("sve or
// sme"). The condition itself is private, but the disassembler tests it for any set of features. So the
// search begins with all features and takes one away after the other, as long as the instruction stays the
// same: what cannot be taken away is needed. The order decides which of several alternatives remains.
//
// The condition belongs to the opcode, so one search for each opcode suffices. Only for system registers it
// depends on an operand, and LLVM tests it when it prints the name.

#include "workbench/disasm/features.hpp"

#include "workbench/disasm/llvm.hpp"

#include <algorithm>
#include <llvm/Support/raw_ostream.h>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace vorna::workbench {

namespace {

static_assert(feature_set().size() >= llvm::MAX_SUBTARGET_FEATURES);

struct feature {
    std::string name;
    unsigned number = 0;
    feature_set included; ///< by LLVM's rules, directly or not
};

feature_set set_of(const llvm::FeatureBitset& from)
{
    feature_set made;
    for (unsigned i = 0; i < from.size(); ++i)
        made[i] = from.test(i);
    return made;
}

llvm::FeatureBitset bits_of(const feature_set& from)
{
    llvm::FeatureBitset made;
    for (unsigned i = 0; i < made.size(); ++i) {
        if (from[i])
            made.set(i);
    }
    return made;
}

// All features, each after those that it includes. Without "all", with which LLVM decodes everything.
std::vector<feature> find_features()
{
    std::vector<feature> found;
    for (const llvm::SubtargetFeatureKV& one : the_llvm().subtarget->getAllProcessorFeatures()) {
        if (std::string_view(one.Key) != "all")
            found.push_back({one.Key, one.Value, set_of(one.Implies.getAsBitset())});
    }
    for (bool grown = true; std::exchange(grown, false);) {
        for (feature& outer : found) {
            for (const feature& inner : found) {
                if (outer.included[inner.number] && (inner.included & ~outer.included).any()) {
                    outer.included |= inner.included;
                    grown = true;
                }
            }
        }
    }
    std::sort(found.begin(), found.end(), [](const feature& a, const feature& b) {
        return std::pair(a.included.count(), a.name) < std::pair(b.included.count(), b.name);
    });
    return found;
}

const std::vector<feature>& the_features()
{
    static const std::vector<feature> found = find_features();
    return found;
}

const feature* find_feature(std::string_view name)
{
    const auto found = std::find_if(the_features().begin(), the_features().end(),
                                    [=](const feature& one) { return one.name == name; });
    return found == the_features().end() ? nullptr : &*found;
}

bool accesses_system_register(std::string_view opcode)
{
    return opcode.starts_with("MRS") || opcode.starts_with("MSR") || opcode.starts_with("SYS") ||
           opcode.starts_with("MRRS");
}

} // namespace

struct feature_search::implementation {
    explicit implementation(const feature_set& present)
        : subtarget(make_subtarget("")), context(the_llvm().make_context()),
          printer(the_llvm().make_printer()), disassembler(make_disassembler(*subtarget, *context))
    {
        const feature* const sme = find_feature("sme");
        const auto rank = [&](const feature& one) { // the highest goes first
            const bool streaming = sme != nullptr && (&one == sme || one.included[sme->number]);
            return std::pair(!present[one.number], streaming);
        };
        for (const feature& one : the_features()) {
            all.set(one.number);
            order.push_back(&one);
        }
        std::reverse(order.begin(), order.end()); // those that include most first
        std::stable_sort(order.begin(), order.end(),
                         [&](const feature* a, const feature* b) { return rank(*a) > rank(*b); });
        absent = all & ~present;
    }

    // The text of a word with these features, empty if it is not an instruction then. Only system registers
    // need the whole text.
    std::string text(std::uint32_t word, const feature_set& features, bool whole)
    {
        subtarget->setFeatureBits(bits_of(features));
        llvm::MCInst decoded;
        if (!decode_with(*disassembler, word, decoded))
            return "";
        if (!whole)
            return "decoded";
        std::string made;
        llvm::raw_string_ostream out(made);
        printer->printInst(&decoded, 0, "", *subtarget, out);
        out.flush();
        return made;
    }

    feature_set search(std::uint32_t word, bool whole)
    {
        const std::string wanted = text(word, all, whole);
        feature_set needed = all;
        for (const feature* const one : order) {
            needed.reset(one->number);
            if (text(word, needed, whole) != wanted)
                needed.set(one->number);
        }
        return needed & absent;
    }

    std::unique_ptr<llvm::MCSubtargetInfo> subtarget; // its features change during a search
    std::unique_ptr<llvm::MCContext> context;
    std::unique_ptr<llvm::MCInstPrinter> printer;
    std::unique_ptr<const llvm::MCDisassembler> disassembler; // refers to the two
    feature_set all;
    feature_set absent;
    std::vector<const feature*> order; // in which features are taken away
    std::unordered_map<std::uint32_t, feature_set> by_opcode;
    std::unordered_map<std::uint32_t, feature_set> by_word; // system registers
};

feature_search::feature_search(const feature_set& present)
    : implementation_(std::make_unique<implementation>(present))
{
}

feature_search::~feature_search() = default;

const feature_set& feature_search::missing(const instruction& instruction)
{
    static const feature_set none;
    if (!instruction.decoded)
        return none;
    implementation& search = *implementation_;
    const bool system = accesses_system_register(opcode_name(instruction.opcode));
    const auto [found, fresh] = system ? search.by_word.try_emplace(instruction.word)
                                       : search.by_opcode.try_emplace(instruction.opcode);
    if (fresh)
        found->second = search.search(instruction.word, system);
    return found->second;
}

feature_set features_of(const instruction& instruction)
{
    static std::mutex one_at_a_time;
    const std::lock_guard<std::mutex> lock(one_at_a_time);
    static feature_search search{feature_set()};
    return search.missing(instruction);
}

std::vector<std::string> feature_names(const feature_set& features)
{
    const feature* const neon = find_feature("neon");
    std::vector<std::string> names;
    for (const feature& one : the_features()) {
        if (features[one.number] && (one.name != "fp-armv8" || neon == nullptr || !features[neon->number]))
            names.push_back(one.name);
    }
    return names;
}

std::optional<feature_set> find_processor(std::string_view name)
{
    const std::string processor(name);
    if (!the_llvm().subtarget->isCPUStringValid(processor))
        return std::nullopt;
    return set_of(make_subtarget(processor)->getFeatureBits());
}

const std::vector<std::string>& processor_names()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> found;
        for (const llvm::SubtargetSubTypeKV& one : the_llvm().subtarget->getAllProcessorDescriptions())
            found.emplace_back(one.Key);
        std::sort(found.begin(), found.end());
        return found;
    }();
    return names;
}

} // namespace vorna::workbench
