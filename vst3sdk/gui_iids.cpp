// The subset declares these interface ids in its GUI headers but defines them nowhere; without
// this file nothing that touches an editor view links.
#include "pluginterfaces/gui/iplugview.h"
#include "pluginterfaces/gui/iplugviewcontentscalesupport.h"

namespace Steinberg {
DEF_CLASS_IID(IPlugView)
DEF_CLASS_IID(IPlugFrame)
DEF_CLASS_IID(IPlugViewContentScaleSupport)
#if SMTG_OS_LINUX
namespace Linux {
DEF_CLASS_IID(IRunLoop)
DEF_CLASS_IID(IEventHandler)
DEF_CLASS_IID(ITimerHandler)
} // namespace Linux
#endif
} // namespace Steinberg
