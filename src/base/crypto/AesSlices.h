// AES on bit slices: four blocks as eight 64-bit planes, plane i holding bit i of every byte. All
// steps are boolean, so time and memory access are the same for every key and text.
#pragma once

#include <cstdint>

namespace tv::crypto {

// Bit 16 * row + 4 * column + block of a plane belongs to that byte of that block.
struct AesSlices {
    uint64_t planes[8];
};

// Between four blocks (64 bytes) and their planes.
AesSlices sliceBlocks(const uint8_t* blocks);
void unsliceBlocks(AesSlices slices, uint8_t* blocks);

void addRoundKey(AesSlices& s, const uint64_t* key);
void subBytes(AesSlices& s);
void shiftRows(AesSlices& s);
void mixColumns(AesSlices& s);
void invSubBytes(AesSlices& s);
void invShiftRows(AesSlices& s);
void invMixColumns(AesSlices& s);

}  // namespace tv::crypto
