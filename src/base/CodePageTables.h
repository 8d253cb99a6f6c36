// The single-byte code pages that this library converts by itself.
#pragma once

#include <cstdint>
#include <span>

namespace tv {

// The lower half of each page is ASCII.
struct CodePageTable {
    uint16_t page;
    uint8_t used;         // how many of the upper 128 bytes mean something
    uint16_t high[128];   // the code point of byte 128 + i; 0 where the byte means nothing
    uint8_t byCode[128];  // the used indexes into high, in the order of their code points
};

// Ordered by page number.
std::span<const CodePageTable> codePageTables();

}  // namespace tv
