#include "workbench/input/dumps.hpp"

#include "workbench/os/file.hpp"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <gelf.h>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <unordered_set>

namespace vorna::workbench {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are read as they lie in memory");

namespace {

// Memory is bounded by the image's size, so that sections that share their bytes, or relocations that share a
// long name, cannot fill it.
class budget {
public:
    explicit budget(std::size_t bytes) : left_(bytes) {}
    void take(std::size_t bytes, const char* what)
    {
        if (bytes > left_)
            throw std::runtime_error(what);
        left_ -= bytes;
    }

private:
    std::size_t left_;
};

struct elf_closer {
    void operator()(Elf* elf) const { elf_end(elf); }
};

struct elf_section {
    std::size_t index;
    Elf_Scn* handle;
    GElf_Shdr header;
    std::string name;
};

constexpr std::string_view text_prefix = ".text.";
constexpr std::size_t longest_name = 65536;
constexpr char long_names[] = "names are too long for the file's size";

bool starts_with(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

[[noreturn]] void fail_with_elf_error(const char* what)
{
    throw std::runtime_error(fmt::format("{}: {}", what, elf_errmsg(-1)));
}

void check_header(Elf* elf)
{
    GElf_Ehdr header;
    if (elf_kind(elf) != ELF_K_ELF || gelf_getehdr(elf, &header) == nullptr)
        throw std::runtime_error("truncated, or not an ELF file");
    if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB ||
        header.e_machine != EM_AARCH64)
        throw std::runtime_error("not an ELF file for little-endian AArch64");
    if (header.e_type != ET_REL)
        throw std::runtime_error("not a relocatable object");
}

std::vector<elf_section> read_sections(Elf* elf, budget& names_left)
{
    std::size_t names = 0;
    if (elf_getshdrstrndx(elf, &names) != 0)
        fail_with_elf_error("no section names");
    std::vector<elf_section> sections;
    sections.reserve(16); // the dump of one kernel has fewer
    for (Elf_Scn* section = elf_nextscn(elf, nullptr); section != nullptr;
         section = elf_nextscn(elf, section)) {
        GElf_Shdr header;
        if (gelf_getshdr(section, &header) == nullptr)
            fail_with_elf_error("bad section header");
        const char* const name = elf_strptr(elf, names, header.sh_name);
        if (name == nullptr)
            fail_with_elf_error("bad section name");
        // Only the sections of kernels are recognised by name.
        const std::size_t length = header.sh_type == SHT_PROGBITS ? strnlen(name, longest_name + 1) : 0;
        names_left.take(length, long_names);
        sections.push_back({elf_ndxscn(section), section, header, std::string(name, length)});
    }
    return sections;
}

Elf_Data* contents(const elf_section& section)
{
    Elf_Data* const data = elf_getdata(section.handle, nullptr);
    if (data == nullptr || (data->d_buf == nullptr && data->d_size != 0) ||
        data->d_size != section.header.sh_size)
        throw std::runtime_error(fmt::format("section {} extends past the end of the file", section.index));
    return data;
}

std::vector<std::uint8_t> bytes_of(const elf_section& section, budget& bytes)
{
    const Elf_Data* const data = contents(section);
    bytes.take(data->d_size, "sections that overlap in the file");
    const auto* const begin = static_cast<const std::uint8_t*>(data->d_buf);
    return begin == nullptr ? std::vector<std::uint8_t>()
                            : std::vector<std::uint8_t>(begin, begin + data->d_size);
}

std::int32_t narrow(std::int64_t value, const char* what)
{
    if (value < std::numeric_limits<std::int32_t>::min() || value > std::numeric_limits<std::int32_t>::max())
        throw std::runtime_error(fmt::format("a relocation's {} does not fit into 32 bits", what));
    return static_cast<std::int32_t>(value);
}

void read_relocations(Elf* elf, const elf_section& section, std::vector<tessjit::reloc_info>& relocs,
                      budget& names)
{
    Elf_Scn* const symbol_section = elf_getscn(elf, section.header.sh_link);
    GElf_Shdr symbol_header;
    if (symbol_section == nullptr || gelf_getshdr(symbol_section, &symbol_header) == nullptr ||
        symbol_header.sh_type != SHT_SYMTAB)
        throw std::runtime_error("relocations without a symbol table");
    Elf_Data* const symbols = elf_getdata(symbol_section, nullptr);
    Elf_Data* const data = contents(section);
    const std::size_t count = data->d_size / sizeof(Elf64_Rela);
    relocs.reserve(relocs.size() + count);
    for (std::size_t i = 0; i < count; ++i) {
        GElf_Rela rela;
        GElf_Sym symbol;
        if (gelf_getrela(data, static_cast<int>(i), &rela) == nullptr)
            fail_with_elf_error("bad relocation");
        if (symbols == nullptr ||
            gelf_getsym(symbols, static_cast<int>(GELF_R_SYM(rela.r_info)), &symbol) == nullptr)
            throw std::runtime_error("a relocation's symbol does not exist");
        const char* const name = elf_strptr(elf, symbol_header.sh_link, symbol.st_name);
        if (name == nullptr)
            throw std::runtime_error("a relocation's symbol has no name");
        const std::size_t length = strnlen(name, longest_name + 1);
        names.take(length, long_names);
        relocs.push_back(
            {std::string(name, length), narrow(static_cast<std::int64_t>(rela.r_offset), "offset"),
             static_cast<std::int32_t>(GELF_R_TYPE(rela.r_info)), narrow(rela.r_addend, "addend")});
    }
}

} // namespace

std::vector<placed_kernel> parse_dump(const void* image, std::size_t size)
{
    if (size < sizeof(Elf64_Ehdr))
        throw std::runtime_error("truncated, or not an ELF file");
    elf_version(EV_CURRENT);
    // libelf takes a pointer to writable bytes, but writes only if told to.
    const std::unique_ptr<Elf, elf_closer> elf(
        elf_memory(static_cast<char*>(const_cast<void*>(image)), size)); // NOLINT
    if (elf == nullptr)
        throw std::runtime_error("not an ELF file");
    check_header(elf.get());
    budget names(8 * size);
    const std::vector<elf_section> sections = read_sections(elf.get(), names);

    std::vector<placed_kernel> kernels;
    std::vector<bool> has_data;
    std::unordered_map<std::string, std::size_t> by_name; // the last kernel of each
    std::vector<std::size_t> text_sections;               // of each kernel, ascending
    budget bytes(size);
    for (const elf_section& section : sections) {
        if (starts_with(section.name, text_prefix)) {
            placed_kernel kernel;
            kernel.name = section.name.substr(text_prefix.size());
            kernel.text_address = section.header.sh_addr;
            kernel.text = bytes_of(section, bytes);
            by_name[kernel.name] = kernels.size();
            text_sections.push_back(section.index);
            kernels.push_back(std::move(kernel));
            has_data.push_back(false);
        } else if (starts_with(section.name, data_prefix)) {
            const auto owner = by_name.find(section.name.substr(data_prefix.size()));
            if (owner == by_name.end() || has_data[owner->second])
                throw std::runtime_error(fmt::format("section {} belongs to no kernel", section.index));
            has_data[owner->second] = true;
            placed_kernel& kernel = kernels[owner->second];
            kernel.data_address = section.header.sh_addr;
            kernel.data = bytes_of(section, bytes);
            if (kernel.data_address < kernel.text_end() || kernel.text_end() < kernel.text_address ||
                kernel.data_end() < kernel.data_address)
                throw std::runtime_error("code and data are not placed as the finaliser places them");
        }
    }
    if (kernels.empty())
        throw std::runtime_error("no kernel found");
    if (std::find(has_data.begin(), has_data.end(), false) != has_data.end())
        throw std::runtime_error("a kernel has no data section");

    for (const elf_section& section : sections) {
        if (section.header.sh_type != SHT_RELA)
            continue;
        const auto owner =
            std::lower_bound(text_sections.begin(), text_sections.end(), section.header.sh_info);
        if (owner == text_sections.end() || *owner != section.header.sh_info)
            throw std::runtime_error("relocations for a section that is not a kernel's code");
        bytes.take(section.header.sh_size, "sections that overlap in the file");
        read_relocations(elf.get(), section,
                         kernels[static_cast<std::size_t>(owner - text_sections.begin())].relocs, names);
    }
    return kernels;
}

namespace {

enum class file_kind { dump, read_before, empty, not_elf, not_object };

/// Files by device and inode: a file may have several names, and be given several times.
using file_id = std::pair<dev_t, ino_t>;
struct file_hash {
    std::size_t operator()(const file_id& id) const { return id.first * 31 + id.second; }
};
using file_set = std::unordered_set<file_id, file_hash>;

// Throws std::runtime_error with what is wrong.
file_kind read_file(const std::string& path, std::vector<placed_kernel>& kernels, std::vector<char>& buffer,
                    file_set& files_read)
{
    constexpr std::size_t first_read = 65'536; // most dumps, but not all of a large file of another kind
    constexpr std::size_t largest = std::size_t{1} << 30;
    const std::optional<regular_file> file = open_regular_file(path);
    if (!file)
        return file_kind::not_elf;
    if (!files_read.emplace(file->device, file->inode).second)
        return file_kind::read_before;
    const std::size_t size = file->size;
    if (size == 0)
        return file_kind::empty;
    buffer.resize(std::min(size, first_read));
    const std::size_t got = read_at(file->descriptor, buffer.data(), buffer.size(), 0);
    if (got < SELFMAG || std::memcmp(buffer.data(), ELFMAG, SELFMAG) != 0)
        return file_kind::not_elf;
    if (size > largest)
        throw std::runtime_error("file exceeds the 1 GiB limit for dumps");
    buffer.resize(size);
    if (got + read_at(file->descriptor, buffer.data() + got, size - got, static_cast<off_t>(got)) != size)
        throw std::runtime_error("file shrank while it was read");
    Elf64_Half type = ET_REL;
    if (size >= offsetof(Elf64_Ehdr, e_type) + sizeof type)
        std::memcpy(&type, buffer.data() + offsetof(Elf64_Ehdr, e_type), sizeof type);
    if (type == ET_EXEC || type == ET_DYN || type == ET_CORE)
        return file_kind::not_object;
    for (placed_kernel& kernel : parse_dump(buffer.data(), size)) {
        kernel.file = path;
        kernels.push_back(std::move(kernel));
    }
    return file_kind::dump;
}

} // namespace

dump_reading read_dumps(const std::vector<std::string>& paths, const reading_progress& progress)
{
    dump_reading reading;
    std::vector<placed_kernel> kernels;
    std::vector<char> buffer;
    file_set files_read;
    const auto read_one = [&](const std::string& path, bool named) {
        try {
            switch (read_file(path, kernels, buffer, files_read)) {
            case file_kind::dump:
            case file_kind::read_before:
                break;
            case file_kind::empty: // what a killed process leaves of a dump
                reading.errors.push_back(path + ": empty");
                break;
            case file_kind::not_object: // the host itself perhaps, or a linked image
                (named ? reading.errors : reading.skipped)
                    .push_back(path + ": a program or the like, not a dump");
                break;
            case file_kind::not_elf:
                (named ? reading.errors : reading.skipped).push_back(path + ": not an ELF file");
            }
        } catch (const std::runtime_error& error) {
            reading.errors.push_back(fmt::format("{}: {}", path, error.what()));
        }
    };
    struct found_file {
        std::string path;
        bool named;
    };
    std::vector<found_file> files;
    for (const std::string& path : paths) {
        std::error_code error;
        if (!std::filesystem::is_directory(path, error)) {
            files.push_back({path, true});
            continue;
        }
        const auto first = static_cast<std::ptrdiff_t>(files.size());
        for (std::filesystem::directory_iterator entry(path, error), end; !error && entry != end;
             entry.increment(error))
            files.push_back({entry->path().string(), false});
        if (error)
            reading.errors.push_back(fmt::format("{}: {}", path, error.message()));
        std::sort(files.begin() + first, files.end(),
                  [](const found_file& a, const found_file& b) { return a.path < b.path; });
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        read_one(files[i].path, files[i].named);
        if (progress)
            progress(i + 1, files.size());
    }
    reading.set = make_kernel_set(std::move(kernels));
    if (const auto overlap = find_overlap(reading.set)) {
        const placed_kernel& first = reading.set.kernels[overlap->first];
        const placed_kernel& second = reading.set.kernels[overlap->second];
        reading.errors.push_back(
            fmt::format("{} and {}: {} and {} are placed in the same memory: dumps of two runs", first.file,
                        second.file, first.name, second.name));
        reading.set = {};
    }
    return reading;
}

} // namespace vorna::workbench
