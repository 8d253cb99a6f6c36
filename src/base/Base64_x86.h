// The base64 encoders for the vector units of x86.
#pragma once

#include "base/Base64.h"

namespace tv {

// nullptr on other CPUs, and for the portable form.
const Base64Kernel* base64KernelX86(Base64Form form);

}  // namespace tv
