#include "pantiq/design/PQRegister.h"

#include "pantiq/filters/PQCrop.h"
#include "pantiq/filters/PQGaussNoise.h"
#include "pantiq/filters/PQImageGen.h"
#include "pantiq/filters/PQJaehneGen.h"
#include "pantiq/filters/PQMirror.h"
#include "pantiq/filters/PQUniformNoise.h"
#include "pantiq/media/PQASFLogger.h"
#include "pantiq/media/PQASFPlayer.h"

namespace pantiq {

void RegisterAll() {
  PQASFPlayer::Register();
  PQUniformNoise::Register();
  PQGaussNoise::Register();
  PQJaehneGen::Register();
  PQMirror::Register();
  PQImageGen::Register();
  PQCrop::Register();
  PQASFLogger::Register();
}

}  // namespace pantiq
