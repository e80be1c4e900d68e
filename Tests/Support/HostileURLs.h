// URL texts as nobody should send them, for tests and measurements.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace zorvane::testing {

// Random texts, the same for the same seed: bytes, characters of URLs, parts of a sound URL with some bytes changed,
// and the same piece over and over. Few of them name a source, and hardly two different ones.
class HostileURLs {
 public:
  explicit HostileURLs(std::uint32_t seed) : random_(seed) {}

  std::size_t below(std::size_t limit) { return random_() % limit; }

  std::string bytes(std::size_t maximum) {
    std::string text(below(maximum + 1), ' ');
    for (char& c : text) c = static_cast<char>(random_());
    return text;
  }

  std::string next() {
    switch (below(4)) {
      case 0:
        return bytes(60);
      case 1: {
        constexpr std::string_view kCharacters = "ab1:/?#[]@!$&'()*+,;=%-._~ 2Ff";
        std::string text(below(60), ' ');
        for (char& c : text) c = kCharacters[below(kCharacters.size())];
        return text;
      }
      case 2: {
        std::string text = "shop://me:x@[::1]:80/offers?utm_Source=mail&utm_campaine=first%20snow&id&=1&utm_i=7#top";
        for (std::size_t changes = below(4); changes > 0; --changes) {
          text[below(text.size())] = static_cast<char>(random_());
        }
        return text.substr(0, below(text.size() + 1));
      }
      default:
        return "a:?" + repeated(kPieces[below(std::size(kPieces))], below(40));
    }
  }

  static std::string repeated(std::string_view piece, std::size_t times) {
    std::string text;
    text.reserve(piece.size() * times);
    while (times-- > 0) text += piece;
    return text;
  }

  // Every byte escaped.
  static std::string escaped(std::string_view text) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      result += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return result;
  }

  static constexpr std::string_view kPieces[] = {"&", "=",   "%", "%C3", "%25", "?", "/", "a&", "utm_source=a&",
                                                 "[", "\xC3"};

 private:
  std::mt19937 random_;
};

}  // namespace zorvane::testing
