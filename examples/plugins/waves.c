/* Lets the picture swim: every row is moved sideways, by a wave that runs down the picture. 24 bits, in place. */
#include <math.h>
#include <pantiq/plugins/abi/freeframe1.h>

#include "keep.h"

enum { kSpeed, kHeight, kParameters };
static const char* const kNames[kParameters] = {"Speed", "Height"};
static const float kDefaults[kParameters] = {0.25f, 0.5f};

typedef struct {
  uint32_t width, height;
  uint32_t frame;                    /* of the stream, counted */
  _Atomic float values[kParameters]; /* set while frames are processed */
  uint8_t row[];                     /* room for one row */
} Waves;

static Waves* make(const VideoInfoStruct* video) {
  Waves* const waves = Keep(sizeof *waves + (size_t)video->FrameWidth * 3);
  if (waves == NULL) return NULL;
  waves->width = video->FrameWidth, waves->height = video->FrameHeight;
  for (int i = 0; i < kParameters; ++i) waves->values[i] = kDefaults[i];
  return waves;
}

static void process(Waves* waves, uint8_t* frame) {
  const size_t step = (size_t)waves->width * 3;
  const double phase = waves->frame++ * waves->values[kSpeed], height = waves->values[kHeight];
  for (uint32_t y = 0; y < waves->height; ++y) {
    uint8_t* const row = frame + y * step;
    const double wave = sin(y * 0.1 + phase) * height * 0.1 * waves->width;
    /* To the right by a number from 0 to width - 1; what leaves at one side comes in at the other. */
    double shift = fmod(floor(wave), waves->width);
    if (shift < 0) shift += waves->width;
    const size_t right = (size_t)shift * 3;
    if (!(shift >= 0) || right == 0 || right >= step) continue;
    memcpy(waves->row, row, step);
    memcpy(row + right, waves->row, step - right);
    memcpy(row, waves->row + step - right, right);
  }
}

FF_PLUG_MAIN(code, input, instance) {
  static const PluginExtendedInfoStruct info = {1, 0, "Lets the picture swim", "An example of Pantiq"};
  switch (code) {
    case FF_INITIALISE:
      return FF_SUCCESS;
    case FF_DEINITIALISE:
      return FF_SUCCESS;
    case FF_GETEXTENDEDINFO:
      return (uintptr_t)&info;
    case FF_GETPLUGINCAPS:
      return input == FF_CAP_24BITVIDEO ? FF_TRUE : input == FF_CAP_COPYORINPLACE ? FF_OPTIMISED_FOR_INPLACE : FF_FALSE;
    case FF_GETNUMPARAMETERS:
      return kParameters;
    case FF_GETPARAMETERTYPE:
      return FF_TYPE_STANDARD;
    case FF_GETPARAMETERNAME:
      return input < kParameters ? (uintptr_t)kNames[input] : FF_FAIL;
    case FF_GETPARAMETERDEFAULT:
      return input < kParameters ? FF_BitsOf(kDefaults[input]) : FF_FAIL;
    case FF_INSTANTIATE: {
      Waves* const waves = make((const VideoInfoStruct*)input);
      return waves != NULL ? (uintptr_t)waves : FF_FAIL;
    }
    case FF_SETPARAMETER: {
      const SetParameterStruct* const set = (const SetParameterStruct*)input;
      if (set->ParameterNumber >= kParameters) return FF_FAIL;
      ((Waves*)instance)->values[set->ParameterNumber] = FF_FloatOf(set->NewParameterValue);
      return FF_SUCCESS;
    }
    case FF_PROCESSFRAME:
      process((Waves*)instance, (uint8_t*)input);
      return FF_SUCCESS;
    default:
      return FF_FAIL; /* FF_GETPARAMETER too: the host keeps the values that it sent */
  }
}
