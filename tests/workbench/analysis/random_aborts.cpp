// A thousand random sets of kernels, each broken at a known place, abort a forked child. Its stderr, with and
// without its dumps, must lead back to this place.

#include "check/check_kernels.hpp"
#include "tests/support/a64.hpp"
#include "tests/support/aborts.hpp"
#include "tests/support/child.hpp"
#include "tests/support/kernels.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/temp_directory.hpp"
#include "workbench/input/dumps.hpp"

#include <csignal>
#include <gtest/gtest.h>
#include <random>
#include <regex>
#include <set>
#include <sys/mman.h>

namespace {

namespace a64 = support::a64;
using support::address;
using support::explain;
using support::explained_abort;
using vorna::wfta::kernel_data;
using vorna::wfta::kernel_registry_map;
using vorna::workbench::dumps_of_process;

// Starting a child is about ten times slower with sanitizers.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const std::size_t rounds = 150;
#else
const std::size_t rounds = support::test_size(200, 1000);
#endif

// What the test broke, and what the explanation must therefore say.
struct broken_place {
    std::string report;
    std::string kernel;
    std::size_t relocation = 0;
    tessjit::reloc_info reloc;
    bool distance_too_far = false;
};

struct random_host {
    kernel_registry_map registry; // entries that the host made itself
    std::vector<std::vector<kernel_data>> calls;
    broken_place broken;
};

class host_generator {
public:
    explicit host_generator(std::mt19937& random) : random_(random) {}

    random_host make()
    {
        const std::size_t calls = number(1, 3);
        for (std::size_t call = 0; call < calls; ++call)
            add_call();
        break_somewhere();
        return std::move(host_);
    }

private:
    std::size_t number(std::size_t least, std::size_t greatest)
    {
        return std::uniform_int_distribution<std::size_t>(least, greatest)(random_);
    }

    template <typename Container>
    auto& one_of(Container&& values)
    {
        return values[number(0, std::size(values) - 1)];
    }

    std::string new_name()
    {
        static constexpr const char* names[] = {"wfta_",        "wfta short ",    "tab\tin\t",
                                                "  blank",      "line\nof ",      "line\n  of ",
                                                "\xc3\xa9\xff", "a \t 0x10 0x20 "};
        // Half of them resemble those of real generators.
        const std::string name = number(0, 1) == 0 ? names[0] : one_of(names);
        std::string unique = name + std::to_string(names_.size());
        if (number(0, 9) == 0)
            unique += " \t ";
        names_.push_back(unique);
        return unique;
    }

    static std::uint32_t instruction(int type)
    {
        return type == R_AARCH64_ADR_PREL_LO21      ? a64::adr(3)
               : type == R_AARCH64_ADR_PREL_PG_HI21 ? a64::adrp(3)
               : type == R_AARCH64_ADD_ABS_LO12_NC  ? a64::add(3, 3, 0)
                                                    : a64::bl();
    }

    static void put(kernel_data& kernel, std::int64_t offset, std::uint32_t word)
    {
        std::memcpy(kernel.text.data() + offset, &word, sizeof word);
    }

    // An offset in the kernel without a relocation.
    std::int32_t free_offset(const kernel_data& kernel)
    {
        std::set<std::int32_t> taken;
        for (const auto& reloc : kernel.relocs)
            taken.insert(reloc.offset);
        std::int32_t offset = 0;
        do {
            offset = static_cast<std::int32_t>(4 * number(0, kernel.text.size() / 4 - 1));
        } while (taken.contains(offset));
        return offset;
    }

    void add_call()
    {
        std::vector<kernel_data>& kernels = host_.calls.emplace_back();
        const std::size_t count = number(1, 8);
        std::vector<std::string> callees;
        for (std::size_t k = 0; k < count; ++k) {
            kernel_data kernel{nullptr, new_name(), {}, {}, {}};
            const std::size_t words = number(0, 9) == 0 ? number(1000, 3000) : number(12, 60);
            kernel.text = support::code(std::vector<std::uint32_t>(words, a64::nop()));
            kernel.data.assign(number(0, 5) == 0 ? 0 : number(1, 120), 0x2a);
            callees.push_back(kernel.name);
            const std::size_t relocs = number(0, 4);
            for (std::size_t r = 0; r < relocs; ++r) {
                const int type = one_of(types_);
                const bool data = type != R_AARCH64_CALL26 && number(0, 1) == 0;
                const std::int32_t offset = free_offset(kernel);
                put(kernel, offset, instruction(type));
                // X of a call: a multiple of 4, and not 0.
                const int addend = type == R_AARCH64_CALL26 ? 0 : static_cast<int>(number(0, 8));
                kernel.relocs.push_back(
                    {data ? ".rodata." + kernel.name : one_of(callees), offset, type, addend});
            }
            kernels.push_back(std::move(kernel));
        }
    }

    // An address far from all mappings.
    std::uint64_t far_address() { return 0x1000'0000'0000 + 64 * number(0, 1000); }

    void break_with(kernel_data& kernel, const std::string& report, tessjit::reloc_info reloc)
    {
        const std::size_t index = number(0, kernel.relocs.size());
        kernel.relocs.insert(kernel.relocs.begin() + static_cast<std::ptrdiff_t>(index), reloc);
        host_.broken = {report, kernel.name, index, std::move(reloc), false};
    }

    std::vector<std::string> names_in_front_of(const kernel_data& kernel) const
    {
        std::vector<std::string> names;
        for (const auto& call : host_.calls) {
            for (const kernel_data& other : call) {
                if (&other == &kernel)
                    return names;
                names.push_back(other.name);
            }
        }
        return names;
    }

    void break_somewhere()
    {
        std::vector<kernel_data>& kernels = one_of(host_.calls);
        const std::size_t k = number(0, kernels.size() - 1);
        kernel_data& kernel = kernels[k];
        const std::int32_t offset = free_offset(kernel);
        const int type = one_of(types_);
        const auto addend = static_cast<std::int32_t>(4 * number(0, 3));
        switch (number(0, 8)) {
        case 0: { // a duplicate name
            host_.broken.report = "duplicate-name";
            const std::vector<std::string> taken = names_in_front_of(kernel);
            if (taken.empty())
                host_.registry[kernel.name] = {address(0x10000), 4, address(0x10020), 0};
            else
                kernel.name = one_of(taken);
            return;
        }
        case 1: // nowhere, or later in the set
            put(kernel, offset, instruction(type));
            return break_with(
                kernel, "unknown-target",
                {k + 1 < kernels.size() && number(0, 1) == 0 ? kernels[k + 1].name : one_of(names_) + "x",
                 offset, type, addend});
        case 2:
            put(kernel, offset, instruction(type));
            return break_with(
                kernel, "foreign-data",
                {".rodata." + (number(0, 1) == 0 ? "x" : one_of(names_)) + "y", offset, type, addend});
        case 3:
            put(kernel, offset, instruction(type));
            host_.registry["null one"] = {nullptr, 0, nullptr, 0};
            return break_with(kernel, "null-target", {"null one", offset, type, addend});
        case 4:
            put(kernel, offset, instruction(type));
            return break_with(kernel, "unhandled-type",
                              {kernel.name, offset, static_cast<int>(number(284, 400)), addend});
        case 5: { // the relocation of another instruction, or a field with a bit set
            const std::uint32_t masks[] = {0x60ffffe0, 0x60ffffe0, 0x3ffc00, 0x1ffffff};
            const std::size_t kind = number(0, 3);
            std::uint32_t bit = 0;
            do {
                bit = std::uint32_t{1} << number(0, 31);
            } while ((masks[kind] & bit) == 0);
            put(kernel, offset, number(0, 1) == 0 ? a64::ret() : instruction(types_[kind]) | bit);
            return break_with(
                kernel, "field-filled",
                {number(0, 1) == 0 ? kernel.name : ".rodata." + kernel.name, offset, types_[kind], addend});
        }
        case 6: { // twice: the first lets a field that is not zero
            const std::int32_t two = free_offset(kernel);
            put(kernel, two, a64::adr(3));
            const tessjit::reloc_info reloc{kernel.name, two, R_AARCH64_ADR_PREL_LO21, two + 4};
            break_with(kernel, "field-filled", reloc);
            kernel.relocs.insert(kernel.relocs.begin(), reloc);
            ++host_.broken.relocation;
            return;
        }
        case 7: { // out of range
            host_.registry["far away"] = {address(far_address()), 64, address(far_address() + 4096), 8};
            const int relative = types_[number(0, 2) == 2 ? 3 : number(0, 1)];
            put(kernel, offset, instruction(relative));
            break_with(kernel, "range", {"far away", offset, relative, addend});
            host_.broken.distance_too_far = true;
            return;
        }
        default: { // a call between two instructions
            put(kernel, offset, a64::bl());
            return break_with(
                kernel, "range",
                {kernel.name, offset, R_AARCH64_CALL26, static_cast<int>(number(0, 3)) * 4 + 2});
        }
        }
    }

    static constexpr int types_[] = {R_AARCH64_ADR_PREL_LO21, R_AARCH64_ADR_PREL_PG_HI21,
                                     R_AARCH64_ADD_ABS_LO12_NC, R_AARCH64_CALL26};
    std::mt19937& random_;
    random_host host_;
    std::vector<std::string> names_;
};

// The size of the set's mapping.
std::size_t mapping_length(const std::vector<kernel_data>& kernels)
{
    std::size_t length = 0;
    for (const kernel_data& kernel : kernels)
        length += (kernel.text.size() + 31) / 32 * 32 + kernel.data.size();
    return length;
}

// Runs the host in a child that dumps all kernels into the directory, and returns its stderr. Children use
// the same addresses unless these are occupied.
std::string end_in_child(const random_host& host, const std::filesystem::path& directory,
                         bool elsewhere = false)
{
    const support::child_result child = support::run_with_dumps(
        [&] {
            for (std::size_t call = 0; elsewhere && call < host.calls.size(); ++call) {
                EXPECT_NE(mmap(nullptr, mapping_length(host.calls[call]), PROT_NONE,
                               MAP_PRIVATE | MAP_ANONYMOUS, -1, 0),
                          MAP_FAILED);
            }
            kernel_registry_map registry = host.registry;
            for (const auto& kernels : host.calls)
                finalise_kernels(registry, kernels);
        },
        directory);
    EXPECT_EQ(child.signal, SIGABRT) << child;
    return child.err;
}

dumps_of_process read(const std::filesystem::path& directory)
{
    vorna::workbench::dump_reading reading = vorna::workbench::read_dumps({directory.string()});
    EXPECT_EQ(reading.errors, std::vector<std::string>());
    dumps_of_process dumps{std::move(reading.set), {}};
    for (const auto& kernel : dumps.set.kernels)
        dumps.written.push_back(std::filesystem::last_write_time(kernel.file).time_since_epoch().count());
    return dumps;
}

// Adds other lines around the report and, unless a name contains newlines, between its lines.
std::string with_noise(const std::string& report, bool between, std::mt19937& random)
{
    static constexpr const char* noise[] = {
        "[ RUN      ] Fft.Plan\n",
        "  indented 0x10 0x20\n",
        "\n",
        "thread 2: resolving names\n",
        "=================================================================\n==12345==ERROR: AddressSanitizer: ABRT on unknown address 0x03e8 (pc 0x7f T0)\n    #0 0x7ffff in abort (/lib/libc.so.6+0x2)\n",
        "host: main.cpp:3: int main(): Assertion `false' failed.\n"};
    const auto lines = [&] {
        std::string text;
        for (auto count = random() % 3; count != 0; --count)
            text += noise[random() % std::size(noise)];
        return text;
    };
    std::string text = lines();
    for (std::size_t begin = 0; begin < report.size();) {
        const std::size_t end = report.find('\n', begin) + 1;
        text += report.substr(begin, end - begin);
        begin = end;
        if (between)
            text += lines();
    }
    return text + lines() + "qemu: uncaught target signal 6 (Aborted) - core dumped\n";
}

bool has_message(const broken_place& broken)
{
    return broken.report == "field-filled" || broken.report == "range";
}

void expect_whole_place(const explained_abort& found, const broken_place& broken)
{
    EXPECT_EQ(found.report, broken.report);
    EXPECT_NE(found.message, "");
    EXPECT_NE(found.help, "");
    if (broken.report == "duplicate-name")
        return; // the refused kernel was not dumped
    EXPECT_EQ(found.kernel, broken.kernel);
    EXPECT_EQ(found.offset, broken.reloc.offset);
    EXPECT_EQ(found.relocation, broken.relocation);
    EXPECT_EQ(found.type, broken.reloc.type);
    EXPECT_EQ(found.target, broken.reloc.name);
    EXPECT_EQ(found.addend, broken.reloc.addend);
}

void expect_place_of_message(const explained_abort& found, const broken_place& broken)
{
    EXPECT_EQ(found.report, broken.report);
    EXPECT_NE(found.message, "");
    EXPECT_NE(found.help, "");
    if (!has_message(broken))
        return;
    EXPECT_EQ(found.type, broken.reloc.type);
    if (broken.kernel.find("\n  ") != std::string::npos)
        return; // as a line of another program and a kernel's line would read
    EXPECT_EQ(found.kernel, broken.kernel);
    if (broken.report == "range" && broken.reloc.type == R_AARCH64_ADR_PREL_PG_HI21) {
        EXPECT_EQ(found.target, broken.reloc.name); // its page holds nothing else
        return;
    }
    EXPECT_EQ(found.offset, broken.reloc.offset);
    if (broken.report == "range") {
        EXPECT_EQ(found.target, broken.reloc.name);
        EXPECT_EQ(found.addend, broken.reloc.addend);
    }
}

TEST(RandomAborts, AreLocated)
{
    const unsigned seed = support::random_seed();
    std::mt19937 random(seed);
    for (std::size_t round = 0; round < rounds && !HasFailure(); ++round) {
        const random_host host = host_generator(random).make();
        bool newlines = false;
        for (const auto& call : host.calls) {
            for (const kernel_data& kernel : call)
                newlines = newlines || kernel.name.find('\n') != std::string::npos;
        }
        const support::temp_directory directory;
        const std::string err = end_in_child(host, directory.path());
        const std::string log = with_noise(err, !newlines, random);
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", round " << round << "\n" << log);

        {
            SCOPED_TRACE("without dumps");
            expect_place_of_message(explain(log, {}), host.broken);
        }
        {
            SCOPED_TRACE("with dumps");
            expect_whole_place(explain(log, read(directory.path())), host.broken);
        }
        {
            SCOPED_TRACE("with dumps, copied: the files' times say nothing");
            dumps_of_process dumps = read(directory.path());
            dumps.written.clear();
            expect_whole_place(explain(log, dumps), host.broken);
        }
        if (round % 4 == 0 && has_message(host.broken)) {
            SCOPED_TRACE("with dumps of another run");
            const support::temp_directory other;
            const std::string other_err = end_in_child(host, other.path(), true);
            ASSERT_NE(other_err, err);
            const explained_abort found = explain(log, read(other.path()));
            expect_whole_place(found, host.broken);
            ASSERT_FALSE(found.notes.empty());
            EXPECT_NE(found.notes.front().find("another run"), std::string::npos) << found.notes.front();
        }
    }
}

// ---- Every type at every instruction.

support::child_result finalise_in_child(const std::vector<kernel_data>& kernels,
                                        const std::filesystem::path& directory)
{
    return support::run_with_dumps(
        [&] {
            kernel_registry_map registry;
            finalise_kernels(registry, kernels);
        },
        directory);
}

// Replaces the kernel's only relocation by the one in the help.
void follow(const std::string& advice, kernel_data& kernel)
{
    static const std::regex braces(
        "use \\{\"([^\"]*)\", ([0-9]+), ([0-9]+), ([0-9]+)\\}(, and generate the [A-Z]+ with its field zero: 0x([0-9a-f]{8}))?");
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(advice, parts, braces)) << advice;
    kernel.relocs = {{parts[1], std::stoi(parts[2]), std::stoi(parts[3]), std::stoi(parts[4])}};
    if (parts[6].matched) {
        const auto word = static_cast<std::uint32_t>(std::stoul(parts[6], nullptr, 16));
        std::memcpy(&kernel.text[static_cast<std::size_t>(kernel.relocs[0].offset)], &word, sizeof word);
    }
}

TEST(RelocationInHelp, IsAcceptedByTheFinaliserAndTheChecks)
{
    const std::uint32_t words[] = {a64::adr(3),        a64::adrp(3), a64::add(3, 3, 0),
                                   a64::add(3, 3, 16), a64::bl(),
                                   0x97fffff0,  // bl .-64
                                   0xb0000003,  // adrp of the next page
                                   0xf9400063,  // ldr x3, [x3]
                                   0x58000003,  // ldr x3, .
                                   0x14000001}; // b .+4
    const int types[] = {257, 273, 274, 275, 276, 277, 278, 279, 280,
                         282, 283, 284, 285, 286, 299, 311, 312, 1000};
    const support::temp_directory directory;
    std::size_t corrected = 0;
    for (const int type : types) {
        for (const std::uint32_t word : words) {
            for (const std::string target : {".rodata.k", "callee"}) {
                std::vector<kernel_data> kernels(2);
                kernels[0].name = "callee";
                kernels[0].text = support::code({a64::ret()});
                kernels[1].name = "k";
                kernels[1].text = support::code({a64::nop(), word, a64::nop(), a64::ret()});
                kernels[1].data.resize(16);
                kernels[1].relocs = {{target, 4, type, 0}};
                const support::child_result child = finalise_in_child(kernels, directory.path());
                if (child.signal != SIGABRT)
                    continue;
                const std::string advice = explain(child.err, read(directory.path())).help;
                if (!advice.starts_with("use {"))
                    continue;
                SCOPED_TRACE(testing::Message() << type << " at " << std::hex << word << ": " << advice);
                ++corrected;
                follow(advice, kernels[1]);
                EXPECT_TRUE(finalise_in_child(kernels, directory.path()).succeeded());
                for (const auto& finding : vorna::wfta::check_kernels({}, kernels))
                    EXPECT_TRUE(finding.id == vorna::wfta::finding_id::pair ||
                                finding.id == vorna::wfta::finding_id::name_map ||
                                finding.id == vorna::wfta::finding_id::outside_constants)
                        << finding.message; // of the rest of the kernel
            }
        }
    }
    // The 14 unsupported types, at four instructions with constants and at six with a kernel as the target,
    // and the supported ones at each other's instructions.
    EXPECT_GE(corrected, 14U * (4 + 6));
}

} // namespace
