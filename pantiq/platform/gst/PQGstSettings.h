// Properties of an element as settings in text: what there is, what is accepted, setting them.
#pragma once
#include <gst/gst.h>

#include <string>
#include <vector>

#include "pantiq/platform/PQEffects.h"

namespace pantiq::gst {

// The element's own properties that can be set from text; not those that every element or transform has.
std::vector<PQEffectSetting> ListSettings(GstElement* element);

// Sets what `text` names, and gives what `set_before` names and `text` does not its default again; `set_before` then
// holds the names of `text`. A fault changes nothing; the detail names what is accepted.
PQPlatformResult ApplySettings(GstElement* element, const std::string& text, std::vector<std::string>& set_before);

}  // namespace pantiq::gst
