// The forms of ChaCha20-Poly1305 for x86 processors.
#include "base/CpuFeatures.h"
#include "base/crypto/ChaCha_x86.h"

namespace tv::crypto {

constinit const ChaChaForm kChaChaAvx2 = {"avx2", cpuHas<&CpuFeatures::avx2>, applyChaChaAvx2,
                                          absorbPoly1305Avx2};

constinit const ChaChaForm kChaChaAvx512 = {"avx512", cpuHas<&CpuFeatures::avx512>,
                                            applyChaChaAvx512, absorbPoly1305Avx512};

}  // namespace tv::crypto
