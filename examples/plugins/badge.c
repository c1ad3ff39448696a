/*
 * Puts a coloured badge into the picture: a parameter of every type, and values that the plug-in changes itself. The
 * badge is never wider than the picture, and FF_GETPARAMETER tells what became of a value; with OwnReadBack=true the
 * host takes that over.
 */
#include <pantiq/plugins/abi/freeframe1.h>

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

static uint32_t g_width, g_height;
static float g_values[kParameters];
static char g_text[64] = "Pantiq";
static int g_flash; /* frames that are still white */

static void set(const SetParameterStruct* set) {
  float value = FF_FloatOf(set->NewParameterValue);
  switch (set->ParameterNumber) {
    case kFlash:
      if (value > 0) g_flash = 1;
      return;
    case kText: {
      const char* const text = (const char*)set->NewParameterTextOrBits;
      strncpy(g_text, text != NULL ? text : "", sizeof g_text - 1);
      return;
    }
    case kSize:
      value = value >= 0 ? value <= 1 ? value : 1 : 0;
      break;
    default:
      if (set->ParameterNumber >= kParameters) return;
  }
  g_values[set->ParameterNumber] = value;
}

static void paint(uint8_t* frame, uint32_t x, uint32_t y, const uint8_t color[3]) {
  if (x < g_width && y < g_height) memcpy(frame + ((size_t)y * g_width + x) * 3, color, 3);
}

static void process(uint8_t* frame) {
  const size_t bytes = (size_t)g_width * g_height * 3;
  if (g_flash > 0) {
    memset(frame, 255, bytes);
    --g_flash;
    return;
  }
  if (g_values[kInvert] > 0) {
    for (size_t i = 0; i < bytes; ++i) frame[i] = (uint8_t)(255 - frame[i]);
  }
  const uint8_t color[3] = {(uint8_t)(g_values[kBlue] * 255 + 0.5f), (uint8_t)(g_values[kGreen] * 255 + 0.5f),
                            (uint8_t)(g_values[kRed] * 255 + 0.5f)};
  const uint8_t black[3] = {0, 0, 0};
  const float limit = 1 << 20;
  const uint32_t left = (uint32_t)(g_values[kLeft] > 0 && g_values[kLeft] < limit ? g_values[kLeft] : 0);
  const uint32_t top = (uint32_t)(g_values[kTop] > 0 && g_values[kTop] < limit ? g_values[kTop] : 0);
  const uint32_t side = (uint32_t)(g_values[kSize] * (float)(g_width < g_height ? g_width : g_height));
  for (uint32_t y = 0; y < side; ++y) {
    for (uint32_t x = 0; x < side; ++x) paint(frame, left + x, top + y, color);
  }
  /* The label as a row of dots, a column for each letter. */
  for (uint32_t letter = 0; g_text[letter] != 0; ++letter) {
    for (uint32_t bit = 0; bit < 8 && bit < side; ++bit) {
      if ((g_text[letter] >> bit & 1) && letter < side) paint(frame, left + letter, top + bit, black);
    }
  }
}

FF_PLUG_MAIN(code, input, instance) {
  static const PluginExtendedInfoStruct info = {1, 2, "Puts a badge into the picture", "An example of Pantiq"};
  (void)instance;
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
      if (input == kText) return (uintptr_t)g_text;
      return input < kParameters ? FF_BitsOf(kList[input].value) : FF_FAIL;
    case FF_INSTANTIATE:
      g_width = ((const VideoInfoStruct*)input)->FrameWidth, g_height = ((const VideoInfoStruct*)input)->FrameHeight;
      return 1;
    case FF_SETPARAMETER:
      set((const SetParameterStruct*)input);
      return FF_SUCCESS;
    case FF_GETPARAMETER:
      if (input == kText) return (uintptr_t)g_text;
      if (input == kLeft || input == kTop) return (uint32_t)g_values[input]; /* positions come back as whole numbers */
      return input < kParameters ? FF_BitsOf(g_values[input]) : FF_FAIL;
    case FF_PROCESSFRAME:
      process((uint8_t*)input);
      return FF_SUCCESS;
    default:
      return FF_FAIL;
  }
}
