#include "pantiq/design/PQRegister.h"

#include "pantiq/filters/PQBoxFilter.h"
#include "pantiq/filters/PQChangeFormat.h"
#include "pantiq/filters/PQColorTwist.h"
#include "pantiq/filters/PQCrop.h"
#include "pantiq/filters/PQFixedFilter.h"
#include "pantiq/filters/PQGammaFilter.h"
#include "pantiq/filters/PQGaussNoise.h"
#include "pantiq/filters/PQGrayScale.h"
#include "pantiq/filters/PQImageGen.h"
#include "pantiq/filters/PQJaehneGen.h"
#include "pantiq/filters/PQMirror.h"
#include "pantiq/filters/PQMorphFilter.h"
#include "pantiq/filters/PQRealToFrame.h"
#include "pantiq/filters/PQThreshold.h"
#include "pantiq/filters/PQUniformNoise.h"
#include "pantiq/media/PQASFLogger.h"
#include "pantiq/media/PQASFPlayer.h"

namespace pantiq {

void RegisterAll() {
  PQRealToFrame::Register();
  PQASFPlayer::Register();
  PQChangeFormat::Register();
  PQMorphFilter::Register();
  PQUniformNoise::Register();
  PQBoxFilter::Register();
  PQFixedFilter::Register();
  PQGaussNoise::Register();
  PQGrayScale::Register();
  PQJaehneGen::Register();
  PQColorTwist::Register();
  PQGammaFilter::Register();
  PQMirror::Register();
  PQImageGen::Register();
  PQThreshold::Register();
  PQCrop::Register();
  PQASFLogger::Register();
}

}  // namespace pantiq
