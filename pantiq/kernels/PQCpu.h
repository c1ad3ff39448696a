// Which variant of the kernels runs on this processor.
//
// Each kernel exists as plain code (px, the reference) and up to three times tuned: a6 for AVX2 (x86-64-v3), w7 for
// AVX-512 with 256-bit vectors (x86-64-v4), t7 for AVX-512 with VBMI, VBMI2 and 512-bit vectors. All give the same
// bytes. A slot asks Global_CPU at its first call and picks its variant by the slot's pattern:
//
//   pattern   code 5   codes 6 to 9                   codes 16, 17   other codes
//   A         a6       w7                             t7             px
//   B         a6       px                             t7             px
//   C         a6       w7 for 6, px for 7, 8 and 9    px             px
#pragma once

#include "pantiq/PQExport.h"

namespace pantiq {

enum class PQVariant : int { px = 0, a6 = 1, w7 = 2, t7 = 3 };
inline constexpr int kPQVariantCount = 4;

enum class PQPattern : char { A = 'A', B = 'B', C = 'C' };

// The processor's code. The same in every call of a process, unless PQSetCPUForTest changes it. The environment
// variable PANTIQ_CPU (px, a6, w7, t7 or a code from 0 to 255), read at the first call, overrides the choice; a code
// whose instructions the processor lacks falls back to 5, then to 0, and any other text is ignored. Any thread.
PQ_EXPORT unsigned char Global_CPU();

// The variant that a slot of `pattern` takes for `code`; the table above. Any thread.
PQ_EXPORT PQVariant PQVariantFor(PQPattern pattern, unsigned char code);

// True if the processor (and the build) can run the variant. Any thread.
PQ_EXPORT bool PQCanRun(PQVariant variant);

// The code that Global_CPU answers for a text of PANTIQ_CPU on this processor; null or unknown text: the automatic one.
PQ_EXPORT unsigned char PQCodeFor(const char* text);

// "px", "a6", "w7" or "t7".
PQ_EXPORT const char* PQVariantName(PQVariant variant);

// For tests: makes Global_CPU answer `code` (0 to 255, taken as it is; the caller sees to it that PQCanRun allows what
// follows) until called with -1. Slots that are bound stay bound; PQResetSlotsForTest unbinds them.
PQ_EXPORT void PQSetCPUForTest(int code);

}  // namespace pantiq
