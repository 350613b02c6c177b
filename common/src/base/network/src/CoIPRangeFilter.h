#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Vantrel {

/// A range of IPv4 addresses: a base address and, after "/", a prefix length in bits or a dotted mask. A bare
/// address is a range of one. A value type.
class CoIPRangeFilter {
  public:
    /// The range of one address, 0.0.0.0.
    CoIPRangeFilter() = default;

    /// Reads a range, blanks around its parts allowed. False, with the message for the log in `error` and the
    /// range unchanged, when it is malformed. A mask's set bits must be its leading ones.
    bool parse(const std::string& text, std::string& error);

    /// Whether a numeric IPv4 address, plain or in IPv6 form, lies in the range; false for any other text.
    bool inRange(const char* ip) const;

    /// "192.168.0.0/24": the base without the bits that the range leaves open, and the prefix length.
    std::string toText() const;

  private:
    std::uint32_t base_ = 0;  // host byte order
    unsigned prefixLength_ = 32;
};

}  // namespace Vantrel
