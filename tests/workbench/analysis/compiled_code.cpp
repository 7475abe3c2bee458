// Checks what compilers generate, as kernels of a stranger: the functions of the C files in compiled_code/,
// compiled by GCC and clang at all levels, with and without SVE. They keep the procedure call standard, so no
// finding may be an error.
//
// By default a few of the ways to compile are tried, with WFTA_TEST_ALL all of them.

#include "tests/support/files.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/temp_directory.hpp"
#include "tests/support/tool.hpp"
#include "workbench/analysis/check_dumps.hpp"
#include "workbench/disasm/disassembler.hpp"
#include "workbench/kernels/linking.hpp"

#include <cstdio>
#include <cstring>
#include <elf.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace vorna::workbench;
using vorna::wfta::finding_severity;
using vorna::wfta::kernel_finding;

/// A relocatable object file, each of whose functions has a section of its own.
class object_file {
public:
    explicit object_file(const std::filesystem::path& path) : image_(support::contents(path))
    {
        const auto header = read<Elf64_Ehdr>(0);
        for (std::size_t i = 0; i < header.e_shnum; ++i)
            sections_.push_back(read<Elf64_Shdr>(header.e_shoff + i * sizeof(Elf64_Shdr)));
        for (const Elf64_Shdr& section : sections_) {
            if (section.sh_type != SHT_SYMTAB)
                continue;
            for (std::uint64_t at = 0; at < section.sh_size; at += sizeof(Elf64_Sym)) {
                symbols_.push_back(read<Elf64_Sym>(section.sh_offset + at));
                names_.push_back(image_.c_str() + sections_[section.sh_link].sh_offset +
                                 symbols_.back().st_name);
            }
        }
    }

    /// The functions as placed kernels, those that the file calls too, with all that a kernel's relocations
    /// cannot express linked. Adds the number of functions that cannot be placed to `left_out`.
    [[nodiscard]] std::vector<placed_kernel> kernels(std::size_t& left_out)
    {
        place();
        std::vector<placed_kernel> all;
        std::set<std::string> defined;
        for (std::size_t i = 0; i < symbols_.size(); ++i) {
            const Elf64_Sym& symbol = symbols_[i];
            if (ELF64_ST_TYPE(symbol.st_info) != STT_FUNC || symbol.st_shndx == SHN_UNDEF)
                continue;
            placed_kernel kernel{
                names_[i], addresses_[symbol.st_shndx], code_of(symbol.st_shndx), 0, {}, {}, 0, ""};
            kernel.data_address = kernel.text_address + kernel.text.size();
            if (symbol.st_value != 0 || !relocate(kernel, symbol.st_shndx)) {
                ++left_out;
                continue;
            }
            defined.insert(kernel.name);
            all.push_back(std::move(kernel));
        }
        for (const auto& [name, address] : external_functions_) {
            if (!defined.contains(name))
                all.push_back({name, address, {0xc0, 0x03, 0x5f, 0xd6}, address + 4, {}, {}, 0, ""});
        }
        return all;
    }

private:
    static constexpr std::uint64_t first_code = 0x1000000;
    static constexpr std::uint64_t first_data = 0x9000000;
    static constexpr std::uint64_t between = 0x10000; // so that each is in a mapping of its own

    template <typename record>
    [[nodiscard]] record read(std::uint64_t offset) const
    {
        record value;
        std::memcpy(&value, image_.data() + offset, sizeof value);
        return value;
    }

    void place()
    {
        next_code_ = first_code;
        next_data_ = first_data;
        addresses_.resize(sections_.size());
        for (std::size_t i = 0; i < sections_.size(); ++i) {
            if ((sections_[i].sh_flags & SHF_ALLOC) == 0)
                continue;
            if ((sections_[i].sh_flags & SHF_EXECINSTR) != 0) {
                addresses_[i] = next_code_;
                next_code_ += (sections_[i].sh_size + between - 1) / between * between + between;
            } else {
                addresses_[i] = next_data_;
                next_data_ += (sections_[i].sh_size + 63) / 64 * 64;
            }
        }
    }

    [[nodiscard]] std::vector<std::uint8_t> code_of(std::size_t section) const
    {
        const char* const begin = image_.data() + sections_[section].sh_offset;
        return {begin, begin + sections_[section].sh_size};
    }

    /// The name of the function at the beginning of a section.
    [[nodiscard]] std::string function_in(std::size_t section) const
    {
        for (std::size_t i = 0; i < symbols_.size(); ++i) {
            if (symbols_[i].st_shndx == section && ELF64_ST_TYPE(symbols_[i].st_info) == STT_FUNC &&
                symbols_[i].st_value == 0)
                return names_[i];
        }
        return "";
    }

    std::uint64_t address_of(std::size_t symbol, bool is_function)
    {
        if (symbols_[symbol].st_shndx != SHN_UNDEF)
            return addresses_[symbols_[symbol].st_shndx] + symbols_[symbol].st_value;
        const auto [place, is_new] = (is_function ? external_functions_ : external_data_)
                                         .try_emplace(names_[symbol], is_function ? next_code_ : next_data_);
        if (is_new)
            (is_function ? next_code_ : next_data_) += is_function ? between : 64;
        return place->second;
    }

    // Applies the relocations of a kernel's section, and leaves its calls to the kernel. Returns false if one
    // is of a type that is not known here.
    bool relocate(placed_kernel& kernel, std::size_t section)
    {
        for (const Elf64_Shdr& relocations : sections_) {
            if (relocations.sh_type != SHT_RELA || relocations.sh_info != section)
                continue;
            for (std::uint64_t at = 0; at < relocations.sh_size; at += sizeof(Elf64_Rela)) {
                if (!apply(kernel, read<Elf64_Rela>(relocations.sh_offset + at)))
                    return false;
            }
        }
        return true;
    }

    bool apply(placed_kernel& kernel, const Elf64_Rela& relocation)
    {
        const std::uint64_t type = ELF64_R_TYPE(relocation.r_info);
        const std::size_t symbol = ELF64_R_SYM(relocation.r_info);
        const bool is_branch = type == R_AARCH64_CALL26 || type == R_AARCH64_JUMP26;
        const std::uint64_t target =
            address_of(symbol, is_branch) + static_cast<std::uint64_t>(relocation.r_addend);
        const std::uint64_t from = kernel.text_address + relocation.r_offset;
        if (type == R_AARCH64_CALL26) {
            const bool is_known = symbols_[symbol].st_shndx != SHN_UNDEF;
            kernel.relocs.push_back({is_known ? function_in(symbols_[symbol].st_shndx) : names_[symbol],
                                     static_cast<std::int32_t>(relocation.r_offset), R_AARCH64_CALL26, 0});
            return !is_known || target == addresses_[symbols_[symbol].st_shndx];
        }
        std::uint32_t word = word_at(kernel.text, relocation.r_offset);
        const auto set_field = [&word](std::uint64_t value, unsigned bits, unsigned shift) {
            word |= (static_cast<std::uint32_t>(value) & ((1U << bits) - 1)) << shift;
        };
        const auto set_pages = [&](std::uint64_t distance) {
            set_field(distance, 2, 29);
            set_field(distance >> 2, 19, 5);
        };
        switch (type) {
        case R_AARCH64_JUMP26:
            set_field((target - from) >> 2, 26, 0);
            break;
        case R_AARCH64_ADR_PREL_PG_HI21:
        case R_AARCH64_ADR_PREL_PG_HI21_NC:
            set_pages((target >> 12) - (from >> 12));
            break;
        case R_AARCH64_ADR_PREL_LO21:
            set_pages(target - from);
            break;
        case R_AARCH64_LD_PREL_LO19:
            set_field((target - from) >> 2, 19, 5);
            break;
        case R_AARCH64_ADD_ABS_LO12_NC:
        case R_AARCH64_LDST8_ABS_LO12_NC:
            set_field(target & 0xfff, 12, 10);
            break;
        case R_AARCH64_LDST16_ABS_LO12_NC:
            set_field((target & 0xfff) >> 1, 12, 10);
            break;
        case R_AARCH64_LDST32_ABS_LO12_NC:
            set_field((target & 0xfff) >> 2, 12, 10);
            break;
        case R_AARCH64_LDST64_ABS_LO12_NC:
            set_field((target & 0xfff) >> 3, 12, 10);
            break;
        case R_AARCH64_LDST128_ABS_LO12_NC:
            set_field((target & 0xfff) >> 4, 12, 10);
            break;
        case R_AARCH64_NONE:
            break;
        default:
            return false;
        }
        std::memcpy(kernel.text.data() + relocation.r_offset, &word, sizeof word);
        return true;
    }

    std::string image_;
    std::vector<Elf64_Shdr> sections_;
    std::vector<Elf64_Sym> symbols_;
    std::vector<std::string> names_;
    std::vector<std::uint64_t> addresses_; // of sections
    std::map<std::string, std::uint64_t> external_functions_;
    std::map<std::string, std::uint64_t> external_data_;
    std::uint64_t next_code_ = 0;
    std::uint64_t next_data_ = 0;
};

std::string described(const kernel_set& set, const kernel_finding& finding)
{
    const char* const levels[] = {"note", "warning", "error"};
    char place[32];
    std::snprintf(place, sizeof place,
                  "+0x%llx: ", static_cast<unsigned long long>(finding.offset.value_or(0)));
    std::string text = finding.kernel + place + levels[static_cast<int>(finding.severity)] + " [" +
                       name_of(finding.id) + "] " + finding.message + " | " + finding.note + " | " +
                       finding.help + "\n";
    const placed_kernel& kernel = *find_kernel(set, finding.kernel);
    disassembler disassembler;
    const auto linked = link_kernel(set, kernel);
    for (std::size_t at = 0; at < linked.text.size() && at < 1200; at += 4) {
        char line[200];
        std::snprintf(line, sizeof line, "%4zx\t%s\n", at,
                      disassembler.text(word_at(linked.text, at), at).c_str());
        text += line;
    }
    return text;
}

struct totals {
    std::size_t functions = 0, left_out = 0, unfollowed = 0;
    std::map<std::string, std::size_t> findings;
};

/// Compiles all files and checks them. Returns false if there is no such compiler.
bool check_compiled(std::vector<std::string> command, int level, bool sve, totals& totals)
{
    const support::temp_directory directory;
    command.insert(command.end(),
                   {"-std=gnu11", "-c", "-ffreestanding", "-ffunction-sections", "-fno-pie", "-w",
                    "-ffixed-x18", // which is the platform's
                    "-fno-asynchronous-unwind-tables", "-fno-stack-protector", "-O" + std::to_string(level),
                    sve ? "-march=armv8.2-a+sve" : "-march=armv8-a"});
    for (const auto& file : std::filesystem::directory_iterator(COMPILED_CODE))
        command.push_back(file.path().string());
    const auto compiled = support::run_tool(command, directory.path());
    if (compiled.exit_status == 127)
        return false;
    EXPECT_TRUE(compiled.succeeded()) << compiled;
    const std::string how = command[0] + " -O" + std::to_string(level) + (sve ? " with SVE" : "");
    for (const auto& object : std::filesystem::directory_iterator(directory.path())) {
        auto kernels = object_file(object.path()).kernels(totals.left_out);
        const auto set = make_kernel_set(std::move(kernels));
        totals.functions += set.kernels.size();
        for (const kernel_finding& finding : check_dumps(set)) {
            ++totals.findings[name_of(finding.id)];
            EXPECT_NE(finding.severity, finding_severity::error)
                << how << ", " << object.path().filename() << "\n"
                << described(set, finding);
        }
    }
    return true;
}

void check_compiler(const std::vector<std::string>& command, int first_level)
{
    totals totals;
    for (int level = 0; level <= 3; ++level) {
        for (const bool sve : {false, true}) {
            const bool few = (level == first_level && !sve) || (level == first_level + 2 && sve);
            if (!few && support::test_size(0, 1) == 0)
                continue;
            if (!check_compiled(command, level, sve, totals))
                GTEST_SKIP() << "there is no " << command[0];
        }
    }
    std::cout << totals.functions << " functions, " << totals.left_out << " cannot be placed;";
    for (const auto& [id, count] : totals.findings)
        std::cout << " " << id << " " << count;
    std::cout << "\n";
    EXPECT_GE(totals.functions, 400U);
    EXPECT_LE(totals.left_out, totals.functions / 50);
    EXPECT_LE(totals.findings["unfollowed"], totals.functions / 6);
}

TEST(CompiledCode, OfGccHasNoErrors)
{
    // Without knowledge of callees, whose registers it would otherwise keep values in.
    check_compiler({"aarch64-linux-gnu-gcc", "-fno-reorder-blocks-and-partition", "-fno-ipa-ra"}, 0);
}

TEST(CompiledCode, OfClangHasNoErrors)
{
    check_compiler({"clang", "--target=aarch64-linux-gnu"}, 1);
}

} // namespace
