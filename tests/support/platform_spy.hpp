// Records the library's calls of mmap, madvise and __clear_cache in programs that link wfta_platform_spy
// (link-time wrapping: calls from inside the C library are not seen).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <sys/types.h>
#include <vector>

namespace support {

struct mapping_call {
    void* hint;
    std::size_t length;
    int protection;
    int flags;
    int fd;
    off_t offset;
    void* result;
};

struct advice_call {
    void* begin;
    std::size_t length;
    int advice;
};

struct flush_call {
    const std::uint8_t* begin;
    const std::uint8_t* end;
    std::vector<std::uint8_t> bytes; ///< what the range held when it was flushed
};

/// Records the calls made during its lifetime, and passes them on. Only one may exist.
class platform_spy {
public:
    platform_spy();
    ~platform_spy();
    platform_spy(const platform_spy&) = delete;
    platform_spy& operator=(const platform_spy&) = delete;

    std::vector<mapping_call> mappings;
    std::vector<advice_call> advices;
    std::vector<flush_call> flushes;

    bool refuse = false;            ///< refuse mappings, with MAP_FAILED and ENOMEM
    void* place = nullptr;          ///< where to put the next mapping; null leaves it to the system
    std::function<void()> on_flush; ///< called at each flush, if set
};

/// Address space to place mappings in: a test knows a mapping's address in advance, in a child too, and that
/// there are inaccessible pages on both sides.
class address_range {
public:
    /// Reserves `length` bytes, a multiple of the page size, between two guards. Throws std::system_error.
    explicit address_range(std::size_t length);
    ~address_range();
    address_range(const address_range&) = delete;
    address_range& operator=(const address_range&) = delete;

    /// First byte, 64 KiB aligned.
    [[nodiscard]] std::uint8_t* begin() const { return begin_; }

private:
    std::uint8_t* reserved_;
    std::size_t reserved_length_;
    std::uint8_t* begin_;
};

} // namespace support
