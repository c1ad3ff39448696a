/* Mixes two pictures: FF_PROCESSFRAMECOPY with exactly two inputs. With one input ready it lets that picture pass. */
#include <pantiq/plugins/abi/freeframe1.h>

#include "keep.h"

typedef struct {
  size_t bytes;
  _Atomic float mix; /* set while frames are processed */
} Fade;

static uintptr_t mix(const Fade* fade, const ProcessFrameCopyStruct* frames) {
  if (frames->numInputFrames != 2) return FF_FAIL;
  const uint8_t* const a = frames->ppInputFrames[0];
  const uint8_t* const b = frames->ppInputFrames[1];
  uint8_t* const out = frames->pOutputFrame;
  const int weight = (int)(fade->mix * 256 + 0.5f);
  for (size_t i = 0; i < fade->bytes; ++i) out[i] = (uint8_t)((a[i] * (256 - weight) + b[i] * weight + 128) >> 8);
  return FF_SUCCESS;
}

FF_PLUG_MAIN(code, input, instance) {
  Fade* const fade = (Fade*)instance;
  switch (code) {
    case FF_INITIALISE:
      return FF_SUCCESS;
    case FF_DEINITIALISE:
      return FF_SUCCESS;
    case FF_GETPLUGINCAPS:
      switch (input) {
        case FF_CAP_24BITVIDEO:
          return FF_TRUE;
        case FF_CAP_PROCESSFRAMECOPY:
          return FF_TRUE;
        case FF_CAP_MINIMUMINPUTFRAMES:
          return 2;
        case FF_CAP_MAXIMUMINPUTFRAMES:
          return 2;
        case FF_CAP_COPYORINPLACE:
          return FF_OPTIMISED_FOR_COPY;
        default:
          return FF_FALSE;
      }
    case FF_GETNUMPARAMETERS:
      return 1;
    case FF_GETPARAMETERTYPE:
      return FF_TYPE_STANDARD;
    case FF_GETPARAMETERNAME:
      return (uintptr_t) "Mix";
    case FF_GETPARAMETERDEFAULT:
      return FF_BitsOf(0.5f);
    case FF_INSTANTIATE: {
      const VideoInfoStruct* const video = (const VideoInfoStruct*)input;
      Fade* const made = Keep(sizeof *made);
      if (made == NULL) return FF_FAIL;
      made->bytes = (size_t)video->FrameWidth * video->FrameHeight * 3, made->mix = 0.5f;
      return (uintptr_t)made;
    }
    case FF_SETPARAMETER: {
      const float value = FF_FloatOf(((const SetParameterStruct*)input)->NewParameterValue);
      fade->mix = value >= 0 && value <= 1 ? value : 0.5f;
      return FF_SUCCESS;
    }
    case FF_PROCESSFRAME:
      return FF_SUCCESS;
    case FF_PROCESSFRAMECOPY:
      return mix(fade, (const ProcessFrameCopyStruct*)input);
    default:
      return FF_FAIL;
  }
}
