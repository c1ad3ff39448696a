// Colours as properties hold them: colours of the system, names.
#pragma once
#include <string>

#include "pantiq/core/PQSimpleImageBuffer.h"

namespace pantiq {

// A colour with its top bit set stands for a colour of the system, 0x80000005 for the ground of windows; this gives the
// colour itself, of a fixed table. Numbers beyond the table give black. Other colours lose their top byte.
PQ_EXPORT TColor PQColorToRGB(TColor color) noexcept;

// "clRed" for the 16 colours that have a name, else "$" and eight hexadecimal digits.
PQ_EXPORT std::string ColorToString(TColor color);

}  // namespace pantiq
