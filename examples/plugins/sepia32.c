/* Colours as in an old photograph. Frames of 32 bits only, in place. */
#include <pantiq/plugins/abi/freeframe1.h>

#include "keep.h"

typedef struct {
  size_t pixels;
  _Atomic float strength; /* set while frames are processed */
} Sepia;

static uint8_t mix(int from, int to, float strength) {
  const int mixed = from + (int)((float)(to - from) * strength + (to < from ? -0.5f : 0.5f));
  return (uint8_t)(mixed < 0 ? 0 : mixed > 255 ? 255 : mixed);
}

static void process(const Sepia* sepia, uint8_t* pixel) {
  const float strength = sepia->strength;
  for (size_t i = 0; i < sepia->pixels; ++i, pixel += 4) {
    const int gray = (pixel[2] * 77 + pixel[1] * 150 + pixel[0] * 29) >> 8;
    const int red = gray + 40 > 255 ? 255 : gray + 40, blue = gray < 40 ? 0 : gray - 40;
    pixel[0] = mix(pixel[0], blue, strength), pixel[1] = mix(pixel[1], gray, strength),
    pixel[2] = mix(pixel[2], red, strength);
  }
}

FF_PLUG_MAIN(code, input, instance) {
  Sepia* const sepia = (Sepia*)instance;
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
      Sepia* const made = Keep(sizeof *made);
      if (made == NULL) return FF_FAIL;
      made->pixels = (size_t)video->FrameWidth * video->FrameHeight, made->strength = 1;
      return (uintptr_t)made;
    }
    case FF_SETPARAMETER: {
      const float value = FF_FloatOf(((const SetParameterStruct*)input)->NewParameterValue);
      sepia->strength = value >= 0 && value <= 1 ? value : 1;
      return FF_SUCCESS;
    }
    case FF_PROCESSFRAME:
      process(sepia, (uint8_t*)input);
      return FF_SUCCESS;
    default:
      return FF_FAIL;
  }
}
