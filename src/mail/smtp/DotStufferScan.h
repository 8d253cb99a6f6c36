// The search of the dot-stuffer in its two forms.
#pragma once

#include <cstdint>

#include "base/Dispatch.h"

namespace tv {

struct LineDotForm {
    const char* name;
    bool (*usable)();
    // The first dot in [in, end) that follows a line feed in it; nullptr if there is none.
    const uint8_t* (*find)(const uint8_t* in, const uint8_t* end);
};

extern const LineDotForm kLineDotSse2;  // on x86 only
extern const LineDotForm kLineDotPortable;
extern Dispatch<LineDotForm> lineDotForms;

}  // namespace tv
