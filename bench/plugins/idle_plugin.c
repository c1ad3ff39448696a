/* A plug-in that does nothing, so that what is left is the host's cost. BENCH_CAP: the one depth that it has. */
#include <pantiq/plugins/abi/freeframe1.h>

FF_PLUG_MAIN(code, input, instance) {
  (void)instance;
  if (code == FF_GETPLUGINCAPS) return input == BENCH_CAP ? FF_TRUE : FF_FALSE;
  return code == FF_GETEXTENDEDINFO ? FF_FAIL : FF_SUCCESS;
}
