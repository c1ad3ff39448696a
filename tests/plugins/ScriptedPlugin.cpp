// A plug-in that a test plays: every call goes to the function whose address PANTIQ_TEST_PLUGIN holds.
#include <pantiq/plugins/abi/freeframe1.h>

#include <cstdlib>

FF_PLUG_MAIN(code, input, instance) {
  return reinterpret_cast<FF_Main>(std::strtoull(std::getenv("PANTIQ_TEST_PLUGIN"), nullptr, 16))(code, input,
                                                                                                  instance);
}
