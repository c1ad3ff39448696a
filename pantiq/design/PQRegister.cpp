#include "pantiq/design/PQRegister.h"

#include "pantiq/compose/PQApplyMask.h"
#include "pantiq/compose/PQCombine.h"
#include "pantiq/compose/PQFrameChange.h"
#include "pantiq/compose/PQTransparentColor.h"
#include "pantiq/design/PQMorphShapeFormUnit.h"
#include "pantiq/filters/PQBoxFilter.h"
#include "pantiq/filters/PQChangeFormat.h"
#include "pantiq/filters/PQColorMerge.h"
#include "pantiq/filters/PQColorSplit.h"
#include "pantiq/filters/PQColorTwist.h"
#include "pantiq/filters/PQColorsToReal.h"
#include "pantiq/filters/PQCrop.h"
#include "pantiq/filters/PQFixedFilter.h"
#include "pantiq/filters/PQGammaFilter.h"
#include "pantiq/filters/PQGaussNoise.h"
#include "pantiq/filters/PQGrayScale.h"
#include "pantiq/filters/PQHistogram.h"
#include "pantiq/filters/PQHistogramEqualize.h"
#include "pantiq/filters/PQImageAdjust.h"
#include "pantiq/filters/PQImageGen.h"
#include "pantiq/filters/PQJaehneGen.h"
#include "pantiq/filters/PQMirror.h"
#include "pantiq/filters/PQMorphFilter.h"
#include "pantiq/filters/PQRealToFrame.h"
#include "pantiq/filters/PQResize.h"
#include "pantiq/filters/PQRotate.h"
#include "pantiq/filters/PQShear.h"
#include "pantiq/filters/PQThreshold.h"
#include "pantiq/filters/PQUniformNoise.h"
#include "pantiq/filters/PQWarp.h"
#include "pantiq/filters/PQWienerFilter.h"
#include "pantiq/flow/PQChangeRate.h"
#include "pantiq/flow/PQDelay.h"
#include "pantiq/flow/PQQueuedSwitch.h"
#include "pantiq/flow/PQSnapshot.h"
#include "pantiq/flow/PQSwitch.h"
#include "pantiq/media/PQASFLogger.h"
#include "pantiq/media/PQASFPlayer.h"
#include "pantiq/media/PQDSVideoCompressor.h"
#include "pantiq/media/PQDSVideoDecompressor.h"
#include "pantiq/media/PQDSVideoOut.h"
#include "pantiq/media/PQVideoCompressor.h"
#include "pantiq/media/PQVideoDecompressor.h"
#include "pantiq/plugins/PQDMOEffect.h"
#include "pantiq/plugins/PQFreeFrame.h"

namespace pantiq {

void RegisterAll() {
  PQDSVideoDecompressor::Register();
  PQRealToFrame::Register();
  PQChangeRate::Register();
  PQColorsToReal::Register();
  PQASFPlayer::Register();
  PQSwitch::Register();
  PQChangeFormat::Register();
  PQDSVideoCompressor::Register();
  PQSnapshot::Register();
  PQMorphFilter::Register();
  PQImageAdjust::Register();
  PQFreeFrame::Register();
  PQUniformNoise::Register();
  PQBoxFilter::Register();
  PQFixedFilter::Register();
  PQGaussNoise::Register();
  PQGrayScale::Register();
  PQHistogram::Register();
  PQJaehneGen::Register();
  PQColorTwist::Register();
  PQGammaFilter::Register();
  PQMirror::Register();
  PQRotate::Register();
  PQShear::Register();
  PQResize::Register();
  PQWarp::Register();
  PQCombine::Register();
  PQImageGen::Register();
  PQFrameChange::Register();
  PQColorSplit::Register();
  PQApplyMask::Register();
  PQTransparentColor::Register();
  PQWienerFilter::Register();
  PQDMOEffect::Register();
  PQDSVideoOut::Register();
  PQVideoDecompressor::Register();
  PQVideoCompressor::Register();
  PQThreshold::Register();
  PQCrop::Register();
  PQHistogramEqualize::Register();
  PQASFLogger::Register();
  PQDelay::Register();
  PQQueuedSwitch::Register();
  PQColorMerge::Register();
  PQMorphShapeFormUnit::Register();
}

}  // namespace pantiq
