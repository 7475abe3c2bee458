// The kernel finaliser. Read it from the bottom up: finalise_kernels places a set of kernels, emit_single
// registers and links one of them, resolve_relocation patches one instruction word, and the first functions
// report errors.

#include "fft/SRC/wfta/kernel_printer.hpp"

#include "fft/SRC/wfta/dump_filter.hpp"
#include "jit/elf.hpp"

#undef NDEBUG // or <cassert> would not declare __assert_fail
#include <cassert>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <elf.h>
#include <fstream>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

using std::string;
using std::uint32_t;
using std::uint64_t;
using std::uint8_t;
using vorna::wfta::kernel_registry_map;
using vorna::wfta::want_dump_kernel;

// The compiler runtime's name. NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" void __clear_cache(void* begin, void* end);

// Checks an invariant in every build and reports a broken one through the C library's own reporter: assert()
// disappears with NDEBUG, together with the evaluation, and spells the function's signature as the
// compiler does, and the file's name as the build does.
#define ASSERT_IN(function, ...) ASSERT_AS(function, #__VA_ARGS__, __VA_ARGS__)
#define ASSERT_AS(function, text, ...)                                                                       \
    ((__VA_ARGS__) ? void() : __assert_fail(text, "fft/SRC/wfta/kernel_printer.cpp", __LINE__, function))

[[noreturn]] static void debug_dump_kernels_and_fail(const kernel_registry_map& kernel_registry)
{
    static constexpr char function[] = "void debug_dump_kernels_and_fail(const kernel_registry_map&)";

    for (const auto& [name, kernel] : kernel_registry) {
        fprintf(stderr, "  %s \t %p 0x%lx %p 0x%lx\n", name.c_str(),
                static_cast<const void*>(kernel.text_ptr), kernel.text_len,
                static_cast<const void*>(kernel.data_ptr), kernel.data_len);
    }
    ASSERT_IN(function, false);
}

// The relocations of "ELF for the Arm 64-bit Architecture (AArch64)", in its letters: S is the target's
// address plus the addend (its S + A), P the place, that is, the address of the instruction word, and X
// the difference of the two, which is checked and encoded.

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are read and written as they lie in memory");

template <unsigned width>
static bool fits_signed(uint64_t X)
{
    return static_cast<uint64_t>(static_cast<int64_t>(X << (64 - width)) >> (64 - width)) == X;
}

template <unsigned high, unsigned low>
static uint32_t bits(uint64_t X)
{
    return static_cast<uint32_t>(X >> low) & ((uint32_t{1} << (high - low + 1)) - 1);
}

static constexpr uint64_t whole = ~uint64_t{0};
static constexpr uint64_t page = ~uint64_t{0xfff};
static constexpr uint64_t nothing = 0;

namespace {

struct relocation_kind {
    uint64_t part_of_S; // X = (S & part_of_S) - (P & part_of_P)
    uint64_t part_of_P;
    bool (*in_range)(uint64_t X);
    uint32_t (*field)(uint64_t X);
    uint32_t filled_mask;       // bits of the instruction word that must still be zero
    const char* filled_message; // with P and the word
    const char* range_message;  // with the two operands and X
};

} // namespace

// ADR: X = S - P, signed 21 bits (1 MiB); X[1:0] in immlo (bits 30:29), X[20:2] in immhi (bits 23:5)
static constexpr relocation_kind adr = {
    whole,
    whole,
    fits_signed<21>,
    [](uint64_t X) { return bits<1, 0>(X) << 29 | bits<20, 2>(X) << 5; },
    0x60ffffe0,
    "resolving R_AARCH64_ADR_PREL_LO21 reloc but dst address %p was already filled, got 0x%x\n",
    "resolving R_AARCH64_ADR_PREL_LO21 reloc but smod does not fit in +/-1M, got 0x%lx - 0x%lx = 0x%lx\n"};

// ADRP: X = Page(S) - Page(P), signed 33 bits (4 GiB); X[13:12] in immlo, X[32:14] in immhi
static constexpr relocation_kind adrp = {
    page,
    page,
    fits_signed<33>,
    [](uint64_t X) { return bits<13, 12>(X) << 29 | bits<32, 14>(X) << 5; },
    0x60ffffe0,
    "resolving R_AARCH64_ADR_PREL_PG_HI21 reloc but dst address %p was already filled, got 0x%x\n",
    "resolving R_AARCH64_ADR_PREL_PG_HI21 reloc but smod does not fit in +/-4G, got 0x%lx - 0x%lx = 0x%lx\n"};

// ADD (immediate): X = S, not checked; X[11:0] in imm12 (bits 21:10)
static constexpr relocation_kind add = {
    whole,
    nothing,
    [](uint64_t) { return true; },
    [](uint64_t X) { return bits<11, 0>(X) << 10; },
    0x3ffc00,
    "resolving R_AARCH64_ADD_ABS_LO12_NC reloc but dst address %p was already filled, got 0x%x\n",
    ""};

// BL: X = S - P, signed 28 bits (128 MiB), multiple of 4; X[27:2] in imm26 (bits 25:0; bit 25 is not
// tested)
static constexpr relocation_kind call = {
    whole,
    whole,
    [](uint64_t X) { return fits_signed<28>(X) && X % 4 == 0; },
    [](uint64_t X) { return bits<27, 2>(X); },
    0x1ffffff,
    "resolving R_AARCH64_CALL26 reloc but dst address %p was already filled, got 0x%x\n",
    "resolving R_AARCH64_CALL26 reloc but smod does not fit in +/-128M, got 0x%lx - 0x%lx = 0x%lx\n"};

// Fills the field of the instruction at P. Inlined, a kind costs neither a table walk nor an indirect call.
static inline void patch(const relocation_kind& kind, uint64_t S, uint64_t P,
                         const kernel_registry_map& kernel_registry)
{
    void* const place = reinterpret_cast<void*>(P);
    uint32_t W;
    memcpy(&W, place, sizeof W);
    if ((W & kind.filled_mask) != 0) {
        fprintf(stderr, kind.filled_message, place, W);
        debug_dump_kernels_and_fail(kernel_registry);
    }

    const uint64_t minuend = S & kind.part_of_S;
    const uint64_t subtrahend = P & kind.part_of_P;
    const uint64_t X = minuend - subtrahend;
    if (!kind.in_range(X)) {
        fprintf(stderr, kind.range_message, minuend, subtrahend, X);
        debug_dump_kernels_and_fail(kernel_registry);
    }

    W |= kind.field(X);
    memcpy(place, &W, sizeof W);
}

static void resolve_relocation(const string& fn_name, uint8_t* text, const uint8_t* data,
                               const tessjit::reloc_info& reloc, kernel_registry_map& kernel_registry)
{
    static constexpr char function[] =
        "void resolve_relocation(const string&, uint8_t*, const uint8_t*, const tessjit::reloc_info&, vorna::wfta::kernel_registry_map&)";

    const uint8_t* target_addr = nullptr;
    if (reloc.name.size() > 7 && memcmp(reloc.name.data(), ".rodata.", 8) == 0) {
        // The asserted expression, without its temporary string.
        ASSERT_AS(function, "reloc.name.substr(8) == fn_name",
                  std::string_view(reloc.name).substr(8) == fn_name);
        target_addr = data;
    } else if (reloc.name == fn_name) {
        target_addr = text; // just registered, so a look-up would find the same
    } else {
        const auto it = kernel_registry.find(reloc.name);
        ASSERT_IN(function, it != kernel_registry.end());
        target_addr = it->second.text_ptr;
    }
    ASSERT_IN(function, target_addr);

    const uint64_t S = reinterpret_cast<uint64_t>(target_addr) + static_cast<uint64_t>(int64_t{reloc.addend});
    const uint64_t P = reinterpret_cast<uint64_t>(text) + static_cast<uint64_t>(int64_t{reloc.offset});

    switch (reloc.type) {
    case R_AARCH64_ADR_PREL_LO21:
        return patch(adr, S, P, kernel_registry);
    case R_AARCH64_ADR_PREL_PG_HI21:
        return patch(adrp, S, P, kernel_registry);
    case R_AARCH64_ADD_ABS_LO12_NC:
        return patch(add, S, P, kernel_registry);
    case R_AARCH64_CALL26:
        return patch(call, S, P, kernel_registry);
    default:
        ASSERT_IN(function, false && "unhandled reloc type");
    }
}

// The diagnostics. Each switch reads its variable at the first emission of the process and never again; the
// third, want_dump_kernel, is in dump_filter.cpp.

static bool is_switched_on(const char* variable)
{
    const char* const value = getenv(variable);
    return value != nullptr && strcmp(value, "1") == 0;
}

static bool want_map_file()
{
    static const bool ret = is_switched_on("VORNA_WFTA_PERF");
    return ret;
}

static bool want_check_kernel_hash()
{
    static const bool ret = is_switched_on("VORNA_WFTA_CHECK_HASH");
    return ret;
}

// Runs `write`, which writes one file, possibly stderr. At a size limit or on a closed pipe it fails without
// SIGXFSZ or SIGPIPE. An exception would leave the signals blocked, so `write` must not throw.
template <typename Write>
static void write_without_signals(const Write& write)
{
    sigset_t pending_before;
    sigpending(&pending_before);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGXFSZ, SIGPIPE})
        if (sigismember(&pending_before, signal) == 0)
            sigaddset(&signals, signal);
    sigset_t mask_before;
    pthread_sigmask(SIG_BLOCK, &signals, &mask_before);

    write();

    const timespec no_wait{};
    sigtimedwait(&signals, nullptr, &no_wait);
    pthread_sigmask(SIG_SETMASK, &mask_before, nullptr);
}

static void dump_kernel(const string& fn_name, const uint8_t* text, size_t text_len, const uint8_t* data,
                        size_t data_len, std::vector<tessjit::reloc_info> relocs)
{
    std::ofstream file(fn_name, std::ios::out | std::ios::binary);
    tessjit::elf_data elf;
    elf.fns.emplace_back(fn_name, text, std::vector<uint8_t>(text, text + text_len), data,
                         std::vector<uint8_t>(data, data + data_len), std::move(relocs));
    const std::vector<uint8_t> image = tessjit::emit_elf(elf);
    write_without_signals([&] {
        file.write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
        file.close();
    });
}

// The file's name is formed for each line, since a forked child has a map of its own.
static void append_map_line(const string& fn_name, const uint8_t* text_ptr, size_t text_len)
{
    char path[500];
    snprintf(path, sizeof path, "/tmp/perf-%d.map", getpid());
    FILE* const map_file = fopen(path, "a");
    if (map_file == nullptr)
        return;
    write_without_signals([&] {
        fprintf(map_file, "%lx %lx %s\n", reinterpret_cast<uintptr_t>(text_ptr), text_len, fn_name.c_str());
        fclose(map_file);
    });
}

// Powers of 31, the hash's multiplier.
static constexpr uint64_t power_2 = uint64_t{31} * 31;
static constexpr uint64_t power_4 = power_2 * power_2;
static constexpr uint64_t power_8 = power_4 * power_4;
static constexpr uint64_t power_16 = power_8 * power_8;

// The hash of eight bytes: sums of two bytes in 16 bits each, of four in 32, of eight in 64; none overflows.
static uint64_t hash_of_eight(const uint8_t* bytes)
{
    uint64_t sums;
    memcpy(&sums, bytes, sizeof sums);
    sums = (sums & 0x00ff00ff00ff00ff) * 31 + (sums >> 8 & 0x00ff00ff00ff00ff);
    sums = (sums & 0x0000ffff0000ffff) * power_2 + (sums >> 16 & 0x0000ffff0000ffff);
    return (sums & 0x00000000ffffffff) * power_4 + (sums >> 32);
}

// h = h * 31 + b for every byte b, modulo 2^64. Each step hashes two independent groups of
// eight bytes.
static uint64_t kernel_code_hash(const uint8_t* text_ptr, size_t text_len)
{
    uint64_t h = 0;
    size_t i = 0;
    for (; i < text_len % 16; ++i)
        h = h * 31 + text_ptr[i];
    for (; i < text_len; i += 16)
        h = h * power_16 + (hash_of_eight(text_ptr + i) * power_8 + hash_of_eight(text_ptr + i + 8));
    return h;
}

static void dump_kernel_hash(const string& hash_file, uint64_t hash)
{
    write_without_signals(
        [&] { fprintf(stderr, "emitting new hash file: %s -> 0x%lx\n", hash_file.c_str(), hash); });
    std::ofstream file(hash_file, std::ios::out | std::ios::binary);
    write_without_signals([&] {
        file.write(reinterpret_cast<const char*>(&hash), sizeof hash);
        file.close();
    });
}

static void check_kernel_hash(const string& fn_name, const uint8_t* text_ptr, size_t text_len)
{
    static constexpr char function[] = "void check_kernel_hash(const string&, const uint8_t*, size_t)";

    const uint64_t hash = kernel_code_hash(text_ptr, text_len);
    const string hash_file = fn_name + ".hash";
    std::ifstream file(hash_file, std::ios::in | std::ios::binary);
    if (file.fail()) {
        dump_kernel_hash(hash_file, hash);
        return;
    }

    uint64_t stored_hash = 0;
#ifdef _LIBCPP_VERSION // reports nothing as available before the first read
    file.peek();
#endif
    const int64_t nbytes = file.readsome(reinterpret_cast<char*>(&stored_hash), sizeof stored_hash);
    ASSERT_IN(function, nbytes >= 0);
    if (nbytes != sizeof stored_hash) {
        write_without_signals([&] {
            fprintf(stderr, "corrupt hash file? %s should be %lu bytes but read %ld\n", hash_file.c_str(),
                    sizeof stored_hash, nbytes);
        });
        dump_kernel_hash(hash_file, hash);
    } else if (stored_hash != hash) {
        write_without_signals([&] {
            fprintf(stderr, "hash files did not match! (old) 0x%lx != (new) 0x%lx\n", stored_hash, hash);
        });
        dump_kernel_hash(hash_file, hash);
    }
}

static void emit_single(kernel_registry_map& kernel_registry, const string& fn_name, uint8_t* text_ptr,
                        size_t text_len, const uint8_t* data_ptr, size_t data_len,
                        const std::vector<tessjit::reloc_info>& relocs)
{
    static constexpr char function[] =
        "void emit_single(vorna::wfta::kernel_registry_map&, const string&, uint8_t*, size_t, const uint8_t*, size_t, const std::vector<tessjit::reloc_info>&)";

    ASSERT_IN(function,
              kernel_registry.emplace(fn_name, vorna::wfta::kernel_registry_entry{ text_ptr, text_len, data_ptr, data_len }).second);

    // Before the relocations: dump and hash are of the code as generated.
    if (want_dump_kernel(fn_name) || want_map_file())
        dump_kernel(fn_name, text_ptr, text_len, data_ptr, data_len, relocs);
    if (want_map_file())
        append_map_line(fn_name, text_ptr, text_len);
    if (want_check_kernel_hash())
        check_kernel_hash(fn_name, text_ptr, text_len);

    for (const tessjit::reloc_info& reloc : relocs)
        resolve_relocation(fn_name, text_ptr, data_ptr, reloc, kernel_registry);
}

// Kernels start on 32-byte boundaries.
static size_t round_up_to_32(size_t x)
{
    return (x + 31) & ~size_t{31};
}

static void copy_bytes(uint8_t* destination, const std::vector<uint8_t>& bytes)
{
    if (!bytes.empty()) // an empty vector may hold a null pointer, which memcpy must not get
        memcpy(destination, bytes.data(), bytes.size());
}

void vorna::wfta::finalise_kernels(kernel_registry_map& kernel_registry,
                                   const std::vector<kernel_data>& kernels)
{
    size_t text_size = 0;
    size_t data_size = 0;
    for (const kernel_data& kernel : kernels) {
        text_size = round_up_to_32(text_size + kernel.text.size());
        data_size += kernel.data.size();
    }

    void* const mapping = mmap(nullptr, text_size + data_size, PROT_READ | PROT_WRITE | PROT_EXEC,
                               MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
#ifdef MADV_POPULATE_WRITE
    // Faults in all pages at once, which is cheaper than one by one. Where that is refused, as before
    // Linux 5.14, each faults when it is written.
    if (mapping != MAP_FAILED)
        madvise(mapping, text_size + data_size, MADV_POPULATE_WRITE);
#endif
    // A refused mapping is not an error here: an empty set needs none, and any other faults at its first
    // copy. Addresses are integers until they are used, since arithmetic on a null pointer is undefined.
    const auto base = mapping == MAP_FAILED ? 0 : reinterpret_cast<uintptr_t>(mapping);
    const uintptr_t data_base = base + text_size;
    size_t text_offset = 0;
    size_t data_offset = 0;
    for (const kernel_data& kernel : kernels) {
        const auto text_ptr = reinterpret_cast<uint8_t*>(base + text_offset);
        const auto data_ptr = reinterpret_cast<uint8_t*>(data_base + data_offset);
        copy_bytes(text_ptr, kernel.text);
        copy_bytes(data_ptr, kernel.data);
        emit_single(kernel_registry, kernel.name, text_ptr, kernel.text.size(), data_ptr, kernel.data.size(),
                    kernel.relocs);
        if (kernel.entry_out != nullptr)
            memcpy(kernel.entry_out, &text_ptr, sizeof text_ptr);
        text_offset = round_up_to_32(text_offset + kernel.text.size());
        data_offset += kernel.data.size();
    }

    __clear_cache(reinterpret_cast<void*>(base), reinterpret_cast<void*>(data_base));
}
