#pragma once

#include <cstdint>
#include <string_view>

/// Hashes texts that strangers choose (SipHash-2-4). Without the key, which is random by default, nobody can
/// make up texts that fall into one bucket and turn a table into a list. Thread-safe.
class VantrelKeyedHash {
  public:
    VantrelKeyedHash();
    VantrelKeyedHash(std::uint64_t key0, std::uint64_t key1) : key0_(key0), key1_(key1) {}

    std::uint64_t operator()(std::string_view text) const;

  private:
    std::uint64_t key0_ = 0;
    std::uint64_t key1_ = 0;
};
