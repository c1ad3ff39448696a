/*
 * The interface of video effect plug-ins that TPQFreeFrame runs: FreeFrame 1.0 in a form for 64-bit machines. Plain C;
 * a plug-in includes this header and nothing else of Pantiq, and links nothing of it.
 *
 * A plug-in is a shared object with one exported function, plugMain. The host calls it with a function code, an input
 * value and the identifier of an instance; what the input and the answer mean depends on the code and is told beside
 * each below. Numbers are in the low 32 bits of an answer, what the upper half holds does not matter. Pointers are
 * whole.
 *
 *   #include <pantiq/plugins/abi/freeframe1.h>
 *   FF_PLUG_MAIN(functionCode, inputValue, instanceID) {
 *     switch (functionCode) {
 *       case FF_INITIALISE: return FF_SUCCESS;
 *       ...
 *       default: return FF_FAIL;
 *     }
 *   }
 *
 * Order of calls. Load: FF_GETEXTENDEDINFO, FF_GETPLUGINCAPS for each capability, FF_INITIALISE; then the parameters'
 * count and for each its type, name and default. Start of a stream: unloaded and loaded again, then FF_INSTANTIATE with
 * the stream's size, then FF_SETPARAMETER and FF_GETPARAMETER for each parameter. Then a call for each frame. End:
 * FF_DEINITIALISE, and the library is unloaded. FF_GETINFO and FF_DEINSTANTIATE are never sent: an instance ends with
 * the library. A plug-in may be loaded and unloaded many times in one process.
 *
 * Threads. Frames come one at a time. FF_SETPARAMETER, FF_GETPARAMETER and FF_GETPARAMETERDISPLAY may come from another
 * thread while a frame is being processed.
 *
 * Frames. Rows lie one behind the other without padding, the first row is the top of the picture. 24 bits: three bytes
 * a pixel, blue, green, red. 32 bits: four bytes a pixel, blue, green, red and a byte that is 0 at the start, kept from
 * frame to frame as the plug-in leaves it, and ignored in what comes out. Every frame has the size that FF_INSTANTIATE
 * gave; a stream that changes its size gets a new instance.
 *
 * An instance ends with the library: nothing tells its end. Several components may use one library at a time, each with
 * its own instance and its own FF_INITIALISE and FF_DEINITIALISE.
 *
 * An exception that leaves plugMain is caught and counts as the answer 0.
 */
#ifndef PANTIQ_FREEFRAME1_H
#define PANTIQ_FREEFRAME1_H

#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/* --- Function codes: the input value; the answer -------------------------------------------------------------------*/

enum {
  FF_GETINFO = 0,             /* never sent */
  FF_INITIALISE = 1,          /* 0; FF_SUCCESS or FF_FAIL (the low 16 bits count) */
  FF_DEINITIALISE = 2,        /* 0; not looked at */
  FF_PROCESSFRAME = 3,        /* the frame, to be changed in place; FF_SUCCESS, or the frame passes as it came */
  FF_GETNUMPARAMETERS = 4,    /* 0; the number of parameters, at most 65535; FF_FAIL is none */
  FF_GETPARAMETERNAME = 5,    /* index; const char*: at most 16 characters, ended by 0 if it has fewer */
  FF_GETPARAMETERDEFAULT = 6, /* index; a float's bits, or for FF_TYPE_TEXT a const char* */
  FF_GETPARAMETERDISPLAY = 7, /* index, instance; const char*, not looked at */
  FF_SETPARAMETER = 8,        /* const SetParameterStruct*, instance; not looked at */
  FF_GETPARAMETER = 9,        /* index, instance; a float's bits or a const char*; FF_FAIL leaves the host's value */
  FF_GETPLUGINCAPS = 10,      /* FF_CAP_...; see there */
  FF_INSTANTIATE = 11,        /* const VideoInfoStruct*; the instance's identifier, FF_FAIL if it cannot be made */
  FF_DEINSTANTIATE = 12,      /* never sent */
  FF_GETEXTENDEDINFO = 13,    /* 0; const PluginExtendedInfoStruct*; 0 or FF_FAIL if there is none */
  FF_PROCESSFRAMECOPY = 14,   /* const ProcessFrameCopyStruct*, instance; FF_SUCCESS or FF_FAIL */
  FF_GETPARAMETERTYPE = 15    /* index; FF_TYPE_... */
};

/* Capabilities, the input of FF_GETPLUGINCAPS: FF_TRUE or FF_FALSE, a number, or one of FF_OPTIMISED_FOR... */
enum {
  FF_CAP_16BITVIDEO = 0, /* frames of 16 bits; the host has none, such frames pass as they came */
  FF_CAP_24BITVIDEO = 1, /* frames of 24 bits: the frame itself is handed over, nothing is converted */
  FF_CAP_32BITVIDEO = 2, /* frames of 32 bits; used if the plug-in has no 24 */
  FF_CAP_PROCESSFRAMECOPY = 3,
  FF_CAP_MINIMUMINPUTFRAMES = 10, /* asked of a plug-in with FF_CAP_PROCESSFRAMECOPY; 0 if it has no opinion */
  FF_CAP_MAXIMUMINPUTFRAMES = 11, /* at most 20 are connected */
  FF_CAP_COPYORINPLACE = 15
};

enum { FF_OPTIMISED_FOR_NONE = 0, FF_OPTIMISED_FOR_INPLACE = 1, FF_OPTIMISED_FOR_COPY = 2, FF_OPTIMISED_FOR_BOTH = 3 };

/* Kinds of parameters: what a value is, and what the host makes of it. */
enum {
  FF_TYPE_BOOLEAN = 0, /* 1.0 or 0.0 */
  FF_TYPE_EVENT = 1,   /* 1.0 and at once 0.0 when it is fired; never set at a start */
  FF_TYPE_RED = 2,     /* 0.0 to 1.0: a byte divided by 255. Its default is the byte itself, not divided */
  FF_TYPE_GREEN = 3,
  FF_TYPE_BLUE = 4,
  FF_TYPE_XPOS = 5, /* a whole number as float */
  FF_TYPE_YPOS = 6,
  FF_TYPE_STANDARD = 10, /* any float, customarily 0.0 to 1.0; every other number means this, too */
  FF_TYPE_TEXT = 100     /* text ended by 0, at most 65535 bytes are read */
};

#define FF_SUCCESS 0u
#define FF_FAIL 0xFFFFFFFFu
#define FF_TRUE 1u
#define FF_FALSE 0u

/* --- Records -------------------------------------------------------------------------------------------------------*/

enum { FF_DEPTH_16 = 0, FF_DEPTH_24 = 1, FF_DEPTH_32 = 2 };
enum { FF_ORIENTATION_TOPLEFT = 1, FF_ORIENTATION_BOTTOMLEFT = 2 };

typedef struct VideoInfoStruct {
  uint32_t FrameWidth, FrameHeight; /* pixels, above 0 */
  uint32_t BitDepth;                /* FF_DEPTH_24 if the plug-in has it, otherwise FF_DEPTH_32, otherwise 0 */
  uint32_t Orientation;             /* always FF_ORIENTATION_BOTTOMLEFT; rows come as told above all the same */
} VideoInfoStruct;

typedef struct SetParameterStruct {
  uint32_t ParameterNumber;
  uint32_t NewParameterValue;       /* the float's bits; 0 for a text */
  uintptr_t NewParameterTextOrBits; /* a const char* for a text; otherwise the float's bits again */
} SetParameterStruct;

typedef struct ProcessFrameCopyStruct {
  uint32_t numInputFrames;
  void** ppInputFrames; /* not to be written to: others hold them, too */
  void* pOutputFrame;   /* to be covered whole; what is left out may be black, or the first input */
} ProcessFrameCopyStruct;

typedef struct PluginExtendedInfoStruct {
  uint32_t PluginMajorVersion, PluginMinorVersion;
  const char* Description; /* may be 0, as may About */
  const char* About;
} PluginExtendedInfoStruct;

/* --- Help for authors ----------------------------------------------------------------------------------------------*/

/* The one function, as the host looks it up. */
#define FF_ENTRY_NAME "plugMain"
typedef uintptr_t (*FF_Main)(uint32_t functionCode, uintptr_t inputValue, uintptr_t instanceID);

#if defined(__GNUC__)
#define FF_EXPORT __attribute__((visibility("default")))
#else
#define FF_EXPORT
#endif
#ifdef __cplusplus
#define FF_PLUG_MAIN(code, input, instance) \
  extern "C" FF_EXPORT uintptr_t plugMain(uint32_t code, uintptr_t input, uintptr_t instance)
#else
#define FF_PLUG_MAIN(code, input, instance)                                         \
  FF_EXPORT uintptr_t plugMain(uint32_t code, uintptr_t input, uintptr_t instance); \
  FF_EXPORT uintptr_t plugMain(uint32_t code, uintptr_t input, uintptr_t instance)
#endif

/* A float and its bits. */
static inline float FF_FloatOf(uint32_t bits) {
  float value;
  memcpy(&value, &bits, sizeof value);
  return value;
}
static inline uint32_t FF_BitsOf(float value) {
  uint32_t bits;
  memcpy(&bits, &value, sizeof bits);
  return bits;
}

#ifdef __cplusplus
}
#endif
#endif
