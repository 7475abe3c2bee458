// AArch64 code in VIXL's simulator, in memory with nothing nearby that wrong code could overwrite.
#pragma once

#include <aarch64/disasm-aarch64.h>
#include <aarch64/simulator-aarch64.h>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unordered_map>
#include <utility>

namespace support {

/// Memory for code, constants, buffers and a stack, with 256 MiB that are not accessible on both sides.
class guarded_memory {
public:
    explicit guarded_memory(std::size_t size) : size_(size)
    {
        around_ =
            mmap(nullptr, size + 2 * guard, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (around_ == MAP_FAILED || mprotect(begin(), size, PROT_READ | PROT_WRITE) != 0)
            throw std::runtime_error("no memory for simulated code");
    }
    ~guarded_memory() { munmap(around_, size_ + 2 * guard); }
    guarded_memory(const guarded_memory&) = delete;
    guarded_memory& operator=(const guarded_memory&) = delete;

    [[nodiscard]] std::uint8_t* begin() const { return static_cast<std::uint8_t*>(around_) + guard; }
    [[nodiscard]] std::uint64_t address(std::size_t offset) const
    {
        return reinterpret_cast<std::uint64_t>(begin()) + offset;
    }
    /// Zeros where something may have been stored.
    void clear() { madvise(begin(), size_, MADV_DONTNEED); }

private:
    static constexpr std::size_t guard = std::size_t{1} << 28;
    std::size_t size_;
    void* around_;
};

/// VIXL's simulator, with the registers in the form in which the tests compare them.
class simulated_cpu {
public:
    using vector_value = std::array<std::uint64_t, 2>;
    using scalable_value = std::array<std::uint64_t, 4>;

    /// Scalable registers have as many bits as vector registers, 128, or the 256 of a scalable_value.
    explicit simulated_cpu(unsigned scalable_bits = 128) : simulator_(&decoder_)
    {
        simulator_.SetVectorLengthInBits(scalable_bits);
        simulator_.SetCPUFeatures(vixl::CPUFeatures::All());
        names_decoder_.AppendVisitor(&names_);
    }

    vixl::aarch64::Simulator& simulator() { return simulator_; }

    [[nodiscard]] std::uint64_t x(unsigned number) const
    {
        return static_cast<std::uint64_t>(simulator_.ReadXRegister(number));
    }
    void write_x(unsigned number, std::uint64_t value)
    {
        simulator_.WriteXRegister(number, static_cast<std::int64_t>(value));
    }
    [[nodiscard]] std::uint64_t sp() const
    {
        return static_cast<std::uint64_t>(simulator_.ReadXRegister(31, vixl::aarch64::Reg31IsStackPointer));
    }
    [[nodiscard]] vector_value v(unsigned number) const
    {
        const auto value = simulator_.ReadVRegister<vixl::aarch64::Simulator::qreg_t>(number);
        vector_value words{};
        std::memcpy(words.data(), &value, sizeof value);
        return words;
    }
    void write_v(unsigned number, const vector_value& words)
    {
        vixl::aarch64::Simulator::qreg_t value;
        std::memcpy(&value, words.data(), sizeof value);
        simulator_.WriteQRegister(number, value);
    }
    [[nodiscard]] scalable_value z(unsigned number)
    {
        scalable_value words{};
        for (int lane = 0; lane < 4; ++lane)
            words[static_cast<std::size_t>(lane)] =
                simulator_.ReadVRegister(number).GetLane<std::uint64_t>(lane);
        return words;
    }
    void write_z(unsigned number, const scalable_value& words)
    {
        for (int lane = 0; lane < 4; ++lane)
            simulator_.ReadVRegister(number).Insert(lane, words[static_cast<std::size_t>(lane)]);
    }
    [[nodiscard]] std::uint32_t p(unsigned number)
    {
        return simulator_.ReadPRegister(number).GetLane<std::uint32_t>(0);
    }
    void write_p(unsigned number, std::uint32_t value) { simulator_.ReadPRegister(number).Insert(0, value); }
    [[nodiscard]] std::uint64_t pc() const { return reinterpret_cast<std::uint64_t>(simulator_.ReadPc()); }
    void write_pc(std::uint64_t address)
    {
        simulator_.WritePc(reinterpret_cast<const vixl::aarch64::Instruction*>(address));
    }
    void write_flags(unsigned nzcv) { simulator_.ReadNzcv().SetRawValue(nzcv << 28); }
    [[nodiscard]] unsigned flags() { return simulator_.ReadNzcv().GetRawValue() >> 28; }

    /// The instruction at the program counter, as VIXL prints it.
    const std::string& text_here()
    {
        const vixl::aarch64::Instruction* const here = simulator_.ReadPc();
        const auto [known, is_new] = texts_.try_emplace(here->GetInstructionBits());
        if (is_new) {
            names_decoder_.Decode(here);
            known->second = names_.GetOutput();
        }
        return known->second;
    }
    /// Whether the simulator implements the instruction at the program counter; it skips those that it does
    /// not.
    bool knows_instruction_here()
    {
        const std::string& text = text_here();
        return text.compare(0, 3, "una") != 0 && text.compare(0, 3, "uni") != 0;
    }

private:
    vixl::aarch64::Decoder decoder_;
    vixl::aarch64::Simulator simulator_;
    vixl::aarch64::Decoder names_decoder_;
    vixl::aarch64::Disassembler names_;
    std::unordered_map<std::uint32_t, std::string> texts_;
};

} // namespace support
