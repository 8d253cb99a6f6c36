// The search of the dot-stuffer in its two forms.
#pragma once

#include <cstdint>

namespace tv {

// The first dot in [in, end) that follows a line feed in it; nullptr if there is none.
const uint8_t* findLineDot(const uint8_t* in, const uint8_t* end);
const uint8_t* findLineDotPortable(const uint8_t* in, const uint8_t* end);
// x86 only; elsewhere the same as the portable form.
const uint8_t* findLineDotSse2(const uint8_t* in, const uint8_t* end);

}  // namespace tv
