#include "VantrelKeyedHash.h"

#include <sys/random.h>

#include <cstddef>
#include <cstring>

#include "CoTime.h"

namespace {

constexpr std::size_t WORD = sizeof(std::uint64_t);

std::uint64_t rotate(std::uint64_t value, unsigned bits) {
    return value << bits | value >> (64 - bits);
}

struct State {
    std::uint64_t v0, v1, v2, v3;

    // A sum may wrap around: that is what these are.
    void round() {
        v0 += v1, v1 = rotate(v1, 13) ^ v0, v0 = rotate(v0, 32);
        v2 += v3, v3 = rotate(v3, 16) ^ v2;
        v0 += v3, v3 = rotate(v3, 21) ^ v0;
        v2 += v1, v1 = rotate(v1, 17) ^ v2, v2 = rotate(v2, 32);
    }
    void take(std::uint64_t word) {
        v3 ^= word;
        round();
        round();
        v0 ^= word;
    }
    std::uint64_t finish() {
        v2 ^= 0xff;
        for (int i = 0; i < 4; ++i) round();
        return v0 ^ v1 ^ v2 ^ v3;
    }
};

}  // namespace

VantrelKeyedHash::VantrelKeyedHash() {
    std::uint64_t keys[2] = {};
    // A system without random bytes is no reason to fail: the time is some protection still.
    if (::getrandom(keys, sizeof keys, GRND_NONBLOCK) != sizeof keys) {
        keys[0] = static_cast<std::uint64_t>(Vantrel::CoTime::getTime());
    }
    key0_ = keys[0];
    key1_ = keys[1];
}

std::uint64_t VantrelKeyedHash::operator()(std::string_view text) const {
    State state{key0_ ^ 0x736f6d6570736575, key1_ ^ 0x646f72616e646f6d, key0_ ^ 0x6c7967656e657261,
                key1_ ^ 0x7465646279746573};
    std::size_t at = 0;
    for (; text.size() - at >= WORD; at += WORD) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + at, WORD);
        state.take(word);
    }
    std::uint64_t last = static_cast<std::uint64_t>(text.size()) << 56;
    for (unsigned shift = 0; at < text.size(); ++at, shift += 8) {
        last |= static_cast<std::uint64_t>(static_cast<unsigned char>(text[at])) << shift;
    }
    state.take(last);
    return state.finish();
}
