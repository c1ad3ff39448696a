// The one name that pantiq_chain.h needs of the comparison's own header; that one is found first when the peers build it.
#pragma once
#include <functional>

namespace bench {
using Fn = std::function<void()>;
}
