/*
 * Puts a coloured badge into the picture: a parameter of every type, and values that the plug-in changes itself. The
 * badge is never wider than the picture, and FF_GETPARAMETER tells what became of a value; with OwnReadBack=true the
 * host takes that over.
 */
#include <pantiq/plugins/abi/freeframe1.h>

#include <stdatomic.h>
#include <stdbool.h>

#include "keep.h"

enum { kInvert, kFlash, kRed, kGreen, kBlue, kLeft, kTop, kSize, kText, kParameters };

static const struct {
  const char* name;
  uint32_t type;
  float value;
} kList[kParameters] = {
    {"Invert", FF_TYPE_BOOLEAN, 0}, {"Flash", FF_TYPE_EVENT, 0},       {"Red", FF_TYPE_RED, 255},
    {"Green", FF_TYPE_GREEN, 160},  {"Blue", FF_TYPE_BLUE, 0},         {"Left", FF_TYPE_XPOS, 8},
    {"Top", FF_TYPE_YPOS, 8},       {"Size", FF_TYPE_STANDARD, 0.25f}, {"Label text", FF_TYPE_TEXT, 0},
};

typedef struct {
  uint32_t width, height;
  /* Set while frames are processed. */
  _Atomic float values[kParameters];
  atomic_bool flash; /* the next frame is white */
  atomic_flag text_taken;
  char text[64];
} Badge;

static void take_text(Badge* badge) {
  while (atomic_flag_test_and_set(&badge->text_taken)) {
  }
}
static void give_text(Badge* badge) { atomic_flag_clear(&badge->text_taken); }

static void set(Badge* badge, const SetParameterStruct* set) {
  float value = FF_FloatOf(set->NewParameterValue);
  switch (set->ParameterNumber) {
    case kFlash:
      if (value > 0) badge->flash = true;
      return;
    case kText: {
      const char* const text = (const char*)set->NewParameterTextOrBits;
      take_text(badge);
      strncpy(badge->text, text != NULL ? text : "", sizeof badge->text - 1);
      give_text(badge);
      return;
    }
    case kSize:
      value = value >= 0 ? value <= 1 ? value : 1 : 0;
      break;
    default:
      if (set->ParameterNumber >= kParameters) return;
  }
  badge->values[set->ParameterNumber] = value;
}

/* A place in a picture; 0 for what is none. */
static uint32_t whole(float value) { return value > 0 && value < (1 << 20) ? (uint32_t)value : 0; }

static void paint(const Badge* badge, uint8_t* frame, uint32_t x, uint32_t y, const uint8_t color[3]) {
  if (x < badge->width && y < badge->height) memcpy(frame + ((size_t)y * badge->width + x) * 3, color, 3);
}

static void process(Badge* badge, uint8_t* frame) {
  const size_t bytes = (size_t)badge->width * badge->height * 3;
  if (atomic_exchange(&badge->flash, false)) {
    memset(frame, 255, bytes);
    return;
  }
  if (badge->values[kInvert] > 0) {
    for (size_t i = 0; i < bytes; ++i) frame[i] = (uint8_t)(255 - frame[i]);
  }
  const uint8_t color[3] = {(uint8_t)(badge->values[kBlue] * 255 + 0.5f), (uint8_t)(badge->values[kGreen] * 255 + 0.5f),
                            (uint8_t)(badge->values[kRed] * 255 + 0.5f)};
  const uint8_t black[3] = {0, 0, 0};
  const uint32_t left = whole(badge->values[kLeft]), top = whole(badge->values[kTop]);
  const uint32_t side =
      (uint32_t)(badge->values[kSize] * (float)(badge->width < badge->height ? badge->width : badge->height));
  for (uint32_t y = 0; y < side; ++y) {
    for (uint32_t x = 0; x < side; ++x) paint(badge, frame, left + x, top + y, color);
  }
  char text[sizeof badge->text];
  take_text(badge);
  memcpy(text, badge->text, sizeof text);
  give_text(badge);
  /* The label as a row of dots, a column for each letter. */
  for (uint32_t letter = 0; text[letter] != 0; ++letter) {
    for (uint32_t bit = 0; bit < 8 && bit < side; ++bit) {
      if ((text[letter] >> bit & 1) && letter < side) paint(badge, frame, left + letter, top + bit, black);
    }
  }
}

FF_PLUG_MAIN(code, input, instance) {
  static const PluginExtendedInfoStruct info = {1, 2, "Puts a badge into the picture", "An example of Pantiq"};
  Badge* const badge = (Badge*)instance;
  switch (code) {
    case FF_INITIALISE:
      return FF_SUCCESS;
    case FF_DEINITIALISE:
      return FF_SUCCESS;
    case FF_GETEXTENDEDINFO:
      return (uintptr_t)&info;
    case FF_GETPLUGINCAPS:
      return input == FF_CAP_24BITVIDEO ? FF_TRUE : FF_FALSE;
    case FF_GETNUMPARAMETERS:
      return kParameters;
    case FF_GETPARAMETERTYPE:
      return input < kParameters ? kList[input].type : FF_FAIL;
    case FF_GETPARAMETERNAME:
      return input < kParameters ? (uintptr_t)kList[input].name : FF_FAIL;
    case FF_GETPARAMETERDEFAULT:
      if (input == kText) return (uintptr_t) "Pantiq";
      return input < kParameters ? FF_BitsOf(kList[input].value) : FF_FAIL;
    case FF_INSTANTIATE: {
      const VideoInfoStruct* const video = (const VideoInfoStruct*)input;
      Badge* const made = Keep(sizeof *made);
      if (made == NULL) return FF_FAIL;
      made->width = video->FrameWidth, made->height = video->FrameHeight;
      return (uintptr_t)made;
    }
    case FF_SETPARAMETER:
      set(badge, (const SetParameterStruct*)input);
      return FF_SUCCESS;
    case FF_GETPARAMETER:
      if (input == kText) return (uintptr_t)badge->text;
      if (input == kLeft || input == kTop)
        return whole(badge->values[input]); /* positions come back as whole numbers */
      return input < kParameters ? FF_BitsOf(badge->values[input]) : FF_FAIL;
    case FF_PROCESSFRAME:
      process(badge, (uint8_t*)input);
      return FF_SUCCESS;
    default:
      return FF_FAIL;
  }
}
