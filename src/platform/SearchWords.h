#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

/// Reads the words of UTF-8 text as a search compares them: runs of letters and digits, without case and without the
/// accents of Latin letters. It is the reading of SQLite's tokenizer "unicode61 remove_diacritics 2", for texts that no
/// index holds.
class SearchWordReader {
  public:
    /// The text outlives the reader.
    explicit SearchWordReader(std::string_view utf8) : text_(utf8) {}

    /// The next word, which stays until the one after it is asked for; empty behind the last.
    std::string_view next();

  private:
    std::string_view text_;
    std::size_t position_ = 0;
    std::string word_;
};

/// What a person types into a search: the words that must all be there, each as the beginning of a word.
class SearchTerms {
  public:
    SearchTerms() = default;

    /// The first eight words count.
    explicit SearchTerms(std::string_view text);

    const std::vector<std::string>& words() const { return words_; }
    bool isEmpty() const { return words_.empty(); }

    /// Gathers which of the words several texts hold together.
    class Match {
      public:
        explicit Match(const SearchTerms& terms) : terms_(terms) {}
        /// True once every word has been found.
        bool add(std::string_view utf8);

      private:
        const SearchTerms& terms_;
        std::uint32_t found_ = 0;
    };

  private:
    std::vector<std::string> words_;
};

}
