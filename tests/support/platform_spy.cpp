#include "tests/support/platform_spy.hpp"

#include <cerrno>
#include <sys/mman.h>
#include <system_error>

// The linker's names for a wrapped function. NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __real_mmap(void* hint, std::size_t length, int protection, int flags, int fd, off_t offset);
void* __wrap_mmap(void* hint, std::size_t length, int protection, int flags, int fd, off_t offset);
int __real_madvise(void* begin, std::size_t length, int advice);
int __wrap_madvise(void* begin, std::size_t length, int advice);
void __real___clear_cache(void* begin, void* end);
void __wrap___clear_cache(void* begin, void* end);
}

namespace support {

static platform_spy* current_spy = nullptr;

platform_spy::platform_spy()
{
    current_spy = this;
}

platform_spy::~platform_spy()
{
    current_spy = nullptr;
}

static constexpr std::size_t guard = 0x10000; // a page of any size that Linux uses on AArch64

address_range::address_range(std::size_t length) : reserved_length_(length + 3 * guard)
{
    void* const reserved =
        __real_mmap(nullptr, reserved_length_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (reserved == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    reserved_ = static_cast<std::uint8_t*>(reserved);
    const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(reserved) + guard;
    begin_ = reinterpret_cast<std::uint8_t*>((first + guard - 1) & ~(guard - 1));
}

address_range::~address_range()
{
    munmap(reserved_, reserved_length_);
}

} // namespace support

void* __wrap_mmap(void* hint, std::size_t length, int protection, int flags, int fd, off_t offset)
{
    using support::current_spy;
    if (current_spy == nullptr) {
        return __real_mmap(hint, length, protection, flags, fd, offset);
    }
    void* result = MAP_FAILED;
    if (current_spy->refuse) {
        errno = ENOMEM;
    } else if (current_spy->place != nullptr) {
        result = __real_mmap(current_spy->place, length, protection, flags | MAP_FIXED, fd, offset);
        current_spy->place = nullptr;
    } else {
        result = __real_mmap(hint, length, protection, flags, fd, offset);
    }
    current_spy->mappings.push_back({hint, length, protection, flags, fd, offset, result});
    return result;
}

int __wrap_madvise(void* begin, std::size_t length, int advice)
{
    if (support::current_spy != nullptr)
        support::current_spy->advices.push_back({begin, length, advice});
    return __real_madvise(begin, length, advice);
}

void __wrap___clear_cache(void* begin, void* end)
{
    using support::current_spy;
    if (current_spy != nullptr) {
        const auto* const first = static_cast<const std::uint8_t*>(begin);
        const auto* const last = static_cast<const std::uint8_t*>(end);
        current_spy->flushes.push_back({first, last, {first, last}});
        if (current_spy->on_flush) {
            current_spy->on_flush();
        }
    }
    __real___clear_cache(begin, end);
}
// NOLINTEND(bugprone-reserved-identifier)
