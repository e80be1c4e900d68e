#include "Platform/Text/SHA1.h"

#include <bit>
#include <cstddef>
#include <cstring>

namespace zorvane::platform {
namespace {

constexpr std::size_t kBlockSize = 64;
using State = std::array<std::uint32_t, 5>;

void addBlock(State& state, const unsigned char* block) {
  std::uint32_t words[80];
  for (std::size_t i = 0; i < 16; ++i) {
    words[i] = std::uint32_t{block[i * 4]} << 24 | std::uint32_t{block[i * 4 + 1]} << 16 |
               std::uint32_t{block[i * 4 + 2]} << 8 | std::uint32_t{block[i * 4 + 3]};
  }
  for (std::size_t i = 16; i < 80; ++i) {
    words[i] = std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);
  }
  auto [a, b, c, d, e] = state;
  for (std::size_t i = 0; i < 80; ++i) {
    std::uint32_t mix;
    if (i < 20) {
      mix = ((b & c) | (~b & d)) + 0x5A827999U;
    } else if (i < 40) {
      mix = (b ^ c ^ d) + 0x6ED9EBA1U;
    } else if (i < 60) {
      mix = ((b & c) | (b & d) | (c & d)) + 0x8F1BBCDCU;
    } else {
      mix = (b ^ c ^ d) + 0xCA62C1D6U;
    }
    const std::uint32_t next = std::rotl(a, 5) + mix + e + words[i];
    e = d;
    d = c;
    c = std::rotl(b, 30);
    b = a;
    a = next;
  }
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
