// Compares the loops of a kernel with those that LLVM knows: it writes them as comments into the assembly
// that it makes, at every label. The programs are random control-flow graphs, compiled by llc, and, where
// clang is installed, the functions of loops.c.
//
// WFTA_GRAPHS is the number of random graphs, WFTA_TEST_SEED repeats a run.

#include "workbench/analysis/loops.hpp"
#include "tests/support/assemble.hpp"
#include "tests/support/files.hpp"
#include "tests/support/random_seed.hpp"
#include "tests/support/tool.hpp"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <map>
#include <random>
#include <sstream>
#include <string>

namespace {

using namespace vorna::workbench;

/// For the offset at which a block begins, the offset of the innermost loop's header, and its depth.
struct loop_place {
    std::size_t header = 0;
    std::size_t depth = 0;
    friend bool operator==(const loop_place&, const loop_place&) = default;
    friend std::ostream& operator<<(std::ostream& out, const loop_place& at)
    {
        return out << "loop " << at.header << " of depth " << at.depth;
    }
};
using loop_places = std::map<std::size_t, loop_place>;

/// A function of a compiler's output.
struct compiled_function {
    std::string name;
    std::string source; ///< without directives
    std::size_t bytes = 0;
    loop_places places; ///< of its labels
};

/// The text between two marks, or "".
std::string between(const std::string& line, const std::string& before, const std::string& after)
{
    const std::size_t begin = line.find(before);
    if (begin == std::string::npos)
        return "";
    const std::size_t end = line.find(after, begin + before.size());
    return line.substr(begin + before.size(), end - begin - before.size());
}

/// Block "3" of ".LBB0_3:  // ..." and "// %bb.3:  // ..."; "" for other lines.
std::string label_of(const std::string& line)
{
    if (line.starts_with(".LBB"))
        return between(line, "_", ":");
    return line.starts_with("// %bb.") ? between(line, "%bb.", ":") : "";
}

std::vector<compiled_function> read_functions(const std::string& assembly)
{
    std::vector<compiled_function> functions;
    std::map<std::string, std::size_t> offsets;                       // of blocks
    std::map<std::string, std::pair<std::string, std::size_t>> loops; // header and depth, for blocks
    std::string block;
    std::size_t offset = 0;
    std::istringstream stream(assembly);
    for (std::string line; std::getline(stream, line);) {
        if (line.find("// @") != std::string::npos && line.find(':') != std::string::npos) {
            functions.push_back({line.substr(0, line.find(':')), "", 0, {}});
            offsets.clear();
            loops.clear();
            block.clear();
            offset = 0;
            continue;
        }
        if (functions.empty())
            continue;
        if (line.starts_with(".Lfunc_end")) {
            for (const auto& [name, loop] : loops)
                functions.back().places[offsets[name]] = {offsets[loop.first], loop.second};
            continue;
        }
        if (const std::string label = label_of(line); !label.empty()) {
            block = label;
            offsets[block] = offset;
        }
        if (line.find("Loop Header: Depth=") != std::string::npos)
            loops[block] = {block, std::stoul(between(line, "Depth=", " "))};
        if (line.find("in Loop: Header=BB") != std::string::npos)
            loops[block] = {between(line.substr(line.find("Header=")), "_", " "),
                            std::stoul(between(line, "Depth=", " "))};
        if (line.starts_with(".LBB")) {
            functions.back().source += line.substr(0, line.find(':') + 1) + "\n";
        } else if (line.starts_with("\t") && line.size() > 1 && line[1] != '.' && line[1] != '/') {
            functions.back().source += line.substr(0, line.find("//")) + "\n";
            functions.back().bytes = offset += 4;
        }
    }
    return functions;
}

/// The kernels of functions that are assembled one after the other, in one run.
std::vector<placed_kernel> assemble_functions(const std::vector<compiled_function>& functions)
{
    std::string source;
    for (const compiled_function& function : functions)
        source += function.source;
    const support::generated_kernel all = support::assemble_kernel("all", source);
    std::vector<placed_kernel> kernels;
    std::size_t begin = 0;
    for (const compiled_function& function : functions) {
        const std::size_t end = begin + function.bytes;
        placed_kernel kernel;
        kernel.name = function.name;
        kernel.text.assign(all.code.begin() + static_cast<std::ptrdiff_t>(begin),
                           all.code.begin() + static_cast<std::ptrdiff_t>(end));
        for (tessjit::reloc_info reloc : all.relocs) {
            const auto offset = static_cast<std::size_t>(reloc.offset);
            reloc.offset -= static_cast<std::int32_t>(begin);
            if (offset >= begin && offset < end)
                kernel.relocs.push_back(reloc);
        }
        kernels.push_back(std::move(kernel));
        begin = end;
    }
    EXPECT_EQ(begin, all.code.size());
    return kernels;
}

/// The same of the loops that the workbench finds, at the same offsets.
loop_places find_places(const placed_kernel& kernel)
{
    const decoded_kernel code = decode_kernel(kernel);
    const loop_nest nest = find_loops(code, map_code(code, {}));
    loop_places found;
    for (std::size_t b = 0; b < nest.blocks.size(); ++b) {
        if (!nest.loop_of[b])
            continue;
        const natural_loop& loop = nest.loops[*nest.loop_of[b]];
        found[4 * nest.blocks[b].begin] = {4 * nest.blocks[loop.header].begin, loop.depth};
    }
    return found;
}

std::size_t count_headers(const loop_places& places)
{
    return static_cast<std::size_t>(std::count_if(
        places.begin(), places.end(), [](const auto& place) { return place.first == place.second.header; }));
}

/// At each label that LLVM says is in a loop, the workbench finds the same loop, and it finds no other loops.
void expect_same_loops(const std::vector<compiled_function>& functions)
{
    const std::vector<placed_kernel> kernels = assemble_functions(functions);
    for (std::size_t i = 0; i < functions.size(); ++i) {
        const loop_places& expected = functions[i].places;
        const loop_places found = find_places(kernels[i]);
        loop_places at_labels;
        for (const auto& [offset, place] : found) {
            if (expected.contains(offset))
                at_labels[offset] = place;
        }
        EXPECT_EQ(at_labels, expected) << functions[i].name << "\n" << functions[i].source;
        EXPECT_EQ(count_headers(found), count_headers(expected)) << functions[i].name;
    }
}

std::string random_graph(std::mt19937& random, std::size_t number)
{
    const std::size_t blocks = 2 + random() % 14;
    std::string source = fmt::format("define void @graph_{}(i32 %n) {{\nb0:\n", number);
    for (std::size_t b = 0; b < blocks; ++b) {
        if (b != 0)
            source += fmt::format("b{}:\n", b);
        source += fmt::format("  %c{} = call i1 @choose(i32 {})\n", b, b);
        const auto target = [&] { return 1 + random() % (blocks - 1); };
        const std::size_t kind = random() % 8;
        if (kind == 0 || b + 1 == blocks)
            source += "  ret void\n";
        else if (kind < 3)
            source += fmt::format("  br label %b{}\n", target());
        else
            source += fmt::format("  br i1 %c{}, label %b{}, label %b{}\n", b, target(), b + 1);
    }
    return source + "}\n";
}

std::string compile(const std::string& name, const std::string& source, std::vector<std::string> command)
{
    const support::temp_directory directory;
    support::write_file(directory.path() / name, source);
    command.insert(command.end(), {name, "-o", "result.s"});
    const support::child_result tool = support::run_tool(command, directory.path());
    EXPECT_TRUE(tool.succeeded()) << tool.err;
    return support::contents(directory.path() / "result.s");
}

TEST(Loops, EqualLlvmsInRandomGraphs)
{
    const unsigned seed = support::random_seed();
    SCOPED_TRACE(fmt::format("WFTA_TEST_SEED={}", seed));
    std::mt19937 random(seed);
    const char* const given = std::getenv("WFTA_GRAPHS");
    const std::size_t count = given != nullptr ? std::stoul(given) : support::test_size(100, 1000);
    std::string source = "declare i1 @choose(i32)\n";
    for (std::size_t i = 0; i < count; ++i)
        source += random_graph(random, i);
    const std::vector<compiled_function> functions =
        read_functions(compile("graphs.ll", source, {LLC, "-mtriple=aarch64-linux-gnu", "-O0"}));
    ASSERT_EQ(functions.size(), count);
    expect_same_loops(functions);
    std::size_t in_loops = 0;
    for (const compiled_function& function : functions)
        in_loops += function.places.size();
    EXPECT_GT(in_loops, count / 4);
}

TEST(Loops, EqualLlvmsInCompiledC)
{
    if (std::system("clang --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no clang";
    const std::string source = support::contents(LOOPS_C);
    for (const char* const level : {"-O0", "-O1", "-O2", "-Os"}) {
        SCOPED_TRACE(level);
        const std::vector<compiled_function> functions =
            read_functions(compile("loops.c", source,
                                   {"clang", "--target=aarch64-linux-gnu", "-S", "-fverbose-asm", level,
                                    "-fno-jump-tables", "-fno-asynchronous-unwind-tables"}));
        EXPECT_EQ(functions.size(), 12U);
        expect_same_loops(functions);
    }
}

} // namespace
