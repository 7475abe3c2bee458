#include "examples/wfta_host/kernel_generator.hpp"

#include <aarch64/macro-assembler-aarch64.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <elf.h>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace a64 = vixl::aarch64;

using a64::MemOperand;
using a64::PostIndex;
using a64::PreIndex;
using a64::Register;
using a64::VRegister;
using vorna::wfta::kernel_data;

namespace wfta_host {
namespace {

constexpr int complex_size = 16;
constexpr int complex_size_log2 = 4;

// A kernel whose code is being generated.
struct kernel_builder {
    std::string name;
    std::vector<std::uint8_t> data;
    std::vector<tessjit::reloc_info> relocs;
    a64::MacroAssembler code;
};

template <typename T>
void append_to_data(kernel_builder& kernel, T element)
{
    const auto bytes = reinterpret_cast<const std::uint8_t*>(&element);
    kernel.data.insert(kernel.data.end(), bytes, bytes + sizeof element);
}

// Adds a relocation of the next instruction against `target`. That instruction's field must be zero, so
// emit it with the plain assembler: the macro assembler may drop an addition of zero.
void link_next(kernel_builder& kernel, const std::string& target, std::int32_t type, std::int32_t addend)
{
    kernel.relocs.push_back({target, static_cast<std::int32_t>(kernel.code.GetCursorOffset()), type, addend});
}

// Loads the address of the kernel's data, however far away that is (up to 4 GiB).
void load_data_address(kernel_builder& kernel, const Register& to)
{
    const vixl::ExactAssemblyScope scope(&kernel.code, std::size_t{2} * a64::kInstructionSize);
    link_next(kernel, ".rodata." + kernel.name, R_AARCH64_ADR_PREL_PG_HI21, 0);
    kernel.code.adrp(to, std::int64_t{0});
    link_next(kernel, ".rodata." + kernel.name, R_AARCH64_ADD_ABS_LO12_NC, 0);
    kernel.code.add(to, to, 0);
}

// Loads the address of byte `offset` of the kernel's data, which must be within 1 MiB of the instruction.
void load_near_data_address(kernel_builder& kernel, const Register& to, std::size_t offset)
{
    const vixl::ExactAssemblyScope scope(&kernel.code, a64::kInstructionSize);
    link_next(kernel, ".rodata." + kernel.name, R_AARCH64_ADR_PREL_LO21, static_cast<std::int32_t>(offset));
    kernel.code.adr(to, std::int64_t{0});
}

void call(kernel_builder& kernel, const std::string& target)
{
    const vixl::ExactAssemblyScope scope(&kernel.code, a64::kInstructionSize);
    link_next(kernel, target, R_AARCH64_CALL26, 0);
    kernel.code.bl(std::int64_t{0});
}

kernel_data finish(kernel_builder& kernel)
{
    // Data blocks are packed: a whole number of vectors keeps the next kernel's data aligned.
    while (kernel.data.size() % complex_size != 0)
        kernel.data.push_back(0);

    kernel.code.FinalizeCode();
    const auto text = kernel.code.GetBuffer()->GetStartAddress<const std::uint8_t*>();
    return {nullptr,
            std::move(kernel.name),
            {text, text + kernel.code.GetSizeOfCodeGenerated()},
            std::move(kernel.data),
            std::move(kernel.relocs)};
}

// Which vector register holds which value: a value gets one when it is computed and frees it at its last
// use. A register holds the real and the imaginary part.
class register_allocation {
public:
    void take(value v)
    {
        if (free_.empty())
            throw std::length_error("a short DFT needs more vector registers than there are");
        register_of_[v] = free_.back();
        free_.pop_back();
    }

    void give_back(value v) { free_.push_back(register_of_[v]); }

    VRegister operator[](value v) const { return VRegister(register_of_[v], a64::kQRegSize); }

private:
    // Not v8 to v15, which are callee-saved, and not v7 and v31, which hold the constants.
    std::vector<int> free_ = {30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20,
                              19, 18, 17, 16, 6,  5,  4,  3,  2,  1,  0};
    std::array<int, value_count> register_of_{};
};

// For each value, the index of the last step that uses it. Outputs are used after all steps.
std::array<std::size_t, value_count> last_uses(const short_dft& dft)
{
    std::array<std::size_t, value_count> last{};
    for (std::size_t i = 0; i < dft.steps.size(); ++i) {
        last[dft.steps[i].a] = i;
        last[dft.steps[i].b] = i;
    }
    for (unsigned k = 0; k < dft.length; ++k)
        last[y0 + k] = dft.steps.size();
    return last;
}

// Where element i goes: positions are those of an array with one dimension for each factor, the last one
// varying fastest; elements are numbered as the prime-factor algorithm needs.
struct index_tables {
    std::vector<std::uint32_t> in;  // element of the input at each position
    std::vector<std::uint32_t> out; // element of the output at each position
};

index_tables prime_factor_mapping(const std::vector<unsigned>& factors, unsigned length, direction dir)
{
    index_tables tables;
    for (unsigned position = 0; position < length; ++position) {
        unsigned in = 0;
        unsigned out = 0;
        unsigned rest = position;
        for (auto n = factors.rbegin(); n != factors.rend(); ++n) {
            const unsigned coordinate = rest % *n;
            rest /= *n;
            // Input element: the sum of coordinate * length / n. Output element: the one that is congruent to
            // the coordinate modulo each n. Then there are no twiddle factors between the dimensions.
            const unsigned cofactor = length / *n;
            unsigned unit = cofactor;
            while (unit % *n != 1)
                unit += cofactor;
            in += coordinate * cofactor;
            out += coordinate * unit;
        }
        in %= length;
        out %= length;
        // The inverse transform is the forward one with its outputs reversed.
        tables.in.push_back(in);
        tables.out.push_back(dir == direction::forward ? out : (length - out) % length);
    }
    return tables;
}

} // namespace

std::string short_kernel_name(unsigned length)
{
    return "wfta_short_" + std::to_string(length);
}

std::string driver_kernel_name(unsigned length, direction dir)
{
    return "wfta_" + std::to_string(length) + (dir == direction::inverse ? "_inverse" : "");
}

kernel_data generate_short_kernel(const short_dft& dft)
{
    const Register values = a64::x0;
    const Register stride = a64::x1;
    const Register cursor = a64::x2;
    const Register data = a64::x3;
    const VRegister constant = a64::d7;
    const VRegister sign_of_imaginary = a64::q31;

    kernel_builder kernel;
    kernel.name = short_kernel_name(dft.length);
    a64::MacroAssembler& code = kernel.code;

    const auto is = [](operation op) { return [op](const step& s) { return s.op == op; }; };
    const bool turns = std::any_of(dft.steps.begin(), dft.steps.end(), is(operation::turn));
    const bool multiplies = std::any_of(dft.steps.begin(), dft.steps.end(), is(operation::multiply));
    if (turns || multiplies)
        load_data_address(kernel, data);
    if (turns) {
        append_to_data(kernel, 0.0);
        append_to_data(kernel, -0.0);
        code.Ldr(sign_of_imaginary, MemOperand(data));
    }

    register_allocation registers;
    const auto last_use = last_uses(dft);

    code.Mov(cursor, values);
    for (unsigned i = 0; i < dft.length; ++i) {
        const auto x = static_cast<value>(x0 + i);
        registers.take(x);
        code.Ld1(registers[x].V2D(), MemOperand(cursor, stride, PostIndex));
    }

    for (std::size_t i = 0; i < dft.steps.size(); ++i) {
        const step& s = dft.steps[i];
        const VRegister a = registers[s.a];
        const VRegister b = registers[s.b];
        if (last_use[s.a] == i)
            registers.give_back(s.a);
        if (last_use[s.b] == i && s.b != s.a)
            registers.give_back(s.b);
        registers.take(s.to);
        const VRegister to = registers[s.to];

        switch (s.op) {
        case operation::add:
            code.Fadd(to.V2D(), a.V2D(), b.V2D());
            break;
        case operation::subtract:
            code.Fsub(to.V2D(), a.V2D(), b.V2D());
            break;
        case operation::multiply:
            code.Ldr(constant, MemOperand(data, static_cast<std::int64_t>(kernel.data.size())));
            code.Fmul(to.V2D(), a.V2D(), constant, 0);
            append_to_data(kernel, s.constant);
            break;
        case operation::turn: // -j (re + j im) = im - j re
            code.Ext(to.V16B(), a.V16B(), a.V16B(), complex_size / 2);
            code.Eor(to.V16B(), to.V16B(), sign_of_imaginary.V16B());
            break;
        }
    }

    for (unsigned k = 0; k < dft.length; ++k)
        code.St1(registers[static_cast<value>(y0 + k)].V2D(), MemOperand(values, stride, PostIndex));
    code.Ret();
    return finish(kernel);
}

kernel_data generate_driver_kernel(const std::vector<unsigned>& factors, direction dir, loop_order order)
{
    const unsigned length = std::accumulate(factors.begin(), factors.end(), 1U, std::multiplies<>());
    const Register in = a64::x0;
    const Register table = a64::x3;
    const Register cursor = a64::x4;
    const Register count = a64::x5;
    const Register index = a64::w6;
    const VRegister element = a64::q0;
    // Callee-saved registers.
    const Register out = a64::x19;
    const Register work = a64::x20;
    const Register first = a64::x21;
    const Register blocks_left = a64::x22;
    const Register columns_left = a64::x23;

    kernel_builder kernel;
    kernel.name = driver_kernel_name(length, dir);
    a64::MacroAssembler& code = kernel.code;

    const index_tables tables = prime_factor_mapping(factors, length, dir);
    for (const std::uint32_t i : tables.in)
        append_to_data(kernel, i);
    const std::size_t out_table = kernel.data.size();
    for (const std::uint32_t i : tables.out)
        append_to_data(kernel, i);

    code.Stp(a64::x29, a64::x30, MemOperand(a64::sp, -64, PreIndex));
    code.Mov(a64::x29, a64::sp);
    code.Stp(a64::x19, a64::x20, MemOperand(a64::sp, 16));
    code.Stp(a64::x21, a64::x22, MemOperand(a64::sp, 32));
    code.Str(a64::x23, MemOperand(a64::sp, 48));
    code.Mov(out, a64::x1);
    code.Mov(work, a64::x2);

    // The tables of one length are at most 40 KiB: within range of ADR anywhere in the length's mapping.
    a64::Label gather;
    load_near_data_address(kernel, table, 0);
    code.Mov(cursor, work);
    code.Mov(count, length);
    code.Bind(&gather);
    code.Ldr(index, MemOperand(table, sizeof(std::uint32_t), PostIndex));
    if (order == loop_order::in_order)
        code.Sub(count, count, 1);
    code.Ldr(element, MemOperand(in, index, a64::UXTW, complex_size_log2));
    code.Str(element, MemOperand(cursor, complex_size, PostIndex));
    if (order == loop_order::plain)
        code.Sub(count, count, 1);
    code.Cbnz(count, &gather);

    // One pass for each dimension: the factor's short kernel on every line along it.
    unsigned lines_from_here = length;
    for (const unsigned n : factors) {
        const unsigned blocks = length / lines_from_here;
        lines_from_here /= n;
        const unsigned columns = lines_from_here;
        const unsigned stride = columns * complex_size;

        a64::Label next_block;
        a64::Label next_column;
        code.Mov(first, work);
        code.Mov(blocks_left, blocks);
        code.Bind(&next_block);
        code.Mov(columns_left, columns);
        code.Bind(&next_column);
        code.Mov(a64::x0, first);
        code.Mov(a64::x1, stride);
        call(kernel, short_kernel_name(n));
        code.Add(first, first, complex_size);
        code.Sub(columns_left, columns_left, 1);
        code.Cbnz(columns_left, &next_column);
        code.Add(first, first, std::int64_t{n - 1} * stride);
        code.Sub(blocks_left, blocks_left, 1);
        code.Cbnz(blocks_left, &next_block);
    }

    a64::Label scatter;
    load_near_data_address(kernel, table, out_table);
    code.Mov(count, length);
    code.Bind(&scatter);
    code.Ldr(index, MemOperand(table, sizeof(std::uint32_t), PostIndex));
    code.Ldr(element, MemOperand(work, complex_size, PostIndex));
    if (order == loop_order::in_order)
        code.Sub(count, count, 1);
    code.Str(element, MemOperand(out, index, a64::UXTW, complex_size_log2));
    if (order == loop_order::plain)
        code.Sub(count, count, 1);
    code.Cbnz(count, &scatter);

    code.Ldr(a64::x23, MemOperand(a64::sp, 48));
    code.Ldp(a64::x21, a64::x22, MemOperand(a64::sp, 32));
    code.Ldp(a64::x19, a64::x20, MemOperand(a64::sp, 16));
    code.Ldp(a64::x29, a64::x30, MemOperand(a64::sp, 64, PostIndex));
    code.Ret();
    return finish(kernel);
}

} // namespace wfta_host
