// Parses a line from its front and from its end.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <system_error>

namespace vorna::workbench {

/// Where the text contains the words, or npos. Much faster than string_view::find where their first letter is
/// frequent.
inline std::size_t find(std::string_view text, std::string_view words)
{
    const void* const at = memmem(text.data(), text.size(), words.data(), words.size());
    return at == nullptr ? std::string_view::npos
                         : static_cast<std::size_t>(static_cast<const char*>(at) - text.data());
}

inline bool contains(std::string_view text, std::string_view words)
{
    return find(text, words) != std::string_view::npos;
}

/// Functions that return a bool leave the rest of the line as it was when they return false.
class scanner {
public:
    explicit scanner(std::string_view line) : rest_(line) {}

    [[nodiscard]] std::string_view rest() const { return rest_; }
    [[nodiscard]] bool at_end() const { return rest_.empty(); }

    bool skip(std::string_view words)
    {
        if (!rest_.starts_with(words))
            return false;
        rest_.remove_prefix(words.size());
        return true;
    }

    /// Up to the words, and these.
    bool skip_to(std::string_view words)
    {
        const std::size_t at = rest_.find(words);
        if (at == std::string_view::npos)
            return false;
        rest_.remove_prefix(at + words.size());
        return true;
    }

    /// Whether there is one at least.
    bool skip_blanks()
    {
        std::size_t blanks = 0;
        while (blanks < rest_.size() && is_blank(rest_[blanks]))
            ++blanks;
        rest_.remove_prefix(blanks);
        return blanks != 0;
    }

    bool skip_last(std::string_view words)
    {
        if (!rest_.ends_with(words))
            return false;
        rest_.remove_suffix(words.size());
        return true;
    }

    void skip_last_blanks()
    {
        while (!rest_.empty() && is_blank(rest_.back()))
            rest_.remove_suffix(1);
    }

    template <typename Number>
    bool take(Number& number, int base = 10)
    {
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number, base);
        if (error != std::errc{})
            return false;
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return true;
    }

    template <typename Number>
    bool take_hexadecimal(Number& number)
    {
        return take(number, 16);
    }

    /// Up to the blank, which is skipped, or the end. Returns false at the end of the line.
    bool take_word(std::string_view& word)
    {
        if (rest_.empty())
            return false;
        const std::size_t blank = std::min(rest_.find(' '), rest_.size());
        word = rest_.substr(0, blank);
        rest_.remove_prefix(std::min(blank + 1, rest_.size()));
        return true;
    }

    /// The last word and the blank in front of it. Returns false if there is no blank.
    bool take_last_word(std::string_view& word)
    {
        std::size_t begin = rest_.size();
        while (begin != 0 && !is_blank(rest_[begin - 1]))
            --begin;
        if (begin == 0)
            return false;
        word = rest_.substr(begin);
        rest_.remove_suffix(rest_.size() - begin + 1);
        return true;
    }

private:
    static bool is_blank(char c) { return c == ' ' || c == '\t'; }

    std::string_view rest_;
};

} // namespace vorna::workbench
