// Splits a text that arrives in pieces into lines.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace vorna::workbench {

/// A line without its newline, or carriage return and newline.
struct text_line {
    std::string_view text;
    std::size_t number = 0; ///< from 1
    bool truncated = false; ///< it was too long: `text` is its end
    bool ended = true;      ///< by a newline; false only for the last line
};

/// Splits a text into lines, wherever the pieces begin and end. Keeps the last `longest` bytes of a longer
/// line, so memory is bounded whatever the text contains.
class line_reader {
public:
    explicit line_reader(std::size_t longest) : longest_(longest) {}

    /// Calls `take` with each line that ends in the piece. The line's text is valid during the call.
    template <typename Take>
    void read(std::string_view piece, Take&& take)
    {
        while (!piece.empty()) {
            const void* const newline = std::memchr(piece.data(), '\n', piece.size());
            if (newline == nullptr)
                return keep(piece);
            const auto length = static_cast<std::size_t>(static_cast<const char*>(newline) - piece.data());
            end_line(piece.substr(0, length), true, take);
            piece.remove_prefix(length + 1);
        }
    }

    /// Calls `take` with the last line if no newline ends it. Call once, after the last piece.
    template <typename Take>
    void finish(Take&& take)
    {
        if (!partial_.empty())
            end_line({}, false, take);
    }

private:
    template <typename Take>
    void end_line(std::string_view rest, bool ended, Take& take)
    {
        if (partial_.empty() && rest.size() <= longest_) { // without a copy
            take(text_line{without_return(rest), ++number_, false, ended});
            return;
        }
        keep(rest);
        std::string_view text = partial_;
        if (text.size() > longest_) {
            text.remove_prefix(text.size() - longest_);
            truncated_ = true;
        }
        take(text_line{without_return(text), ++number_, truncated_, ended});
        partial_.clear();
        truncated_ = false;
    }

    // Drops bytes in blocks of at least `longest_`, so that short pieces of a long line cost little.
    void keep(std::string_view bytes)
    {
        if (bytes.size() > longest_) {
            truncated_ = true;
            bytes.remove_prefix(bytes.size() - longest_);
            partial_.clear();
        }
        partial_ += bytes;
        if (partial_.size() > 2 * longest_) {
            truncated_ = true;
            partial_.erase(0, partial_.size() - longest_);
        }
    }

    static std::string_view without_return(std::string_view text)
    {
        if (!text.empty() && text.back() == '\r')
            text.remove_suffix(1);
        return text;
    }

    std::size_t longest_;
    std::size_t number_ = 0;
    std::string partial_; // the beginning of a line that continues in the next piece
    bool truncated_ = false;
};

/// Calls `take` with each line of a text that is in memory; they may be of any length.
template <typename Take>
void for_each_line(std::string_view text, const Take& take)
{
    line_reader lines(text.size());
    lines.read(text, take);
    lines.finish(take);
}

} // namespace vorna::workbench
