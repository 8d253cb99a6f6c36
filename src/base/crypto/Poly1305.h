// Poly1305 (RFC 8439 2.5) on limbs of 26 bits.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tv::crypto {

// A number below 2^131 or so as the sum of limb[i] * 2^(26 i).
using Poly1305Number = std::array<uint32_t, 5>;

constexpr uint32_t kPoly1305Limb = 0x3ffffff;
constexpr size_t kPoly1305Lanes = 8;

struct Poly1305State {
    Poly1305Number r;
    Poly1305Number sum;
    std::array<uint32_t, 4> pad;  // what is added at the end
    // Powers of r, limb by limb, for the forms that take several blocks at once: in lane k the one
    // that the block in lane k needs at the end of a run. Made by their first use.
    std::array<std::array<uint32_t, kPoly1305Lanes>, 5> powers;
    bool powersMade;
};

// From the 32 bytes of a one-time key.
void startPoly1305(Poly1305State& state, const uint8_t* key);
// Whole blocks of 16 bytes.
void absorbPoly1305(Poly1305State& state, const uint8_t* blocks, size_t count);
// Writes the tag and wipes the state.
void finishPoly1305(Poly1305State& state, uint8_t* tag);

// Fills the powers: r goes to lane laneOf[0], its square to laneOf[1] and so on.
void makePoly1305Powers(Poly1305State& state, std::span<const uint8_t> laneOf);

// The sum of lanes, limb by limb, becomes the state's.
void setPoly1305Sum(Poly1305State& state, const std::array<uint64_t, 5>& limbs);

}  // namespace tv::crypto
