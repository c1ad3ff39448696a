/* Colours as in an old photograph. Frames of 32 bits only, in place. */
#include <pantiq/plugins/abi/freeframe1.h>

static uint32_t g_pixels;
static float g_strength = 1;

static uint8_t mix(int from, int to) {
  const int mixed = from + (int)((float)(to - from) * g_strength + (to < from ? -0.5f : 0.5f));
  return (uint8_t)(mixed < 0 ? 0 : mixed > 255 ? 255 : mixed);
}

static void process(uint8_t* pixel) {
  for (uint32_t i = 0; i < g_pixels; ++i, pixel += 4) {
    const int gray = (pixel[2] * 77 + pixel[1] * 150 + pixel[0] * 29) >> 8;
    const int red = gray + 40 > 255 ? 255 : gray + 40, blue = gray < 40 ? 0 : gray - 40;
    pixel[0] = mix(pixel[0], blue), pixel[1] = mix(pixel[1], gray), pixel[2] = mix(pixel[2], red);
  }
}

FF_PLUG_MAIN(code, input, instance) {
  (void)instance; /* one instance is all there ever is in a library that is loaded for one stream */
  switch (code) {
    case FF_INITIALISE:
      return FF_SUCCESS;
    case FF_DEINITIALISE:
      return FF_SUCCESS;
    case FF_GETPLUGINCAPS:
      return input == FF_CAP_32BITVIDEO ? FF_TRUE : FF_FALSE;
    case FF_GETNUMPARAMETERS:
      return 1;
    case FF_GETPARAMETERTYPE:
      return FF_TYPE_STANDARD;
    case FF_GETPARAMETERNAME:
      return (uintptr_t) "Strength";
    case FF_GETPARAMETERDEFAULT:
      return FF_BitsOf(1);
    case FF_INSTANTIATE: {
      const VideoInfoStruct* const video = (const VideoInfoStruct*)input;
      if (video->BitDepth != FF_DEPTH_32) return FF_FAIL;
      g_pixels = video->FrameWidth * video->FrameHeight;
      return 1;
    }
    case FF_SETPARAMETER: {
      const float value = FF_FloatOf(((const SetParameterStruct*)input)->NewParameterValue);
      g_strength = value >= 0 && value <= 1 ? value : 1;
      return FF_SUCCESS;
    }
    case FF_PROCESSFRAME:
      process((uint8_t*)input);
      return FF_SUCCESS;
    default:
      return FF_FAIL;
  }
}
