#include "Platform/Text/SHA1.h"

#include <bit>
#include <cstddef>
#include <cstring>

namespace zorvane::platform {
namespace {

constexpr std::size_t kBlockSize = 64;
using Word = std::uint32_t;
using State = std::array<Word, 5>;

void addBlock(State& state, const unsigned char* block) {
  Word words[80];
  for (std::size_t i = 0; i < 16; ++i) {
    words[i] = Word{block[i * 4]} << 24 | Word{block[i * 4 + 1]} << 16 | Word{block[i * 4 + 2]} << 8 | block[i * 4 + 3];
  }
  for (std::size_t i = 16; i < 80; ++i) {
    words[i] = std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);
  }
  Word a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
  std::size_t i = 0;
  const auto addTwentyWords = [&](Word constant, auto mix) {
    // The standard renames the five after each word. Here five steps with other names do that.
    const auto step = [&](Word v, Word& w, Word x, Word y, Word& z) {
      z += std::rotl(v, 5) + mix(w, x, y) + constant + words[i++];
      w = std::rotl(w, 30);
    };
    for (int round = 0; round < 4; ++round) {
      step(a, b, c, d, e);
      step(e, a, b, c, d);
      step(d, e, a, b, c);
      step(c, d, e, a, b);
      step(b, c, d, e, a);
    }
  };
  const auto choose = [](Word x, Word y, Word z) { return (x & y) | (~x & z); };
  const auto parity = [](Word x, Word y, Word z) { return x ^ y ^ z; };
  const auto majority = [](Word x, Word y, Word z) { return (x & y) | (x & z) | (y & z); };
  addTwentyWords(0x5A827999U, choose);
  addTwentyWords(0x6ED9EBA1U, parity);
  addTwentyWords(0x8F1BBCDCU, majority);
  addTwentyWords(0xCA62C1D6U, parity);
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
  state[4] += e;
}

}  // namespace

std::array<std::uint8_t, 20> sha1Digest(std::string_view bytes) {
  State state{0x67452301U, 0xEFCDAB89U, 0x98BADCFEU, 0x10325476U, 0xC3D2E1F0U};
  const std::uint64_t bits = static_cast<std::uint64_t>(bytes.size()) * 8;
  while (bytes.size() >= kBlockSize) {
    addBlock(state, reinterpret_cast<const unsigned char*>(bytes.data()));
    bytes.remove_prefix(kBlockSize);
  }
  // Padding: a one bit, zeros, the length in bits; one block or two.
  unsigned char tail[2 * kBlockSize] = {};
  if (!bytes.empty()) std::memcpy(tail, bytes.data(), bytes.size());
  tail[bytes.size()] = 0x80;
  const std::size_t tailSize = bytes.size() + 9 <= kBlockSize ? kBlockSize : 2 * kBlockSize;
  for (std::size_t i = 0; i < 8; ++i) tail[tailSize - 1 - i] = static_cast<unsigned char>(bits >> (8 * i));
  for (std::size_t i = 0; i < tailSize; i += kBlockSize) addBlock(state, tail + i);

  std::array<std::uint8_t, 20> digest;
  for (std::size_t i = 0; i < digest.size(); ++i) {
    digest[i] = static_cast<std::uint8_t>(state[i / 4] >> (24 - 8 * (i % 4)));
  }
  return digest;
}

}  // namespace zorvane::platform
